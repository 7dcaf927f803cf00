#pragma once

#include "base/Json.h"
#include "batch/Progress.h"
#include "core/RunRecord.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <mutex>
#include <string>
#include <vector>

/// How many packages and folders came to which end.
struct Tally {
    std::size_t packed = 0;
    std::size_t failed = 0;
    std::size_t skipped = 0; ///< folders
    std::size_t left = 0;    ///< folders and packages that were not begun
};

/// Tells the person, or the program that reads, what becomes of each package, and at the end of the
/// run. What is said of one package is never mixed with another's. Any thread.
class Report {
public:
    enum class Form { Lines, FailuresOnly, Json };
    struct Look {
        Form form = Form::Lines;
        bool isTerminal = false; ///< then a progress line is shown
        bool hasColour = false;
        std::function<bool()> stops{}; ///< whether nothing more will begin
    };

    Report(std::ostream& out, Look look);

    /// `count` more packages will come.
    void packagesFound(std::size_t count);
    /// Which pipe its steps tell their progress through; empty if nobody looks.
    [[nodiscard]] std::string packageStarted(const std::string& package, unsigned slot);
    void packageEnded(const PackageRecord& package, const std::vector<ScriptRun>& runs,
                      unsigned slot);
    /// A package that could not be begun; its record says why it is not signed.
    void packageFailed(const PackageRecord& package);
    void folderSkipped();
    /// A PATH that cannot be processed; told elsewhere too.
    void pathRefused(const std::string& sentence);
    void summarize(std::size_t left, bool stopped, const std::string& record);

    [[nodiscard]] Tally tally() const;

private:
    void print(const std::string& text, bool isFailure);
    [[nodiscard]] std::string coloured(const char* colour, const std::string& text) const;

    std::ostream& out_;
    const Look look_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    mutable std::mutex mutex_;
    Tally tally_;
    base::Json::Array refused_;
    Progress progress_; ///< last: its thread uses the others
};
