#include "core/RunRecord.h"

#include "base/ByteReader.h"
#include "base/Result.h"
#include "base/Sha256.h"
#include "core/Path.h"
#include "core/Text.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::system_clock;

constexpr const char* isoTime = "%Y-%m-%dT%H:%M:%SZ";

std::string timeText(Clock::time_point time, const char* format) {
    const std::time_t seconds = Clock::to_time_t(time);
    std::tm fields{};
    gmtime_r(&seconds, &fields);
    char text[64];
    return {text, std::strftime(text, sizeof text, format, &fields)};
}

/// Sorts by time; two processes never have the same.
std::string newFileName() {
    const auto now = Clock::now();
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() %
        1000;
    std::string fraction = std::to_string(milliseconds);
    fraction.insert(0, 3 - fraction.size(), '0');
    return timeText(now, "%Y-%m-%dT%H-%M-%S.") + fraction + "Z-" + std::to_string(getpid()) +
           ".json";
}

void removeOldRuns(const std::string& folder) {
    const std::vector<std::string> runs = recordedRuns(folder);
    for (std::size_t index = RunRecord::filesKept; index < runs.size(); ++index) {
        if (!isUnderWay(runs[index]))
            unlink(runs[index].c_str());
    }
}

std::string lastLineOf(const std::optional<std::string>& output) {
    return std::string(split(trimmed(output.value_or("")), "\n").back());
}

std::string endOf(const std::string& text) {
    std::size_t from = text.size() - std::min(text.size(), RunRecord::outputKept);
    while (from > 0 && from < text.size() &&
           (static_cast<unsigned char>(text[from]) & 0xC0U) == 0x80U)
        ++from; // not within a character
    return text.substr(from);
}

} // namespace

std::string RunRecord::userFolder() {
    const char* state = std::getenv("XDG_STATE_HOME");
    if (state != nullptr && *state == '/')
        return appendingPathComponent(state, "kelpmoray/runs");
    const std::string home = homeFolder();
    return home.empty() ? "" : appendingPathComponent(home, ".local/state/kelpmoray/runs");
}

RunRecord::RunRecord(std::string folder, std::string version)
    : folder_(std::move(folder)), version_(std::move(version)) {}

void RunRecord::fail(const std::string& action, const std::string& path) {
    if (trouble_.empty())
        trouble_ = base::systemError(action, path, errno).sentence;
}

void RunRecord::create() {
    std::error_code error;
    fs::create_directories(folder_, error);
    file_ = appendingPathComponent(folder_, newFileName());
    descriptor_ =
        base::FileDescriptor::openAt(AT_FDCWD, file_.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    if (!descriptor_.open()) {
        fail("create the record of the run", file_);
        file_.clear();
        return;
    }
    flock(descriptor_.get(), LOCK_EX | LOCK_NB);
    const Json::Object head = {{"format", std::int64_t{1}},
                               {"program", "kelpmoray " + version_},
                               {"started", timeText(Clock::now(), isoTime)},
                               {"process", std::int64_t{getpid()}}};
    std::string text = Json(head).text();
    text.replace(text.size() - 1, 1, ", \"packages\": [\n");
    if (!base::writeAt(descriptor_.get(), base::bytesOf(text), 0))
        fail("write the record of the run", file_);
    settled_ = text.size();
    removeOldRuns(folder_);
}

void RunRecord::writeLast() {
    const std::string package = jsonOf(packages_.back()).text();
    write(package + "\n]}\n");
    if (packages_.back().state != PackageState::Running)
        settled_ += package.size();
}

void RunRecord::write(const std::string& end) {
    if (!descriptor_.open() || !trouble_.empty())
        return;
    // What ends the document goes along each time, so that the file is whole at any moment.
    if (!base::writeAt(descriptor_.get(), base::bytesOf(end), settled_) ||
        ftruncate(descriptor_.get(), static_cast<off_t>(settled_ + end.size())) != 0)
        fail("write the record of the run", file_);
}

void RunRecord::packageStarted(const std::string& path, const std::string& entry,
                               const std::optional<std::string>& identity) {
    const std::lock_guard lock(mutex_);
    if (packages_.empty() && !folder_.empty())
        create();
    PackageRecord package{.path = path, .entry = entry};
    if (!identity)
        package.notSigned = "signing is off";
    else
        package.signedAs = *identity;
    packages_.push_back(std::move(package));
    if (packages_.size() > 1) {
        const std::string first = jsonOf(packages_.back()).text();
        write(",\n" + first + "\n]}\n");
        settled_ += 2;
        return;
    }
    writeLast();
}

void RunRecord::scriptEnded(const ScriptRun& run) {
    using Kind = ScriptOutcome::Kind;
    const std::lock_guard lock(mutex_);
    if (packages_.empty())
        return;
    PackageRecord& package = packages_.back();
    const ScriptOutcome outcome = outcomeOf(run);
    const bool failed = outcome.kind == Kind::Failed;
    StepRecord step{.script = run.scriptFileName,
                    .seconds = run.seconds,
                    .failed = failed,
                    .lastLine = failed ? outcome.detail : lastLineOf(run.output)};
    if (failed)
        step.output = endOf(run.output.value_or(""));
    package.steps.push_back(std::move(step));
    if (outcome.kind == Kind::Packed)
        package.archive = {.path = outcome.detail};
    writeLast();
}

PackageRecord RunRecord::packageEnded() {
    const std::lock_guard lock(mutex_);
    if (packages_.empty())
        return {};
    PackageRecord& package = packages_.back();
    const auto failed = std::ranges::find(package.steps, true, &StepRecord::failed);
    package.state = failed == package.steps.end() && package.archive ? PackageState::Done
                                                                     : PackageState::Failed;
    const bool isSigned = std::ranges::any_of(package.steps, [](const StepRecord& step) {
        return step.lastLine.starts_with("signed: ");
    });
    if (isSigned && package.signedAs.empty())
        package.signedAs = "whom the script chose";
    if (!isSigned) {
        package.signedAs.clear();
        if (package.notSigned.empty())
            package.notSigned =
                failed != package.steps.end() ? failed->lastLine : "no identity was picked";
    }
    if (package.archive) {
        if (const auto digest = base::digestOfFile(package.archive->path)) {
            package.archive->size = digest->size;
            package.archive->sha256 = digest->sha256;
        }
    }
    writeLast();
    return package;
}

void RunRecord::finish() {
    const std::lock_guard lock(mutex_);
    write("\n], \"finished\": \"" + timeText(Clock::now(), isoTime) + "\"}\n");
    descriptor_ = {};
}

std::string RunRecord::file() const {
    const std::lock_guard lock(mutex_);
    return file_;
}

std::vector<PackageRecord> RunRecord::packages() const {
    const std::lock_guard lock(mutex_);
    return packages_;
}

PackageRecord RunRecord::lastPackage() const {
    const std::lock_guard lock(mutex_);
    return packages_.empty() ? PackageRecord{} : packages_.back();
}

std::string RunRecord::trouble() const {
    const std::lock_guard lock(mutex_);
    return trouble_;
}
