#pragma once

#include "batch/Options.h"
#include "core/Caller.h"
#include "core/Identities.h"
#include "core/ItemProcessing.h"
#include "core/MainBundle.h"
#include "core/WorkSet.h"

#include <cstddef>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

/// Exit statuses of the program.
enum class ExitStatus { AllDone = 0, SomeFailed = 1, NothingToDo = 2, Stopped = 3 };

/// The same flow as the window's, for a terminal: asks, processes, and says what became of each
/// package. Runs on the thread that calls it.
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
    };

    Batch(Environment environment, Options options);

    /// Does what the options ask for, from asking to the summary.
    [[nodiscard]] ExitStatus run();

private:
    [[nodiscard]] std::optional<IdentityList> installedIdentities() const;
    /// Success if the scripts can be run from where they are.
    [[nodiscard]] base::Outcome checkInstallation() const;
    /// Success if the identity given can stand in a command line.
    [[nodiscard]] base::Outcome checkIdentity() const;
    /// Puts the paths given into the work set; false if some cannot be processed.
    bool takePaths();
    void tell(const base::Error& error);
    ExitStatus listIdentities();
    /// False when the person stopped.
    bool processAll();
    void process(const std::string& entry);
    [[nodiscard]] bool isValid(const std::string& package);
    /// Shows what a failed script said before its last line.
    void quoteOutput(const ScriptRun& run);
    void report(const std::string& package, const std::vector<ScriptRun>& runs);
    void showProgress(const std::string& text);
    void summarize();
    [[nodiscard]] ProcessingHooks processingHooks();

    Environment environment_;
    Options options_;
    Caller caller_;
    IdentityList identities_;
    WorkSet workSet_;
    std::size_t packed_ = 0;
    std::size_t failed_ = 0;
    std::size_t skipped_ = 0;
};
