#include "batch/Batch.h"

#include "base/Printable.h"
#include "batch/Intake.h"
#include "batch/Question.h"
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

Batch::Batch(Surroundings surroundings, Options options)
    : surroundings_(std::move(surroundings)),
      options_(std::move(options)), receiver_{"Batch", "<Batch>"} {}

ExitStatus Batch::run() {
    if (options_.help) {
        surroundings_.out << helpText();
        return ExitStatus::AllDone;
    }
    if (options_.version) {
        surroundings_.out << appVersionText(surroundings_.bundle.infoDictionary) << '\n';
        return ExitStatus::AllDone;
    }
    if (options_.listIdentities)
        return listIdentities();
    if (options_.paths.empty()) {
        surroundings_.err << "kelpmoray-batch: no PATH given; see --help\n";
        return ExitStatus::NothingToDo;
    }

    if (const auto objection = objectionToInstallation()) {
        surroundings_.err << "kelpmoray-batch: " << base::printable(*objection) << '\n';
        return ExitStatus::NothingToDo;
    }
    if (const auto objection = objectionToArgument(options_.identity.value_or(""))) {
        surroundings_.err << "kelpmoray-batch: the text behind --identity " << *objection
                          << "; --list-identities prints those there are\n";
        return ExitStatus::NothingToDo;
    }
    const std::vector<std::string> objections = takeIn(receiver_, options_.paths, workSet_);
    for (const std::string& objection : objections)
        surroundings_.err << "kelpmoray-batch: " << base::printable(objection) << '\n';
    if (workSet_.count() == 0)
        return ExitStatus::NothingToDo;
    if (!options_.doNotCodesign)
        identities_ = installedIdentities().value_or(IdentityList{});
    const bool wentThrough = processAll();
    summarize();
    if (!wentThrough)
        return ExitStatus::Stopped;
    return failed_ == 0 && objections.empty() ? ExitStatus::AllDone : ExitStatus::SomeFailed;
}

std::optional<std::string> Batch::objectionToInstallation() const {
    const auto script = surroundings_.bundle.pathForResource("fenwoJustZipApps", "sh");
    if (!script)
        return "the scripts are missing from " + surroundings_.bundle.resourcesFolder +
               "; install the program again";
    // The script's path stands unquoted in the command line.
    if (script->find_first_of(" \t\n\"'$`\\&;|<>()*?[]#~") != std::string::npos)
        return "the scripts are in " + surroundings_.bundle.resourcesFolder +
               ", whose name holds a blank or another character that the shell would take for its "
               "own; move the program";
    return std::nullopt;
}

std::optional<IdentityList> Batch::installedIdentities() const {
    // Without the tool the shell would complain to a person who may not even want to sign.
    if (!fileExists(surroundings_.tools.security))
        return std::nullopt;
    return codesigningIdentities(receiver_, surroundings_.tools);
}

ExitStatus Batch::listIdentities() {
    const auto identities = installedIdentities();
    if (!identities) {
        surroundings_.err << "kelpmoray-batch: no identities, as " << surroundings_.tools.security
                          << " is missing or silent; sign on a Mac\n";
        return ExitStatus::NothingToDo;
    }
    for (const IdentityRecord& identity : *identities)
        surroundings_.out << base::printable(identity.displaystring) << '\n';
    return ExitStatus::AllDone;
}

bool Batch::processAll() {
    using Confirmation::Answer;
    for (const std::string& entry : workSet_.allObjects()) {
        const Answer answer = options_.processAll
                                  ? Answer::Process
                                  : ask(base::printable(entry), options_.doNotCodesign,
                                        surroundings_.in, surroundings_.out);
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
        surroundings_.err << "kelpmoray-batch: " << base::printable(entry)
                          << ": it is no longer there\n";
        ++failed_;
        return;
    }
    const std::size_t before = packed_ + failed_;
    processEntry(receiver_, surroundings_.bundle, outside(), entry);
    if (packed_ + failed_ == before) {
        surroundings_.err << "kelpmoray-batch: " << base::printable(entry)
                          << ": its packages are no longer there\n";
        ++failed_;
    }
}

ProcessingOutside Batch::outside() {
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
    if (const auto objection = objectionToArgument(package)) {
        surroundings_.out << base::printable(lastPathComponent(package)) << ": FAILED: its path "
                          << *objection << ": rename it" << std::endl;
        ++failed_;
        return false;
    }
    return isValidItemToSign(receiver_, package, options_.doNotCodesign,
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
    surroundings_.out << base::printable(lastPathComponent(package)) << ": ";
    if (!failure.empty())
        surroundings_.out << "FAILED: " << base::printable(failure)
                          << (archive.empty() ? "" : "; ");
    if (!archive.empty())
        surroundings_.out << "packed as " << base::printable(archive) << " (" << signature << ')';
    surroundings_.out << std::endl;
    ++(failure.empty() ? packed_ : failed_);
}

void Batch::quoteOutput(const ScriptRun& run) {
    const std::string output = run.output.value_or("");
    std::vector<std::string_view> lines = split(trimmed(output), "\n");
    lines.pop_back(); // tells the outcome, which is reported anyway
    for (std::string_view line : lines)
        surroundings_.err << "    " << base::printable(line) << '\n';
}

void Batch::showProgress(const std::string& text) {
    if (surroundings_.outIsTerminal)
        surroundings_.out << "\r\033[K" << base::printable(text) << std::flush;
}

void Batch::summarize() {
    surroundings_.out << counted(packed_, "package") << " done, " << failed_ << " failed, "
                      << counted(skipped_, "folder") << " skipped, " << workSet_.count()
                      << " left\n";
}
