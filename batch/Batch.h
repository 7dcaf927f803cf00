#pragma once

#include "batch/Options.h"
#include "core/Identities.h"
#include "core/ItemProcessing.h"
#include "core/MainBundle.h"
#include "core/Receiver.h"
#include "core/WorkSet.h"

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
    /// The surroundings of a run: where scripts and tools are, and whom to talk to.
    struct Surroundings {
        MainBundle bundle;
        ToolPaths tools;
        std::istream& in;
        std::ostream& out;
        std::ostream& err;
        bool outIsTerminal = false; ///< then a progress line is shown
    };

    Batch(Surroundings surroundings, Options options);

    /// Does what the options ask for, from asking to the summary.
    [[nodiscard]] ExitStatus run();

private:
    [[nodiscard]] std::optional<IdentityList> installedIdentities() const;
    /// Why the scripts cannot be run from where they are; none if they can.
    [[nodiscard]] std::optional<std::string> objectionToInstallation() const;
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
    [[nodiscard]] ProcessingOutside outside();

    Surroundings surroundings_;
    Options options_;
    Receiver receiver_;
    IdentityList identities_;
    WorkSet workSet_;
    std::size_t packed_ = 0;
    std::size_t failed_ = 0;
    std::size_t skipped_ = 0;
};
