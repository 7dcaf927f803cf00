#include "base/ByteReader.h"
#include "core/Path.h"
#include "core/RunRecord.h"
#include "core/Text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <span>
#include <unordered_set>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

using base::Json;

namespace {

namespace fs = std::filesystem;

constexpr std::array stateNames = {"running", "done", "failed", "interrupted", "left"};

Json jsonOf(const StepRecord& step) {
    Json::Object object = {{"script", step.script},
                           {"seconds", step.seconds},
                           {"failed", step.failed},
                           {"lastLine", step.lastLine}};
    if (!step.output.empty())
        object.emplace_back("output", step.output);
    return object;
}

StepRecord stepOf(const Json& json) {
    return {.script = json["script"].string(),
            .seconds = json["seconds"].number(),
            .failed = json["failed"] == Json(true),
            .lastLine = json["lastLine"].string(),
            .output = json["output"].string()};
}

/// Does not wait for a writer, should something else than a file be there.
base::FileDescriptor openRecord(const std::string& file) {
    return base::FileDescriptor::openAt(AT_FDCWD, file.c_str(), O_RDONLY | O_NONBLOCK);
}

/// As far as it can be read.
std::string contentOf(const std::string& file) {
    const auto opened = openRecord(file);
    struct stat status {};
    if (!opened.open() || fstat(opened.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return "";
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(status.st_size));
    bytes.resize(base::readAt(opened.get(), bytes.data(), bytes.size(), 0).value_or(0));
    return std::string(base::textOf(bytes));
}

/// The lines are a head, one for each package, and an end.
RecordedRun runIn(const std::string& text) {
    RecordedRun run;
    const std::vector<std::string_view> lines = split(text, "\n");
    constexpr std::string_view opening = ", \"packages\": [";
    std::string_view first = lines.front();
    if (!first.ends_with(opening))
        return run;
    first.remove_suffix(opening.size());
    const auto head = Json::parse(std::string(first) + "}");
    if (!head || (*head)["format"].integer() != 1)
        return run;
    run.started = (*head)["started"].string();
    run.version = (*head)["program"].string();
    run.trouble = (*head)["trouble"].string();
    for (std::string_view line : std::span(lines).subspan(1)) {
        if (line.starts_with("]")) {
            run.finished = line.find("\"finished\"") != line.npos;
            break;
        }
        if (line.ends_with(','))
            line.remove_suffix(1);
        const auto package = Json::parse(line);
        if (!package)
            break;
        run.packages.push_back(packageOf(*package));
    }
    return run;
}

} // namespace

Json jsonOf(const PackageRecord& package) {
    Json::Object object = {{"path", package.path},
                           {"entry", package.entry},
                           {"state", stateNames.at(static_cast<std::size_t>(package.state))}};
    if (!package.signedAs.empty())
        object.emplace_back("signedAs", package.signedAs);
    if (!package.notSigned.empty())
        object.emplace_back("notSigned", package.notSigned);
    if (const auto& archive = package.archive)
        object.emplace_back("archive",
                            Json::Object{{"path", archive->path},
                                         {"size", static_cast<std::int64_t>(archive->size)},
                                         {"sha256", archive->sha256}});
    Json::Array steps;
    for (const StepRecord& step : package.steps)
        steps.push_back(jsonOf(step));
    object.emplace_back("steps", std::move(steps));
    return object;
}

PackageRecord packageOf(const Json& json) {
    PackageRecord package{.path = json["path"].string(),
                          .entry = json["entry"].string(),
                          .signedAs = json["signedAs"].string(),
                          .notSigned = json["notSigned"].string()};
    const auto name = std::ranges::find(stateNames, json["state"].string());
    if (name != stateNames.end())
        package.state = static_cast<PackageState>(name - stateNames.begin());
    if (const Json& archive = json["archive"]; archive.isObject())
        package.archive = {.path = archive["path"].string(),
                           .size = static_cast<std::uint64_t>(archive["size"].integer()),
                           .sha256 = archive["sha256"].string()};
    for (const Json& step : json["steps"].array())
        package.steps.push_back(stepOf(step));
    return package;
}

void putLeftLast(std::vector<PackageRecord>& packages) {
    const auto isLeft = [](const PackageRecord& package) {
        return package.state == PackageState::Left;
    };
    std::unordered_set<std::string> others;
    for (const PackageRecord& package : packages) {
        if (!isLeft(package))
            others.insert(package.path);
    }
    std::erase_if(packages, [&](const PackageRecord& package) {
        return isLeft(package) && !others.insert(package.path).second;
    });
    std::stable_partition(packages.begin(), packages.end(), std::not_fn(isLeft));
}

std::vector<std::string> recordedRuns(const std::string& folder) {
    std::vector<std::string> files;
    std::error_code error;
    for (fs::directory_iterator file(folder, error), end; !error && file != end;
         file.increment(error)) {
        const std::string name = file->path().filename().string();
        if (name.front() >= '0' && name.front() <= '9' && name.ends_with(".json") &&
            file->is_regular_file(error))
            files.push_back(appendingPathComponent(folder, name));
    }
    std::ranges::sort(files, std::greater());
    return files;
}

bool isUnderWay(const std::string& file) {
    const auto opened = openRecord(file);
    return opened.open() && flock(opened.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

std::optional<RecordedRun> readRun(const std::string& file) {
    RecordedRun run = runIn(contentOf(file));
    if (run.started.empty())
        return std::nullopt;
    run.file = file;
    run.underWay = isUnderWay(file);
    for (PackageRecord& package : run.packages) {
        if (package.state == PackageState::Running && !run.underWay)
            package.state = PackageState::Interrupted;
    }
    putLeftLast(run.packages); // each stands among those found first
    return run;
}
