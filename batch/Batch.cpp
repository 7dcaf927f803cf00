#include "batch/Batch.h"

#include "base/Printable.h"
#include "batch/Intake.h"
#include "batch/Question.h"
#include "core/Format.h"
#include "core/Path.h"
#include "core/ScriptOutcome.h"
#include "core/ShellRunners.h"
#include "core/SignatureCheck.h"
#include "core/Text.h"

#include <algorithm>
#include <iostream>

namespace {

std::string counted(std::size_t count, const char* thing) {
    return std::to_string(count) + ' ' + thing + (count == 1 ? "" : "s");
}

} // namespace

Batch::Batch(Environment environment, Options options)
    : environment_(std::move(environment)),
      options_(std::move(options)), caller_{"Batch", "<Batch>"} {}

ExitStatus Batch::run() {
    if (options_.help) {
        environment_.out << helpText();
        return ExitStatus::AllDone;
    }
    if (options_.version) {
        environment_.out << appVersionText(environment_.bundle.infoDictionary) << '\n';
        return ExitStatus::AllDone;
    }
    if (options_.listIdentities)
        return listIdentities();
    if (options_.paths.empty()) {
        tell({base::ErrorKind::Usage, "no PATH given; see --help"});
        return ExitStatus::NothingToDo;
    }

    for (const base::Outcome& checked : {checkInstallation(), checkIdentity()}) {
        if (!checked) {
            tell(checked.error());
            return ExitStatus::NothingToDo;
        }
    }
    const bool tookAll = takePaths();
    if (workSet_.count() == 0)
        return ExitStatus::NothingToDo;
    if (!options_.doNotCodesign)
        identities_ = installedIdentities().value_or(IdentityList{});
    const bool wentThrough = processAll();
    summarize();
    if (!wentThrough)
        return ExitStatus::Stopped;
    return failed_ == 0 && tookAll ? ExitStatus::AllDone : ExitStatus::SomeFailed;
}

void Batch::tell(const base::Error& error) {
    environment_.err << "kelpmoray-batch: " << base::printable(error.sentence) << '\n';
}

bool Batch::takePaths() {
    const std::vector<base::Error> errors = addToWorkSet(caller_, options_.paths, workSet_);
    for (const base::Error& error : errors)
        tell(error);
    return errors.empty();
}

base::Outcome Batch::checkInstallation() const {
    const auto script = environment_.bundle.pathForResource("fenwoJustZipApps", "sh");
    const std::string& folder = environment_.bundle.resourcesFolder;
    if (!script)
        return base::Error{
            base::ErrorKind::NotFound,
            formatted("the scripts are missing from %@; install the program again", folder)};
    // The script's path stands unquoted in the command line.
    if (script->find_first_of(" \t\n\"'$`\\&;|<>()*?[]#~") != std::string::npos)
        return base::Error{base::ErrorKind::Unsupported,
                           formatted("the scripts are in %@, whose name holds a blank or another "
                                     "character that the shell would take for its own; move the "
                                     "program",
                                     folder)};
    return {};
}

base::Outcome Batch::checkIdentity() const {
    const ArgumentFault fault = faultOfArgument(options_.identity.value_or(""));
    if (fault == ArgumentFault::None)
        return {};
    return base::Error{
        base::ErrorKind::Usage,
        fault == ArgumentFault::NotUtf8
            ? "the text behind --identity is not UTF-8; --list-identities prints those there are"
            : "the text behind --identity holds a quote, a dollar sign, a back quote, a backslash "
              "or a line break, which the shell would take for its own; --list-identities prints "
              "those there are"};
}

std::optional<IdentityList> Batch::installedIdentities() const {
    // Without the tool the shell would complain to a person who may not even want to sign.
    if (!fileExists(environment_.tools.security))
        return std::nullopt;
    return codesigningIdentities(caller_, environment_.tools);
}

ExitStatus Batch::listIdentities() {
    const auto identities = installedIdentities();
    if (!identities) {
        tell({base::ErrorKind::Unavailable, "no identities, as " + environment_.tools.security +
                                                " is missing or silent; sign on a Mac"});
        return ExitStatus::NothingToDo;
    }
    for (const IdentityRecord& identity : *identities)
        environment_.out << base::printable(identity.displaystring) << '\n';
    return ExitStatus::AllDone;
}

bool Batch::processAll() {
    using Confirmation::Answer;
    for (const std::string& entry : workSet_.allObjects()) {
        const Answer answer = options_.processAll
                                  ? Answer::Process
                                  : ask(base::printable(entry), options_.doNotCodesign,
                                        environment_.in, environment_.out);
        if (answer == Answer::Stop)
            return false;
        if (answer == Answer::Process)
            process(entry);
        else
            ++skipped_;
        workSet_.remove(entry);
    }
    return true;
}

void Batch::process(const std::string& entry) {
    if (!isDirectory(entry)) {
        tell({base::ErrorKind::NotFound, entry + ": it is no longer there"});
        ++failed_;
        return;
    }
    const std::size_t before = packed_ + failed_;
    processEntry(caller_, environment_.bundle, processingHooks(), entry);
    if (packed_ + failed_ == before) {
        tell({base::ErrorKind::NotFound, entry + ": its packages are no longer there"});
        ++failed_;
    }
}

ProcessingHooks Batch::processingHooks() {
    return {
        .doNotCodesign = [this] { return options_.doNotCodesign; },
        .codesigningIdentity =
            [this] { return options_.identity.value_or(std::string(doNotCodesignIdentity)); },
        .isValidItemToSign = [this](const std::string& package) { return isValid(package); },
        .runShellCommand = runShellCommand,
        .packageStarted =
            [this](const std::string& package) { showProgress(progressText(package)); },
        .packageProcessed =
            [this](const std::string& package, const std::vector<ScriptRun>& runs) {
                showProgress("");
                report(package, runs);
            },
    };
}

bool Batch::isValid(const std::string& package) {
    const ArgumentFault fault = faultOfArgument(package);
    if (fault != ArgumentFault::None) {
        environment_.out << base::printable(lastPathComponent(package))
                         << (fault == ArgumentFault::NotUtf8
                                 ? ": FAILED: its path is not UTF-8: rename it"
                                 : ": FAILED: its path holds a quote, a dollar sign, a back quote, "
                                   "a backslash or a line break, which the shell would take for "
                                   "its own: rename it")
                         << std::endl;
        ++failed_;
        return false;
    }
    return isValidItemToSign(caller_, environment_.tools, package, options_.doNotCodesign,
                             [this] { return identities_; });
}

void Batch::report(const std::string& package, const std::vector<ScriptRun>& runs) {
    using Kind = ScriptOutcome::Kind;
    std::string archive;
    std::string signature = "not signed";
    std::string failure;
    for (const ScriptRun& run : runs) {
        const ScriptOutcome outcome = outcomeOf(run);
        if (outcome.kind == Kind::Packed)
            archive = outcome.detail;
        else if (outcome.kind == Kind::Signed)
            signature = "signed";
        else if (outcome.kind == Kind::Failed) {
            failure += (failure.empty() ? "" : "; ") + outcome.detail;
            quoteOutput(run);
        }
    }
    environment_.out << base::printable(lastPathComponent(package)) << ": ";
    if (!failure.empty())
        environment_.out << "FAILED: " << base::printable(failure) << (archive.empty() ? "" : "; ");
    if (!archive.empty())
        environment_.out << "packed as " << base::printable(archive) << " (" << signature << ')';
    environment_.out << std::endl;
    ++(failure.empty() ? packed_ : failed_);
}

void Batch::quoteOutput(const ScriptRun& run) {
    const std::string output = run.output.value_or("");
    std::vector<std::string_view> lines = split(trimmed(output), "\n");
    lines.pop_back(); // tells the outcome, which is reported anyway
    for (std::string_view line : lines)
        environment_.err << "    " << base::printable(line) << '\n';
}

void Batch::showProgress(const std::string& text) {
    if (environment_.outIsTerminal)
        environment_.out << "\r\033[K" << base::printable(text) << std::flush;
}

void Batch::summarize() {
    environment_.out << counted(packed_, "package") << " done, " << failed_ << " failed, "
                     << counted(skipped_, "folder") << " skipped, " << workSet_.count()
                     << " left\n";
}
