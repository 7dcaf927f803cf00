#pragma once

#include "base/FileDescriptor.h"
#include "core/PackageRecord.h"
#include "core/ScriptOutcome.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

/// A run as it is read back.
struct RecordedRun {
    std::string file;
    std::string started; ///< "2026-05-12T07:45:12Z"
    std::string version; ///< of the program
    std::string trouble; ///< why this is a copy of a record that could not be written
    bool finished = false;
    bool underWay = false; ///< its process still works on it
    std::vector<PackageRecord> packages;
};

/// Keeps what becomes of each package of a run, and writes it as it happens to a file of the run's
/// own. The file is a whole JSON document at any moment, even after a kill. It lists the packages
/// in the order in which they ended, then those at work; before them, those found as left, which
/// what is listed behind overrides. The newest 50 files are kept. If the file
/// cannot be written, the run goes on, and trouble() says why. Any thread.
class RunRecord {
public:
    static constexpr std::size_t filesKept = 50;
    /// Of a failed step's output; the end tells why it failed.
    static constexpr std::size_t outputKept = 64U << 10U;
    /// Of a script's last line, the beginning and the end.
    static constexpr std::size_t lineKept = 8U << 10U;

    /// In the folder of the records, stands for a run that could be written down nowhere. No file
    /// has this name.
    static constexpr const char* nowhere = "not written down";

    /// kelpmoray/runs in the XDG folder for state; empty if the user has no home.
    [[nodiscard]] static std::string userFolder();

    /// Nothing is written before the first package has started, nor if `folder` is empty. `copied`
    /// is the trouble() of a record whose place this one takes.
    RunRecord(std::string folder, std::string version, std::string copied = "");

    /// These packages of `entry` are to come. Written with the next other fact.
    void packagesFound(const std::vector<std::string>& packages, const std::string& entry);
    // Facts, as they happen. Several packages may be at work, each on a thread of its own.
    /// `identity` is whom the package will be signed as; none if it will not be signed. Gives the
    /// package's number, from 0, by which the other facts name it.
    std::size_t packageStarted(const std::string& path, const std::string& entry,
                               const std::optional<std::string>& identity);
    void scriptEnded(std::size_t package, const ScriptRun& run);
    /// No script follows. Gives the package's record, which lacks only the archive's digest.
    PackageRecord scriptsEnded(std::size_t package);
    /// Reads the archive for its digest. Gives the whole record and keeps it in the file only.
    PackageRecord packageEnded(std::size_t package);
    /// Keeps a package of which no other facts come, as it is.
    void add(const PackageRecord& package);
    /// No package follows, and none is at work.
    void finish();
    /// The process is about to end: nothing more is written, and the run is no longer under way.
    void leave();

    /// Empty as long as it is not written.
    [[nodiscard]] std::string file() const;
    /// Of one that has not ended.
    [[nodiscard]] PackageRecord package(std::size_t package) const;
    /// Why the file is not complete, as a sentence; empty if it is.
    [[nodiscard]] std::string trouble() const;

private:
    /// The number of a package that comes.
    std::size_t next();
    void create();
    /// Writes `settling` for good, and behind it what may change: the packages at work, the end.
    void writeRest(const std::string& settling = "", const std::string& end = "");
    void fail(const std::string& action, const std::string& path);

    mutable std::mutex mutex_;
    std::string folder_;
    std::string version_;
    std::string copied_;
    std::string file_;
    std::string trouble_;
    base::FileDescriptor descriptor_;
    std::string head_;          ///< of the document, until it is written with the first package
    std::string found_;         ///< the packages that are not written yet
    std::uint64_t settled_ = 0; ///< what lies before is not written again
    std::size_t unsettled_ = 0; ///< bytes behind it
    bool hasPackages_ = false;  ///< in what is settled
    std::size_t count_ = 0;     ///< of the packages that have started
    std::map<std::size_t, PackageRecord> atWork_;
};

/// Keeps of the packages that are left only those that did not begin, each once, behind the others.
void putLeftLast(std::vector<PackageRecord>& packages);

/// The files of the runs in `folder`, the newest first.
[[nodiscard]] std::vector<std::string> recordedRuns(const std::string& folder);

/// Whether a process is still writing the file of a run.
[[nodiscard]] bool isUnderWay(const std::string& file);

/// Reads a run, its packages in the order of the file, those that are left last; none if the file
/// is no record of one. Of a file that was cut, the whole lines are kept. If the run is no longer
/// under way, a package that was at work counts as interrupted.
[[nodiscard]] std::optional<RecordedRun> readRun(const std::string& file);
