#include "core/RunSummary.h"

#include "core/Path.h"
#include "core/Text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <unordered_set>

namespace {

constexpr const char* linesAbove = "see the lines above"; // of the script's output

/// Ends in a full stop and begins with a capital, if it begins with a word and no program's name.
std::string sentence(std::string text) {
    if (text.empty())
        return text;
    const bool isWord = text.substr(0, text.find(' ')).find_first_of("-.") == std::string::npos;
    if (isWord && text.front() >= 'a' && text.front() <= 'z')
        text.front() = static_cast<char>(text.front() - 'a' + 'A');
    if (text.find_last_of(".!?") != text.size() - 1)
        text += '.';
    return text;
}

/// What the tool that the script ran said last: scripts quote it, with blanks in front.
std::string lastQuoted(const std::string& output) {
    std::string quoted;
    for (const std::string_view line : split(output, "\n")) {
        if (line.starts_with("  "))
            quoted = trimmed(line);
    }
    return quoted;
}

/// The text with names in place of the paths in the package's folder: long paths would hide the
/// rest.
std::string withNames(const std::string& package, std::string text) {
    const std::string folder = deletingLastPathComponent(package) + '/';
    constexpr std::string_view before = " \n'\"(=:,;"; // a path begins behind them
    for (std::size_t at = 0; (at = text.find(folder, at)) != text.npos;) {
        if (at == 0 || before.find(text[at - 1]) != before.npos)
            text.erase(at, folder.size());
        else
            ++at;
    }
    return text;
}

std::string counted(std::size_t count, const char* one, const char* many) {
    return std::to_string(count) + ' ' + (count == 1 ? one : many);
}

const StepRecord* failedStep(const PackageRecord& package) {
    const auto found = std::ranges::find(package.steps, true, &StepRecord::failed);
    return found == package.steps.end() ? nullptr : &*found;
}

} // namespace

bool hasFailed(const PackageRecord& package) {
    return package.state == PackageState::Failed || package.state == PackageState::Interrupted;
}

std::vector<std::string> packagesToRetry(const RecordedRun& run) {
    std::vector<std::string> paths;
    std::unordered_set<std::string> taken;
    for (const PackageRecord& package : run.packages) {
        const bool isLeft = package.state == PackageState::Left && !run.underWay;
        if ((hasFailed(package) || isLeft) && taken.insert(package.path).second)
            paths.push_back(package.path);
    }
    return paths;
}

std::optional<Failure> failureOf(const PackageRecord& package) {
    if (!hasFailed(package))
        return std::nullopt;
    const StepRecord* step = failedStep(package);
    if (step == nullptr && package.state == PackageState::Interrupted)
        return Failure{"The run ended before this package was done.",
                       "Process it again; nothing of it was lost."};
    // What failed may hold a path with a colon or a full stop; the remedy never does.
    const std::string said =
        withNames(package.path, step == nullptr ? package.notSigned : step->lastLine);
    const std::size_t at = said.rfind(step == nullptr ? ". " : ": ");
    if (at == std::string::npos || (step != nullptr && said.starts_with(step->script + " ended ")))
        return Failure{sentence(said), step == nullptr
                                           ? "Mend it and try again."
                                           : "See the full output, mend it and try again."};
    const std::string quoted =
        step == nullptr ? "" : withNames(package.path, lastQuoted(step->output));
    const std::string remedy = said.substr(at + 2);
    return Failure{sentence(said.substr(0, at)), remedy == linesAbove && !quoted.empty()
                                                     ? sentence("it said: " + quoted)
                                                     : sentence(remedy)};
}

std::string stateWord(const PackageRecord& package) {
    switch (package.state) {
    case PackageState::Running:
        return "Working";
    case PackageState::Done:
        return "Done";
    case PackageState::Interrupted:
        return "Interrupted";
    case PackageState::Left:
        return "Not begun";
    case PackageState::Failed:
        break;
    }
    return package.archive ? "Not signed" : "Not packed";
}

std::string signatureText(const PackageRecord& package) {
    if (package.state == PackageState::Left)
        return "Nothing was done with it";
    if (!package.signedAs.empty())
        return (package.state == PackageState::Running ? "To be signed as " : "Signed as ") +
               package.signedAs;
    if (package.state == PackageState::Running && package.notSigned.empty())
        return "To be signed";
    if (package.state == PackageState::Failed && package.archive)
        return "NOT signed, though it was to be";
    return package.notSigned.empty() ? "Not signed" : "Not signed: " + package.notSigned;
}

std::string sizeText(std::uint64_t bytes) {
    if (bytes < 1000)
        return counted(bytes, "byte", "bytes");
    constexpr std::array units = {"kB", "MB", "GB", "TB"};
    double size = static_cast<double>(bytes) / 1000;
    std::size_t unit = 0;
    for (; size >= 999.5 && unit + 1 < units.size(); ++unit)
        size /= 1000;
    const auto tenths = std::lround(size * 10);
    std::string text = std::to_string(tenths / 10);
    if (tenths < 1000)
        text += '.' + std::to_string(tenths % 10);
    return text + ' ' + units.at(unit);
}

std::string timeText(double seconds) {
    const long whole = std::max(0L, static_cast<long>(seconds));
    const auto two = [](long number) { return (number < 10 ? "0" : "") + std::to_string(number); };
    const long minutes = whole / 60;
    if (minutes < 60)
        return std::to_string(minutes) + ':' + two(whole % 60);
    return std::to_string(minutes / 60) + ':' + two(minutes % 60) + ':' + two(whole % 60);
}

double secondsOf(const PackageRecord& package) {
    double sum = 0;
    for (const StepRecord& step : package.steps)
        sum += step.seconds;
    return sum;
}

std::string messageOf(const PackageRecord& package) {
    std::string text = package.path + "\n" + stateWord(package) + "\n";
    if (const auto failure = failureOf(package))
        text += failure->error + "\n" + failure->remedy + "\n";
    text += signatureText(package) + "\n";
    if (const auto& archive = package.archive) {
        text += archive->path + ", " + sizeText(archive->size) + "\n";
        if (!archive->sha256.empty())
            text += "SHA-256 " + archive->sha256 + "\n";
    }
    return text;
}

RunTally tallyOf(const std::vector<PackageRecord>& packages) {
    RunTally tally{.packages = packages.size()};
    for (const PackageRecord& package : packages) {
        if (package.archive)
            ++tally.packed;
        else if (package.state != PackageState::Running && package.state != PackageState::Left)
            ++tally.notPacked;
        const bool signingFailed =
            std::ranges::any_of(package.steps, [&package](const StepRecord& step) {
                return step.failed && (package.archive || &step != &package.steps.back());
            });
        if (signingFailed)
            ++tally.notSigned;
    }
    return tally;
}

std::string summaryOf(const std::vector<PackageRecord>& packages) {
    const RunTally tally = tallyOf(packages);
    const auto failed = static_cast<std::size_t>(std::ranges::count_if(packages, hasFailed));
    const auto countOf = [&packages](PackageState state) {
        return static_cast<std::size_t>(std::ranges::count(packages, state, &PackageRecord::state));
    };
    const std::size_t left = countOf(PackageState::Left);
    const std::size_t done = tally.packages - failed - left - countOf(PackageState::Running);
    std::string text =
        counted(tally.packages, "package", "packages") + ": " + std::to_string(done) + " done";
    if (failed > 0)
        text += ", " + std::to_string(failed) + " failed";
    if (left > 0)
        text += ", " + std::to_string(left) + " left";
    return text + ".";
}
