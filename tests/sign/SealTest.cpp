#include "base/ByteReader.h"
#include "sign/bundle/ResourceSeal.h"
#include "sign/bundle/SealCheck.h"
#include "sign/bundle/SealRules.h"
#include "tests/sign/BundleFixture.h"

#include <algorithm>

#include <gmock/gmock.h>
#include <regex.h>

namespace {

using sign::Bundle;
using sign::BundleForm;
using sign::FaultCode;
using sign::SealChange;
using testing::ElementsAre;

sign::NestedSeal nestedSeal() {
    return {std::vector<std::uint8_t>(20, 7), "identifier \"x\""};
}

/// The seal of a bundle whose nested code is signed the same everywhere.
std::string sealOf(const Bundle& bundle, bool withSha1 = false,
                   std::vector<std::string>* warnings = nullptr) {
    const auto seal = sign::makeSeal(
        bundle, {withSha1, 2},
        [](const std::string&) -> base::Result<sign::NestedSeal> { return nestedSeal(); });
    if (!seal) {
        ADD_FAILURE() << seal.error().sentence;
        return {};
    }
    if (warnings)
        *warnings = seal->warnings;
    return seal->xml;
}

/// One line an entry: its name and its keys.
std::vector<std::string> entriesIn(const sign::PropertyValue& seal, std::string_view table) {
    std::vector<std::string> lines;
    for (const auto& [name, entry] : *seal.find(table)->dictionary()) {
        lines.push_back(name + ":");
        if (entry.data())
            lines.back() += " " + std::to_string(entry.data()->size());
        else
            for (const auto& [key, value] : *entry.dictionary())
                lines.back() += " " + key + (value.string() ? "=" + *value.string() : "");
    }
    return lines;
}

TEST(SealTest, HasAnEntryForEachThingThatIsNotExcluded) {
    const TemporaryFolder folder;
    const auto bundle = sign::openBundle(makeRichApplication(folder));
    ASSERT_TRUE(bundle) << bundle.error().sentence;
    const auto seal = sign::readPropertyList(base::bytesOf(sealOf(*bundle)), "seal");
    ASSERT_TRUE(seal) << seal.error().sentence;
    const std::string nested = " cdhash requirement=identifier \"x\"";
    EXPECT_THAT(
        entriesIn(*seal, "files2"),
        ElementsAre(
            "Frameworks/Foo.framework:" + nested, "Frameworks/libx.dylib:" + nested,
            "Frameworks/liby.dylib: symlink=libx.dylib", "MacOS/helper:" + nested,
            "MacOS/script: hash2", "PlugIns/Flat.appex:" + nested,
            "PlugIns/Symbols.dSYM/Contents/Info.plist: hash2", "Resources/Base.lproj/x.nib: hash2",
            "Resources/Inner.app/Contents/Info.plist: hash2",
            "Resources/Inner.app/Contents/MacOS/inner: hash2", "Resources/Java.class: hash2",
            "Resources/Pictures.bundle/Info.plist: hash2", "Resources/a.txt: hash2",
            "Resources/code.o: hash2", "Resources/en.lproj/x.strings: hash2 optional",
            "Resources/line\nfeed & <caf\u00e9>: hash2", "Resources/link: symlink=a.txt",
            "Resources/tool: hash2"));
    EXPECT_THAT(entriesIn(*seal, "files"),
                ElementsAre("Resources/.DS_Store: 20", "Resources/Base.lproj/x.nib: 20",
                            "Resources/Inner.app/Contents/Info.plist: 20",
                            "Resources/Inner.app/Contents/MacOS/inner: 20",
                            "Resources/Java.class: 20", "Resources/Pictures.bundle/Info.plist: 20",
                            "Resources/a.txt: 20", "Resources/code.o: 20",
                            "Resources/en.lproj/x.strings: hash optional",
                            "Resources/line\nfeed & <caf\u00e9>: 20", "Resources/tool: 20"));
    EXPECT_EQ(seal->find("rules")->dictionary()->size(), 5U);
    EXPECT_EQ(seal->find("rules2")->dictionary()->size(), 13U);
}

TEST(SealTest, IsTheSameToTheByteAsThatOfThePlatform) {
    const TemporaryFolder folder;
    folder.makeFile("a.framework/Info.plist", infoPlist("a"));
    folder.makeFile("a.framework/a", machO());
    folder.makeFile("a.framework/b.txt", "abc");
    const auto bundle = sign::openBundle(folder.path("a.framework"));
    ASSERT_TRUE(bundle);
    const std::string seal = sealOf(*bundle, true);
    EXPECT_THAT(
        seal, testing::StartsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                  "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                  "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                                  "<plist version=\"1.0\">\n<dict>\n\t<key>files</key>\n\t<dict>\n"
                                  "\t\t<key>Info.plist</key>\n\t\t<data>\n"));
    EXPECT_THAT(seal, testing::HasSubstr(
                          "\t\t<key>b.txt</key>\n\t\t<dict>\n"
                          "\t\t\t<key>hash</key>\n\t\t\t<data>\n"
                          "\t\t\tqZk+NkcGgWq6PiVxeFDCbJzQ2J0=\n\t\t\t</data>\n"
                          "\t\t\t<key>hash2</key>\n\t\t\t<data>\n"
                          "\t\t\tungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0=\n\t\t\t</data>\n"
                          "\t\t</dict>\n"));
    EXPECT_THAT(seal,
                testing::EndsWith("\t\t<key>^PkgInfo$</key>\n\t\t<dict>\n\t\t\t<key>omit</key>\n"
                                  "\t\t\t<true/>\n\t\t\t<key>weight</key>\n"
                                  "\t\t\t<real>20</real>\n\t\t</dict>\n"
                                  "\t\t<key>^embedded\\.provisionprofile$</key>\n\t\t<dict>\n"
                                  "\t\t\t<key>weight</key>\n\t\t\t<real>20</real>\n\t\t</dict>\n"
                                  "\t\t<key>^version\\.plist$</key>\n\t\t<dict>\n"
                                  "\t\t\t<key>weight</key>\n\t\t\t<real>20</real>\n\t\t</dict>\n"
                                  "\t</dict>\n</dict>\n</plist>\n"));
}

TEST(SealTest, RefusesNamesThatNoSealCanHold) {
    for (const char* name : {"bad\xFF", "bell\a"}) {
        const TemporaryFolder folder;
        const std::string app = makeRichApplication(folder);
        folder.makeFile("Rich App.app/Contents/Resources/" + std::string(name));
        const auto bundle = sign::openBundle(app);
        ASSERT_TRUE(bundle);
        const auto seal =
            sign::makeSeal(*bundle, {}, [](const std::string&) -> base::Result<sign::NestedSeal> {
                return nestedSeal();
            });
        ASSERT_FALSE(seal) << name;
        EXPECT_THAT(seal.error().sentence, testing::HasSubstr("no seal can hold it"));
    }
}

/// The plain functions must mean what the patterns say.
TEST(SealRulesTest, AgreeWithTheExpressionsThatTheyStandFor) {
    std::vector<std::string> paths = {"", "Resources", "Resources/", "MacOS", "Resourcesx/a"};
    for (const std::string folder :
         {"", "Resources/", "Frameworks/", "Library/Spotlight/", "Library/", "x/Resources/",
          "Resources/en.lproj/", "Resources/Base.lproj/", "en.lproj/", "Base.lproj/", "x.dSYM/",
          "Resources/.lproj/", "Resources/a/b.lproj/c/", "MacOS/x.dSYMs/", "Plug-ins/y\nz/"}) {
        for (const std::string file :
             {"a", "Info.plist", "Info-plist", "version.plist", "versionXplist", "locversion.plist",
              "locversion/plist", "xlocversion.plist", ".DS_Store", "x.DS_Store", "PkgInfo",
              "embedded.provisionprofile", "b.dSYM", "b.dSYMx", "Base.lproj", "\xFF"})
            paths.push_back(folder + file);
    }
    for (const BundleForm form : {BundleForm::Contents, BundleForm::Flat}) {
        for (const auto& rules :
             {sign::SealRules::standard(form), sign::SealRules::standardVersion1(form)}) {
            for (const auto& [pattern, value] : *rules.dictionary()) {
                const sign::PathMatcher matches = sign::standardMatcher(pattern);
                ASSERT_NE(matches, nullptr) << pattern;
                regex_t expression;
                ASSERT_EQ(regcomp(&expression, pattern.c_str(), REG_EXTENDED | REG_NOSUB), 0);
                for (const std::string& path : paths)
                    EXPECT_EQ(matches(path), regexec(&expression, path.c_str(), 0, nullptr, 0) == 0)
                        << pattern << " on " << path;
                regfree(&expression);
            }
        }
    }
}

TEST(SealRulesTest, IncludeTheMainExecutableButNotTheSignature) {
    const TemporaryFolder folder;
    folder.makeFile("a.framework/Info.plist", infoPlist("a"));
    folder.makeFile("a.framework/a", machO());
    const auto bundle = sign::openBundle(folder.path("a.framework"));
    const auto rules =
        sign::SealRules::read(sign::SealRules::standard(bundle->form), *bundle, "rules");
    ASSERT_TRUE(rules);
    EXPECT_TRUE(rules->includes("a"));
    EXPECT_TRUE(rules->includes("b/c"));
    EXPECT_FALSE(rules->includes("Info.plist"));
    EXPECT_FALSE(rules->includes("_CodeSignature/CodeResources"));
}

class SealCheckTest : public testing::Test {
protected:
    std::vector<std::string> check(std::string seal, bool strict, bool sha1 = false) {
        const auto bundle = sign::openBundle(app_);
        if (!bundle)
            return {bundle.error().sentence};
        sign::SealChecking checking;
        checking.strict = strict;
        checking.sha1 = sha1;
        checking.threads = 2;
        const auto report = sign::checkSeal(*bundle, {seal.begin(), seal.end()}, checking);
        if (!report)
            return {report.error().sentence};
        std::vector<std::string> lines;
        for (const auto* faults : {&report->faults, &report->structureFaults}) {
            for (const auto& fault : *faults) {
                static constexpr const char* changes[] = {"", "added ", "modified ", "missing "};
                lines.push_back(
                    std::to_string(int(fault.code)) + " " + changes[std::size_t(fault.change)] +
                    fault.file.substr(std::min(fault.file.size(), (app_ + "/Contents/").size())));
            }
        }
        return lines;
    }

    TemporaryFolder folder_;
    std::string app_ = makeRichApplication(folder_);
};

TEST_F(SealCheckTest, NoticesEachKindOfDamage) {
    const std::string seal = sealOf(*sign::openBundle(app_));
    ASSERT_THAT(check(seal, true), testing::IsEmpty());
    const std::string aside = folder_.path("aside.app");
    std::filesystem::copy(app_, aside,
                          std::filesystem::copy_options::recursive |
                              std::filesystem::copy_options::copy_symlinks);
    const struct {
        const char* command; ///< in Contents
        std::vector<std::string> faults;
        bool isStrict = false; ///< whether only strict checks notice it
    } cases[] = {
        {"touch Resources/new", {"-67054 added Resources/new"}},
        {"ln -s a.txt Resources/new", {"-67054 added Resources/new"}},
        {"printf x >> Resources/a.txt", {"-67054 modified Resources/a.txt"}},
        {"rm Resources/a.txt Resources/link",
         {"-67054 missing Resources/a.txt", "-67054 missing Resources/link"}},
        {"rm Resources/a.txt && mkdir Resources/a.txt", {"-67054 missing Resources/a.txt"}},
        {"ln -sf /bin/sh Resources/link", {"-67054 modified Resources/link"}},
        {"rm Resources/link && cp Resources/a.txt Resources/link",
         {"-67054 modified Resources/link"}},
        {"rm Resources/a.txt && ln -s tool Resources/a.txt", {"-67054 modified Resources/a.txt"}},
        {"rm Frameworks/libx.dylib && ln -s ../MacOS/run Frameworks/libx.dylib",
         {"-67054 modified Frameworks/libx.dylib"}},
        {"rm Frameworks/libx.dylib",
         {"-67054 missing Frameworks/libx.dylib", "-67003 Frameworks/liby.dylib"},
         true},
        {"rm -r PlugIns/Flat.appex", {"-67054 missing PlugIns/Flat.appex"}},
        {"cp Resources/a.txt Frameworks/x", {"-67054 added Frameworks/x"}},
        {"printf x > MacOS/script", {"-67054 modified MacOS/script"}},
        {"mkdir Frameworks/New.bundle", {"-67054 added Frameworks/New.bundle"}},
        {"touch Resources/.DS_Store Resources/x.DS_Store", {"-67054 added Resources/x.DS_Store"}},
        {"mkfifo Resources/pipe", {"-67054 added Resources/pipe"}},
        {"rm Resources/en.lproj/x.strings", {}},
        {"printf x > Resources/en.lproj/x.strings",
         {"-67054 modified Resources/en.lproj/x.strings"}},
        {"rm Resources/en.lproj/locversion.plist PkgInfo", {}},
        {"touch _CodeSignature/x", {"-67014 _CodeSignature/x"}, true},
        {"touch _CodeSignature/CodeSignature", {}, true},
        {"touch ../x", {"-67014 "}, true},
    };
    for (const auto& [command, faults, isStrict] : cases) {
        std::filesystem::remove_all(app_);
        std::filesystem::copy(aside, app_,
                              std::filesystem::copy_options::recursive |
                                  std::filesystem::copy_options::copy_symlinks);
        ASSERT_EQ(std::system(("cd '" + app_ + "/Contents' && " + command).c_str()), 0) << command;
        EXPECT_EQ(check(seal, true), faults) << command;
        if (!isStrict) {
            EXPECT_EQ(check(seal, false), faults) << command;
        }
    }
}

TEST_F(SealCheckTest, LetsLinksLeadOnlyToWhatIsSealed) {
    const struct {
        const char* target;
        bool isAllowed;
    } cases[] = {
        {"a.txt", true},
        {"../MacOS/run", true},
        {"../Frameworks/Foo.framework/Versions/B/libz.dylib", true},
        {"../Resources", true},
        {"../Info.plist", false},
        {"en.lproj/locversion.plist", false},
        {"/System/Library/x", true},
        {"/Library/../System/x", true},
        {"/System/../etc/passwd", false},
        {"/etc/passwd", false},
        {"../..", false},
        {"nowhere", false},
        {".DS_Store", false},
        {"../_CodeSignature/CodeResources", false},
        {"../../../aside", false},
    };
    folder_.makeFile("aside");
    for (const auto& [target, isAllowed] : cases) {
        std::filesystem::remove(app_ + "/Contents/Resources/link");
        folder_.makeLink("Rich App.app/Contents/Resources/link", target);
        std::vector<std::string> warnings;
        const std::string seal = sealOf(*sign::openBundle(app_), false, &warnings);
        EXPECT_THAT(check(seal, false), testing::IsEmpty()) << target;
        EXPECT_EQ(std::ranges::count_if(warnings,
                                        [](const std::string& warning) {
                                            return warning.find("Resources/link is a link") !=
                                                   warning.npos;
                                        }),
                  isAllowed ? 0 : 1)
            << target;
        const std::vector<std::string> faults = {"-67003 Resources/link"};
        EXPECT_EQ(check(seal, true), isAllowed ? std::vector<std::string>() : faults) << target;
    }
}

TEST_F(SealCheckTest, JudgesTheSealItself) {
    const std::string good = sealOf(*sign::openBundle(app_));
    const auto with = [&](const std::string& from, const std::string& to) {
        std::string seal = good;
        const std::size_t at = seal.find(from);
        return at == std::string::npos ? "" : seal.replace(at, from.size(), to);
    };
    const std::string omitsAll = "<key>^.*$</key>\n\t\t<dict><key>omit</key><true/>"
                                 "<key>weight</key><integer>1</integer></dict>\n\t\t";
    std::string manyRules;
    for (int number = 0; number < 256; ++number)
        manyRules += "<key>^" + std::to_string(number) + "</key><true/>";
    const std::string slow = "whose repetitions take too long to check";
    std::string nested = "[^/]";
    for (int depth = 0; depth < 25; ++depth)
        nested = "(" + nested + "+)";
    const auto notTaken = [&](const std::string& what) {
        return "\"" + app_ + "/Contents/_CodeSignature/CodeResources\" has " + what +
               ". Sign the package anew.";
    };
    const struct {
        const char* name;
        std::string seal;
        std::vector<std::string> faults;
    } cases[] = {
        {"no property list", "x", {"-67023 _CodeSignature/CodeResources"}},
        {"no old rules",
         with("<key>rules</key>", "<key>other</key>"),
         {"-67023 _CodeSignature/CodeResources"}},
        {"pattern that is none",
         with("<key>^[^/]+$</key>", "<key>^[</key>"),
         {"-67023 _CodeSignature/CodeResources"}},
        {"pattern that takes all memory",
         with("<key>^[^/]+$</key>", "<key>((a{1,255}){1,255}){1,255}</key>"),
         {notTaken("the resource rule \"((a{1,255}){1,255}){1,255}\", " + slow)}},
        {"pattern that is large",
         with("<key>^[^/]+$</key>", "<key>x{2049}</key>"),
         {notTaken("the resource rule \"x{2049}\", " + slow)}},
        {"pattern that says the same in another way",
         with("<key>^(Frameworks|", "<key>^(Framework{1}s|"),
         {}},
        {"patterns that do together",
         with("<key>^[^/]+$</key>", "<key>x{2000}</key><true/><key>y{2000}</key><true/>"
                                    "<key>z{97}</key><true/><key>^[^/]+$</key>"),
         {notTaken("resource rules that take too long to check together")}},
        {"patterns as large as may be",
         with("<key>^[^/]+$</key>", "<key>x{2000}</key><true/><key>y{2000}</key><true/>"
                                    "<key>z{96}</key><true/><key>^[^/]+$</key>"),
         {}},
        {"pattern whose repetitions multiply",
         with("<key>^[^/]+$</key>", "<key>^" + nested + "$</key>"),
         {}},
        {"reference back",
         with("<key>^[^/]+$</key>", "<key>(a)\\1</key>"),
         {notTaken("the resource rule \"(a)\\1\", with a reference back or an escape that systems "
                   "read differently")}},
        {"long pattern",
         with("<key>^[^/]+$</key>", "<key>" + std::string(257, 'a') + "</key>"),
         {notTaken("the resource rule \"" + std::string(256, 'a') +
                   "\", which is longer than 256 bytes")}},
        {"weight that is none",
         with("<real>2000</real>", "<string>2000</string>"),
         {notTaken("the resource rule \"^(.*/)?\\.DS_Store$\", whose weight is no number")}},
        {"many rules",
         with("<key>^[^/]+$</key>", manyRules + "<key>^[^/]+$</key>"),
         {notTaken("more than 256 resource rules")}},
        {"rules that omit",
         with("<key>^[^/]+$</key>", omitsAll + "<key>^[^/]+$</key>"),
         {"-67013 _CodeSignature/CodeResources"}},
        {"rules that leave out",
         with("<key>^.*</key>\n\t\t<true/>", "<key>^.+</key>\n\t\t<true/>"),
         {"-67013 _CodeSignature/CodeResources"}},
    };
    for (const auto& [name, seal, faults] : cases)
        EXPECT_EQ(check(seal, true), faults) << name;

    const std::size_t files2 = good.find("\t<key>files2");
    const std::size_t rules = good.find("\t<key>rules<");
    const std::size_t rules2 = good.find("\t<key>rules2");
    const std::string version1 =
        good.substr(0, files2) + good.substr(rules, rules2 - rules) + "</dict></plist>";
    EXPECT_THAT(check(version1, false), testing::IsEmpty());
    EXPECT_THAT(check(version1, true), ElementsAre("-67007 _CodeSignature/CodeResources"));
    EXPECT_THAT(check(sealOf(*sign::openBundle(app_), true), true, true), testing::IsEmpty());
    EXPECT_THAT(check(good, false, true), testing::Contains("-67054 modified Resources/a.txt"))
        << "a directory with SHA-1 is not covered by SHA-256 alone";
}

} // namespace
