#include "batch/Batch.h"

#include "base/Printable.h"
#include "base/ProgressChannel.h"
#include "base/Version.h"
#include "batch/Intake.h"
#include "batch/Jobs.h"
#include "batch/Question.h"
#include "core/Format.h"
#include "core/Path.h"
#include "core/ScriptOutcome.h"
#include "core/ShellRunners.h"
#include "core/SignatureCheck.h"
#include "core/Text.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <ostream>

using base::Json;

namespace {

Report::Look lookFor(const Batch::Environment& environment, const Options& options) {
    using Form = Report::Form;
    return {.form = options.json    ? Form::Json
                    : options.quiet ? Form::FailuresOnly
                                    : Form::Lines,
            .isTerminal = environment.outIsTerminal,
            .hasColour = environment.hasColour,
            .stops = environment.interrupted};
}

/// What is the same for packages that are packed into the same archive, however they are reached.
std::string archiveOf(const std::string& package) {
    const std::filesystem::path path(package);
    std::error_code error;
    const auto folder = std::filesystem::canonical(path.parent_path(), error);
    return ((error ? path.parent_path() : folder) / path.stem()).string();
}

/// Why the package cannot be begun; empty if it can.
std::string obstacleOf(const std::string& package, const std::string& rival) {
    if (!rival.empty())
        return formatted("Its archive would take the place of that of %@. Rename one of the two, "
                         "or give it only once.",
                         rival);
    switch (faultOfArgument(package)) {
    case ArgumentFault::NotUtf8:
        return "Its path is not UTF-8. Rename it.";
    case ArgumentFault::ReadByShell:
        return "Its path holds a quote, a dollar sign, a back quote, a backslash or a line break, "
               "which the shell would take for its own. Rename it.";
    case ArgumentFault::None:
        break;
    }
    return isDirectory(package) ? "" : "It is no longer there.";
}

} // namespace

Batch::Batch(Environment environment, Options options)
    : environment_(std::move(environment)),
      options_(std::move(options)), caller_{"Batch", "<Batch>"},
      record_(environment_.recordFolder, base::version()),
      report_(environment_.out, lookFor(environment_, options_)) {}

ExitStatus Batch::run() {
    if (options_.help) {
        environment_.out << helpText();
        return ExitStatus::AllDone;
    }
    if (options_.version) {
        environment_.out << "kelpmoray-batch " << base::version() << '\n';
        return ExitStatus::AllDone;
    }
    if (options_.listIdentities)
        return listIdentities();
    if (options_.paths.empty())
        return refuse({base::ErrorKind::Usage, "No PATH is given. See --help."});
    if (options_.listPackages)
        return listPackages(takePaths());

    using Check = base::Outcome (Batch::*)();
    for (const Check check :
         {&Batch::checkInstallation, &Batch::chooseIdentity, &Batch::setScriptEnvironment}) {
        if (const auto checked = (this->*check)(); !checked)
            return refuse(checked.error());
    }
    const bool tookAll = takePaths();
    const bool hasWork = workSet_.count() > 0;
    const bool wentThrough = !hasWork || processAll();
    record_.finish();
    if (const std::string trouble = record_.trouble(); !trouble.empty()) {
        logFailure("record: %@", trouble);
        tell({base::ErrorKind::System, trouble});
    }
    if (hasWork || options_.json)
        report_.summarize(unbegun_ + workSet_.count(), !wentThrough, record_.file());
    if (!hasWork)
        return ExitStatus::NothingToDo;
    if (!wentThrough)
        return ExitStatus::Stopped;
    return report_.tally().failed == 0 && tookAll ? ExitStatus::AllDone : ExitStatus::SomeFailed;
}

ExitStatus Batch::refuse(const base::Error& error) {
    tell(error);
    // A caller that merges the lines of many runs must see that this one did nothing.
    if (options_.json && !options_.listPackages) {
        report_.pathRefused(error.sentence);
        report_.summarize(0, false, "");
    }
    return ExitStatus::NothingToDo;
}

void Batch::tell(const base::Error& error) {
    const std::vector<std::string_view> lines = split(error.sentence, "\n");
    environment_.err << "kelpmoray-batch: " << base::printable(lines.front()) << '\n';
    for (std::size_t index = 1; index < lines.size(); ++index)
        environment_.err << base::printable(lines[index]) << '\n';
}

bool Batch::takePaths() {
    const std::vector<base::Error> errors = addToWorkSet(caller_, options_.paths, workSet_);
    for (const base::Error& error : errors) {
        if (options_.listPackages || options_.json)
            tell(error);
        if (!options_.listPackages)
            report_.pathRefused(error.sentence);
    }
    return errors.empty();
}

base::Outcome Batch::checkInstallation() {
    const auto script = environment_.bundle.pathForResource("fenwoJustZipApps", "sh");
    const std::string& folder = environment_.bundle.resourcesFolder;
    if (!script)
        return base::Error{
            base::ErrorKind::NotFound,
            formatted("The scripts are missing from %@. Install the program again.", folder)};
    // The script's path stands unquoted in the command line.
    if (script->find_first_of(" \t\n\"'$`\\&;|<>()*?[]#~") != std::string::npos)
        return base::Error{base::ErrorKind::Unsupported,
                           formatted("The scripts are in %@, whose name holds a blank or another "
                                     "character that the shell would take for its own. Move the "
                                     "program.",
                                     folder)};
    if (options_.identity && environment_.bundle.pathForResource("fenwoZipAppsDNP", "sh"))
        return base::Error{base::ErrorKind::Unsupported,
                           "This edition never signs. Leave --identity out."};
    return {};
}

base::Outcome Batch::chooseIdentity() {
    if (!options_.identity)
        return {};
    const auto listed = listedIdentities(environment_.tools);
    if (!listed)
        return listed.error();
    auto chosen = chosenIdentity(*listed, *options_.identity);
    if (!chosen)
        return chosen.error();
    const std::string holder(holderOf(chosen->name));
    identities_ = {{chosen->name.substr(0, chosen->name.find(':')), holder, chosen->name}};
    identity_ = *std::move(chosen);
    return checkKey(environment_.tools, *identity_);
}

base::Outcome Batch::setScriptEnvironment() {
    const auto hand = [](const char* variable, const std::optional<std::string>& value) {
        if (value)
            setenv(variable, value->c_str(), 1);
    };
    if (options_.entitlements) {
        const std::string file = absolutePath(*options_.entitlements);
        if (!isRegularFile(file))
            return base::Error{base::ErrorKind::NotFound,
                               *options_.entitlements +
                                   ": no file with entitlements is there. Check the path."};
        hand("KELPMORAY_ENTITLEMENTS", file);
    }
    hand("KELPMORAY_LEVEL", options_.level);
    hand("KELPMORAY_TIMESTAMP", options_.timestamp);
    if (options_.reproducible)
        hand("KELPMORAY_REPRODUCIBLE", "1");
    // Each package gets a pipe of its own, or none.
    unsetenv(base::ProgressChannel::variable);
    return {};
}

ExitStatus Batch::listIdentities() {
    const auto identities = listedIdentities(environment_.tools);
    if (!identities) {
        tell(identities.error());
        return ExitStatus::NothingToDo;
    }
    if (options_.json) {
        Json::Array list;
        for (const ListedIdentity& identity : *identities)
            list.emplace_back(Json::Object{{"hash", identity.hash}, {"name", identity.name}});
        environment_.out << Json(std::move(list)).text() << '\n';
        return ExitStatus::AllDone;
    }
    for (const ListedIdentity& identity : *identities)
        environment_.out << base::printable(lineOf(identity)) << '\n';
    return ExitStatus::AllDone;
}

ExitStatus Batch::listPackages(bool tookAll) {
    const bool hasWork = workSet_.count() > 0;
    Json::Array list;
    for (const std::string& entry : workSet_.allObjects()) {
        for (const Task& task : takeTasks(entry)) {
            if (options_.json)
                list.emplace_back(task.package);
            else if (options_.nullSeparated)
                environment_.out << task.package << '\0';
            else
                environment_.out << (environment_.outIsTerminal ? base::printable(task.package)
                                                                : task.package)
                                 << '\n';
        }
    }
    if (options_.json)
        environment_.out << Json(std::move(list)).text() << '\n';
    if (!hasWork)
        return ExitStatus::NothingToDo;
    return tookAll ? ExitStatus::AllDone : ExitStatus::SomeFailed;
}

bool Batch::processAll() {
    using Confirmation::Answer;
    std::vector<Task> tasks;
    for (const std::string& entry : workSet_.allObjects()) {
        if (environment_.interrupted())
            return false;
        if (options_.processAll) {
            std::ranges::move(takeTasks(entry), std::back_inserter(tasks));
            continue;
        }
        // What programs read of us has no question in it.
        const Answer answer = ask(base::printable(entry), options_.doNotCodesign, environment_.in,
                                  options_.json ? environment_.err : environment_.out);
        if (answer == Answer::Stop)
            return false;
        if (answer == Answer::Skip) {
            report_.folderSkipped();
            workSet_.remove(entry);
        } else if (options_.doNotCodesign && options_.requireSignature) {
            report_.entryFailed(entry, "It is not packed, as --require-signature was given.");
            workSet_.remove(entry);
        } else if (!process(takeTasks(entry))) {
            return false;
        }
    }
    return process(tasks);
}

std::vector<Batch::Task> Batch::takeTasks(const std::string& entry) {
    workSet_.remove(entry);
    std::vector<Task> tasks;
    const std::vector<std::string> packages = packagesToProcess(caller_, entry);
    record_.packagesFound(packages, entry);
    for (const std::string& package : packages) {
        const auto [first, isFirst] = archives_.emplace(archiveOf(package), package);
        tasks.push_back({package, entry, isFirst ? "" : first->second});
    }
    if (tasks.empty())
        report_.entryFailed(entry, "Its packages are no longer there.");
    report_.packagesFound(tasks.size());
    return tasks;
}

bool Batch::signs() const {
    return identity_ && !options_.doNotCodesign;
}

unsigned Batch::jobCount() const {
    if (options_.jobs)
        return options_.jobCount();
    return jobsThatPayOff(Machine::ofThisProcess(), signs() && options_.timestamp != "none");
}

bool Batch::process(const std::vector<Task>& tasks) {
    const unsigned jobs = jobCount();
    const unsigned processors = Machine::ofThisProcess().processors;
    const std::size_t begun = runJobs(
        jobs, tasks.size(), [this] { return !environment_.interrupted(); },
        [&](std::size_t number, unsigned slot) {
            // The last packages share all processors.
            const auto atWork =
                static_cast<unsigned>(std::min<std::size_t>(jobs, tasks.size() - number));
            process(tasks[number], slot, std::max(1U, processors / atWork));
        });
    unbegun_ += tasks.size() - begun;
    return begun == tasks.size();
}

void Batch::process(const Task& task, unsigned slot, unsigned threads) {
    const Log::Subject subject(task.package);
    if (const std::string obstacle = obstacleOf(task.package, task.rival); !obstacle.empty()) {
        logFailure("%@: %@", task.package, obstacle);
        record_.add({.path = task.package,
                     .entry = task.entry,
                     .state = PackageState::Failed,
                     .notSigned = obstacle});
        report_.packageFailed(task.package, task.entry, obstacle);
        return;
    }
    std::size_t number = 0; // in the record
    std::string assignments;
    const ProcessingHooks hooks = {
        .doNotCodesign = [this] { return !signs(); },
        .codesigningIdentity =
            [this] { return identity_ ? std::optional(identity_->hash) : std::nullopt; },
        .isValidItemToSign =
            [this](const std::string& package) {
                return isValidItemToSign(caller_, environment_.tools, package, !signs(),
                                         [this] { return identities_; });
            },
        .runShellCommand =
            [&](const std::string& command) {
                // What the terminal sends to all its processes ends us in order and must not end
                // the scripts. The shell becomes the script: a process less for each package.
                return runShellCommand("trap '' HUP INT; " + assignments + "exec " + command);
            },
        .goesOnAfter =
            [this](const ScriptRun& run) {
                return !options_.requireSignature ||
                       outcomeOf(run).kind == ScriptOutcome::Kind::Signed;
            },
        .packageStarted =
            [&](const std::string& package) {
                number = record_.packageStarted(
                    package, task.entry,
                    signs() ? std::optional(identities_.front().identitystring) : std::nullopt);
                assignments = "KELPMORAY_THREADS=" + std::to_string(threads) + ' ';
                if (const std::string pipe = report_.packageStarted(package, slot); !pipe.empty())
                    assignments +=
                        std::string(base::ProgressChannel::variable) + "='" + pipe + "' ";
            },
        .scriptEnded = [&](const ScriptRun& run) { record_.scriptEnded(number, run); },
        .packageProcessed =
            [&](const std::string&, const std::vector<ScriptRun>& runs) {
                report_.packageEnded(record_.packageEnded(number), runs, slot);
            },
    };
    processPackage(caller_.in("doProcessItemNew:"), environment_.bundle, hooks, task.package);
}
