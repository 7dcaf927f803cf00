#pragma once

#include "batch/Options.h"
#include "batch/Report.h"
#include "core/Caller.h"
#include "core/Identities.h"
#include "core/IdentityChoice.h"
#include "core/ItemProcessing.h"
#include "core/MainBundle.h"
#include "core/WorkSet.h"

#include <iosfwd>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// Exit statuses of the program.
enum class ExitStatus { AllDone = 0, SomeFailed = 1, NothingToDo = 2, Stopped = 3 };

/// The same flow as the window's, for a terminal: checks what was asked for before anything is
/// touched, asks, processes several packages at once, and says what became of each. Runs on the
/// thread that calls it, and on others meanwhile.
class Batch {
public:
    /// What a run works with: the scripts, the tools, and the streams to the person.
    struct Environment {
        MainBundle bundle;
        ToolPaths tools;
        std::istream& in;
        std::ostream& out;
        std::ostream& err;
        bool outIsTerminal = false; ///< then a progress line is shown
        bool hasColour = false;
        std::string recordFolder; ///< of the records of runs; empty for none
        /// Asked before each package and question: whether a signal asked for the end.
        std::function<bool()> interrupted = [] { return false; };
    };

    Batch(Environment environment, Options options);

    /// Does what the options ask for, from asking to the summary.
    [[nodiscard]] ExitStatus run();

private:
    /// One package, and the entry of the work set that it was found in.
    struct Task {
        std::string package;
        std::string entry;
        std::string rival; ///< an earlier package with the same archive; empty if there is none
    };

    /// The work on a package, from which the hooks read and to which they write.
    struct Work {
        const Task& task;
        unsigned slot;
        unsigned threads;
        std::size_t number = 0;    ///< in the record
        std::string assignments{}; ///< in front of the script's command
    };

    /// Success if the scripts can be run from where they are, and do what is asked for.
    [[nodiscard]] base::Outcome checkInstallation();
    /// Finds the identity to sign with, if one is given.
    [[nodiscard]] base::Outcome chooseIdentity();
    /// Hands the options on to the scripts, if they can be.
    [[nodiscard]] base::Outcome setScriptEnvironment();
    /// Puts the paths given into the work set; false if some cannot be processed.
    bool takePaths();
    void tell(const base::Error& error);
    /// Tells why nothing is done, to programs too.
    [[nodiscard]] ExitStatus refuse(const base::Error& error);
    ExitStatus listIdentities();
    ExitStatus listPackages(bool tookAll);
    /// False when the person stopped.
    bool processAll();
    /// The packages of an entry, which leaves the work set.
    [[nodiscard]] std::vector<Task> takeTasks(const std::string& entry);
    /// Records and tells a package that could not be begun.
    void fail(const std::string& package, const std::string& entry, const std::string& reason);
    /// The same for an entry, none of whose packages could be begun.
    void failEntry(const std::string& entry, const std::string& reason);
    /// False when some were left.
    bool process(const std::vector<Task>& tasks);
    void process(const Task& task, unsigned slot, unsigned threads);
    /// They refer to `work`.
    [[nodiscard]] ProcessingHooks hooksOf(Work& work);
    void start(Work& work);
    [[nodiscard]] bool signs() const;
    [[nodiscard]] unsigned jobCount() const;

    Environment environment_;
    Options options_;
    Caller caller_;
    IdentityList identities_; ///< the one chosen, if any
    std::optional<ListedIdentity> identity_;
    WorkSet workSet_;
    std::map<std::string, std::string> archives_; ///< of the packages taken so far
    std::size_t unbegun_ = 0;                     ///< packages that were found and left
    RunRecord record_;
    Report report_;
};
