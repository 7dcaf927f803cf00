#include "core/RunRecord.h"

#include "base/ByteReader.h"
#include "base/Result.h"
#include "base/Sha256.h"
#include "base/Utf8.h"
#include "core/Description.h"
#include "core/Identities.h"
#include "core/Path.h"
#include "core/Text.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <utility>

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
std::string fileName(Clock::time_point start) {
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(start.time_since_epoch()).count() %
        1000;
    std::string fraction = std::to_string(milliseconds);
    fraction.insert(0, 3 - fraction.size(), '0');
    return timeText(start, "%Y-%m-%dT%H-%M-%S.") + fraction + "Z-" + std::to_string(getpid()) +
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
    while (from > 0 && from < text.size() && base::isContinuation(text[from]))
        ++from;
    return text.substr(from);
}

std::string shortened(const std::string& line) {
    BoundedText text(RunRecord::lineKept);
    text.append(line);
    return text.take();
}

/// The printed path has no control characters and is UTF-8; the file's need not.
std::string archiveOf(const std::string& package, const std::string& printed) {
    if (fileExists(printed))
        return printed;
    const std::string own = fs::path(package).replace_extension(".zip").string();
    return fileExists(own) ? own : shortened(printed);
}

/// What became of a package whose scripts have run.
void settle(PackageRecord& package) {
    const auto failed = std::ranges::find(package.steps, true, &StepRecord::failed);
    const bool hasFailed = failed != package.steps.end();
    package.state = !hasFailed && package.archive ? PackageState::Done : PackageState::Failed;
    const bool isSigned = std::ranges::any_of(package.steps, [](const StepRecord& step) {
        return step.lastLine.starts_with("signed: ");
    });
    if (isSigned && package.signedAs.empty())
        package.signedAs = "whom the script chose";
    if (!isSigned) {
        package.signedAs.clear();
        if (package.notSigned.empty())
            package.notSigned = hasFailed ? failed->lastLine : "no identity was picked";
    }
    if (auto& archive = package.archive) {
        std::error_code error;
        const std::uintmax_t size = fs::file_size(archive->path, error);
        archive->size = error ? 0 : size;
    }
}

} // namespace

std::string RunRecord::userFolder() {
    const char* state = std::getenv("XDG_STATE_HOME");
    if (state != nullptr && *state == '/')
        return appendingPathComponent(state, "kelpmoray/runs");
    const std::string home = homeFolder();
    return home.empty() ? "" : appendingPathComponent(home, ".local/state/kelpmoray/runs");
}

RunRecord::RunRecord(std::string folder, std::string version, std::string copied)
    : folder_(std::move(folder)), version_(std::move(version)), copied_(std::move(copied)) {}

void RunRecord::fail(const std::string& action, const std::string& path) {
    if (trouble_.empty())
        trouble_ = base::systemError(action, path, errno).sentence;
}

void RunRecord::create() {
    std::error_code error;
    fs::create_directories(folder_, error);
    if (error) {
        errno = error.value();
        return fail("create the folder for the records of runs", folder_);
    }
    const auto now = Clock::now();
    for (auto start = now; !descriptor_.open() && start < now + std::chrono::seconds(1);
         start += std::chrono::milliseconds(1)) { // the run before may have started just now
        file_ = appendingPathComponent(folder_, fileName(start));
        descriptor_ =
            base::FileDescriptor::openAt(AT_FDCWD, file_.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
        if (!descriptor_.open() && errno != EEXIST)
            break;
    }
    if (!descriptor_.open()) {
        fail("create the record of the run", file_);
        file_.clear();
        return;
    }
    flock(descriptor_.get(), LOCK_EX | LOCK_NB);
    base::Json::Object head = {{"format", std::int64_t{1}},
                               {"program", "kelpmoray " + version_},
                               {"started", timeText(now, isoTime)},
                               {"process", std::int64_t{getpid()}}};
    if (!copied_.empty())
        head.emplace_back("trouble", copied_);
    head_ = base::Json(head).text();
    head_.replace(head_.size() - 1, 1, ", \"packages\": [\n");
    removeOldRuns(folder_);
}

void RunRecord::writeRest(const std::string& settling, const std::string& end) {
    std::string text = std::exchange(head_, "");
    const char* separator = hasPackages_ ? ",\n" : "";
    const auto append = [&](const std::string& package) {
        text += std::exchange(separator, ",\n") + package;
    };
    for (const std::string& lines : {std::exchange(found_, ""), settling}) {
        hasPackages_ = hasPackages_ || !lines.empty();
        if (!lines.empty())
            append(lines);
    }
    const std::size_t settled = text.size();
    for (const auto& [number, package] : atWork_)
        append(jsonOf(package).text());
    text += "\n]" + end + "}\n";
    // Each write ends the document and covers what was longer before with blank lines, so one write
    // makes the document whole again.
    text.resize(std::max(text.size(), unsettled_), '\n');
    if (!descriptor_.open() || !trouble_.empty())
        return;
    if (!base::writeAt(descriptor_.get(), base::bytesOf(text), settled_))
        return fail("write the record of the run", file_);
    settled_ += settled;
    unsettled_ = text.size() - settled;
}

void RunRecord::packagesFound(const std::vector<std::string>& packages, const std::string& entry) {
    const std::lock_guard lock(mutex_);
    for (const std::string& path : packages) {
        const PackageRecord left{.path = path, .entry = entry, .state = PackageState::Left};
        found_ += (found_.empty() ? "" : ",\n") + jsonOf(left).text();
    }
}

std::size_t RunRecord::next() {
    if (count_ == 0 && !folder_.empty())
        create();
    return count_++;
}

std::size_t RunRecord::packageStarted(const std::string& path, const std::string& entry,
                                      const std::optional<std::string>& identity) {
    const std::lock_guard lock(mutex_);
    const std::size_t number = next();
    PackageRecord package{.path = path, .entry = entry};
    if (!identity || equalsIgnoringCase(*identity, doNotCodesignIdentity))
        package.notSigned = "signing is off";
    else
        package.signedAs = *identity;
    atWork_.emplace(number, std::move(package));
    writeRest();
    return number;
}

void RunRecord::scriptEnded(std::size_t package, const ScriptRun& run) {
    using Kind = ScriptOutcome::Kind;
    const ScriptOutcome outcome = outcomeOf(run);
    const bool failed = outcome.kind == Kind::Failed;
    StepRecord step{.script = run.scriptFileName,
                    .seconds = run.seconds,
                    .failed = failed,
                    .lastLine = shortened(failed ? outcome.detail : lastLineOf(run.output))};
    if (failed || hasNotes(run))
        step.output = endOf(run.output.value_or(""));
    const std::lock_guard lock(mutex_);
    PackageRecord& record = atWork_.at(package);
    record.steps.push_back(std::move(step));
    if (outcome.kind == Kind::Packed)
        record.archive = {.path = archiveOf(record.path, outcome.detail)};
    writeRest();
}

PackageRecord RunRecord::scriptsEnded(std::size_t package) {
    const std::lock_guard lock(mutex_);
    PackageRecord& record = atWork_.at(package);
    settle(record);
    writeRest();
    return record;
}

PackageRecord RunRecord::packageEnded(std::size_t package) {
    PackageRecord ended = this->package(package);
    settle(ended);
    if (ended.archive) {
        if (const auto digest = base::digestOfFile(ended.archive->path)) {
            ended.archive->size = digest->size;
            ended.archive->sha256 = digest->sha256;
        }
    }
    const std::lock_guard lock(mutex_);
    atWork_.erase(package);
    writeRest(jsonOf(ended).text());
    return ended;
}

void RunRecord::add(const PackageRecord& package) {
    const std::lock_guard lock(mutex_);
    (void)next();
    writeRest(jsonOf(package).text());
}

void RunRecord::finish() {
    {
        const std::lock_guard lock(mutex_);
        writeRest("", ", \"finished\": \"" + timeText(Clock::now(), isoTime) + "\"");
    }
    leave();
}

void RunRecord::leave() {
    const std::lock_guard lock(mutex_);
    if (descriptor_.open() && settled_ + unsettled_ == 0) { // as on a full disk
        unlink(file_.c_str());
        file_.clear();
    }
    descriptor_ = {};
}

std::string RunRecord::file() const {
    const std::lock_guard lock(mutex_);
    return file_;
}

PackageRecord RunRecord::package(std::size_t package) const {
    const std::lock_guard lock(mutex_);
    return atWork_.at(package);
}

std::string RunRecord::trouble() const {
    const std::lock_guard lock(mutex_);
    return trouble_;
}
