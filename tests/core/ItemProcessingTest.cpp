#include "core/ItemProcessing.h"

#include "core/ScriptOutcome.h"
#include "core/ShellRunners.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>

using testing::ElementsAre;

namespace {

const Caller caller{"Tester", "<Tester>"};

/// Scripts that write down how they were called, one line a call, and answer with a text.
struct ItemProcessing : testing::Test {
    ItemProcessing() { bundle.resourcesFolder = resources.path(); }

    void install(const std::string& script) const {
        resources.makeExecutable(script + ".sh",
                                 "#!/bin/sh\nprintf '%s\\n' \"${0##*/} $# [$1] [$2]\" >>'" +
                                     folder.path("calls") + "'\necho done by ${0##*/}\n");
    }
    [[nodiscard]] std::string calls() const { return contentOf(folder.path("calls")); }

    TemporaryFolder folder;
    LogCapture log;
    TemporaryFolder resources{TemporaryFolder::withoutBlank};
    MainBundle bundle;
    bool doNotCodesign = false;
    std::optional<std::string> identity = "Jo (X1)";
    std::vector<std::string> events;
    ProcessingHooks hooks = {
        .doNotCodesign = [this] { return doNotCodesign; },
        .codesigningIdentity =
            [this] {
                events.push_back("identity");
                return identity;
            },
        .isValidItemToSign =
            [](const std::string& package) { return !package.ends_with("Invalid.app"); },
        .runShellCommand = runShellCommand,
        .packageStarted =
            [this](const std::string& package) { events.push_back(progressText(package)); },
        .packageProcessed =
            [this](const std::string&, const std::vector<ScriptRun>& runs) {
                for (const ScriptRun& run : runs)
                    events.push_back(run.scriptFileName + ": " + run.output.value_or("none"));
            }};
};

} // namespace

TEST_F(ItemProcessing, SignsThenPacks) {
    install("fenwoCodesignApps");
    install("fenwoJustZipApps");
    runScripts(bundle, hooks, "/p/A b.app", identity);
    runScripts(bundle, hooks, "/p/C.app", std::nullopt);
    EXPECT_EQ(calls(), "fenwoCodesignApps.sh 2 [/p/A b.app] [Jo (X1)]\n"
                       "fenwoJustZipApps.sh 1 [/p/A b.app] []\n"
                       "fenwoCodesignApps.sh 1 [/p/C.app] []\n"
                       "fenwoJustZipApps.sh 1 [/p/C.app] []\n");
    const auto messages = log.messages();
    ASSERT_EQ(messages.size(), 8U);
    EXPECT_EQ(messages[0], "cmdstring = " + resources.path() +
                               "/fenwoCodesignApps.sh \"/p/A b.app\" \"Jo (X1)\"");
    EXPECT_EQ(messages[1], "result of fenwoCodesignApps.sh = done by fenwoCodesignApps.sh\n");
}

TEST_F(ItemProcessing, KnowsWhatTheShellChanges) {
    install("fenwoJustZipApps");
    doNotCodesign = true;
    std::vector<std::string> texts = {"a$",     "a\\",  "$(echo x)", "${HOME}", "`echo x`",
                                      "a\"\"b", "\xff", "a\nb",      "a\\\nb",  "a b",
                                      "~",      "*",    "ü$ü",       "a\\ü"};
    for (char character = ' '; character <= '~'; ++character) {
        texts.push_back(std::string("a$") + character + ".app");
        texts.push_back(std::string("a\\") + character + ".app");
        texts.push_back(std::string("a") + character + "b.app");
    }
    for (const std::string& text : texts) {
        std::filesystem::remove(folder.path("calls"));
        runScripts(bundle, hooks, "/p/" + text, std::nullopt);
        EXPECT_EQ(isChangedByShell("/p/" + text),
                  calls() != "fenwoJustZipApps.sh 1 [/p/" + text + "] []\n")
            << text << '\n'
            << calls();
    }
}

TEST_F(ItemProcessing, OnlyPacksWhenSigningIsOff) {
    install("fenwoCodesignApps");
    install("fenwoJustZipApps");
    doNotCodesign = true;
    runScripts(bundle, hooks, "/p/A.app", identity);
    EXPECT_EQ(calls(), "fenwoJustZipApps.sh 1 [/p/A.app] []\n");
}

TEST_F(ItemProcessing, RunsTheScriptThatNeverSignsAloneWhereItIs) {
    install("fenwoCodesignApps");
    install("fenwoJustZipApps");
    install("fenwoZipAppsDNP");
    hooks.doNotCodesign = [] {
        ADD_FAILURE() << "the setting is not consulted";
        return false;
    };
    runScripts(bundle, hooks, "/p/A.app", identity);
    EXPECT_EQ(calls(), "fenwoZipAppsDNP.sh 1 [/p/A.app] []\n");
}

TEST_F(ItemProcessing, HandsAMissingScriptToTheShellAsNull) {
    const auto runs = runScripts(bundle, hooks, std::nullopt, std::nullopt);
    ASSERT_EQ(runs.size(), 2U);
    EXPECT_EQ(runs[1].output, std::nullopt);
    EXPECT_EQ(log.count("cmdstring = (null) \"(null)\""), 2);
    EXPECT_THAT(log.failures(),
                ElementsAre("result of (null) = (null)", "result of (null) = (null)"));
}

TEST_F(ItemProcessing, NeedsNoHookToBeSet) {
    install("fenwoJustZipApps");
    EXPECT_TRUE(processPackage(caller, bundle, {}, "/p/A.app"));
    EXPECT_EQ(calls(), "fenwoJustZipApps.sh 1 [/p/A.app] []\n");
}

TEST_F(ItemProcessing, QuotesThePackageButNotTheScript) {
    EXPECT_EQ(scriptCommandLine("/a b/s.sh", "/p/$x\".app", "I"),
              "/a b/s.sh \"/p/$x\".app\" \"I\"");
}

TEST_F(ItemProcessing, WalksTheValidPackagesOfAnEntryInOrder) {
    install("fenwoJustZipApps");
    doNotCodesign = true;
    for (const char* package : {"E/B.app", "E/A.app", "E/Invalid.app"})
        folder.makeFolder(package);
    processEntry(caller, bundle, hooks, folder.path("E"));
    EXPECT_THAT(events, ElementsAre("identity", "Processing App Package: A.app...",
                                    "fenwoJustZipApps.sh: done by fenwoJustZipApps.sh\n",
                                    "identity", "Processing App Package: B.app...",
                                    "fenwoJustZipApps.sh: done by fenwoJustZipApps.sh\n"));
    EXPECT_EQ(log.messages().front(), "<Tester>-doProcessItemNew:...");
    EXPECT_EQ(log.count("<Tester>-doProcessItemNew:...appsToSign(3) = (\n    \"" +
                        folder.path("E/A.app") + "\",\n    \"" + folder.path("E/B.app") +
                        "\",\n    \"" + folder.path("E/Invalid.app") + "\"\n)"),
              1);
    EXPECT_EQ(log.count("<Tester>-doProcessItemNew:...item NOT VALID To sign...."), 1);
}

TEST(ScriptOutcome, IsReadFromTheLastLine) {
    using Kind = ScriptOutcome::Kind;
    const auto outcome = [](const std::optional<std::string>& output) {
        const ScriptOutcome result = outcomeOf({"s.sh", output});
        return std::pair(result.kind, result.detail);
    };
    EXPECT_EQ(outcome("noise\npacked: /a b.zip\n"),
              std::pair(Kind::Packed, std::string("/a b.zip")));
    EXPECT_EQ(outcome("signed: /a"), std::pair(Kind::Signed, std::string("/a")));
    EXPECT_EQ(outcome("unsigned: /a\n\n"), std::pair(Kind::Unsigned, std::string("/a")));
    EXPECT_EQ(outcome("packed: /a\nerror: no room: make some"),
              std::pair(Kind::Failed, std::string("no room: make some")));
    EXPECT_EQ(outcome("packed: /a\nKilled"),
              std::pair(Kind::Failed, std::string("s.sh ended without a result: Killed")));
    EXPECT_EQ(outcome("  packed: /a\n"),
              std::pair(Kind::Failed, std::string("s.sh ended without a result: packed: /a")))
        << "a script quotes a tool so";
    EXPECT_EQ(outcome(std::nullopt),
              std::pair(Kind::Failed, std::string("s.sh ended without a result")));
}
