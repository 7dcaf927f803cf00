#include "batch/Report.h"

#include "base/Printable.h"
#include "core/Path.h"
#include "core/ScriptOutcome.h"
#include "core/Text.h"

#include <ostream>

using base::Json;

namespace {

constexpr const char* red = "\033[1;31m";
constexpr const char* green = "\033[32m";

std::string counted(std::size_t count, const char* thing) {
    return std::to_string(count) + ' ' + thing + (count == 1 ? "" : "s");
}

/// What a script said before its last line.
std::string quotedOutput(const ScriptRun& run) {
    std::string output = run.output.value_or("");
    output.erase(output.find_last_not_of(" \n") + 1);
    std::vector<std::string_view> lines = split(output, "\n");
    lines.pop_back(); // tells the outcome, which is reported anyway
    std::string quoted;
    for (const std::string_view line : lines)
        quoted += "    " + base::printable(line) + '\n';
    return quoted;
}

/// What became of a package, in what its scripts said.
struct Ending {
    std::string archive;
    bool isSigned = false;
    std::string failure;
    std::string output; ///< of the scripts that failed or have something to tell, quoted
};

Ending endingOf(const std::vector<ScriptRun>& runs) {
    using Kind = ScriptOutcome::Kind;
    Ending ending;
    for (const ScriptRun& run : runs) {
        const ScriptOutcome outcome = outcomeOf(run);
        if (outcome.kind == Kind::Packed)
            ending.archive = outcome.detail;
        ending.isSigned = ending.isSigned || outcome.kind == Kind::Signed;
        if (outcome.kind == Kind::Failed)
            ending.failure += (ending.failure.empty() ? "" : "; ") + outcome.detail;
        if (outcome.kind == Kind::Failed || hasNotes(run))
            ending.output += quotedOutput(run);
    }
    return ending;
}

std::int64_t number(std::size_t count) {
    return static_cast<std::int64_t>(count);
}

} // namespace

Report::Report(std::ostream& out, Look look)
    : out_(out), look_(std::move(look)),
      progress_(out, mutex_, look_.isTerminal && look_.form == Form::Lines, look_.stops) {}

std::string Report::coloured(const char* colour, const std::string& text) const {
    return look_.hasColour ? colour + text + "\033[0m" : text;
}

void Report::print(const std::string& text, bool isFailure) {
    if (look_.form == Form::FailuresOnly && !isFailure)
        return;
    progress_.clear();
    out_ << text << std::flush;
    progress_.draw();
}

void Report::packagesFound(std::size_t count) {
    const std::lock_guard lock(mutex_);
    progress_.add(count);
}

std::string Report::packageStarted(const std::string& package, unsigned slot) {
    const std::lock_guard lock(mutex_);
    return progress_.start(slot, progressText(package));
}

void Report::packageEnded(const PackageRecord& package, const std::vector<ScriptRun>& runs,
                          unsigned slot) {
    const Ending ending = endingOf(runs);
    const bool isFailure = !ending.failure.empty();
    const std::lock_guard lock(mutex_);
    ++(isFailure ? tally_.failed : tally_.packed);
    progress_.end(slot);
    if (look_.form == Form::Json) {
        Json::Object line = {{"package", jsonOf(package)}};
        if (isFailure)
            line.emplace_back("error", ending.failure);
        print(Json(std::move(line)).text() + '\n', isFailure);
        return;
    }
    std::string line = base::printable(lastPathComponent(package.path)) + ": ";
    if (isFailure)
        line += coloured(red, "FAILED") + ": " + base::printable(ending.failure) +
                (ending.archive.empty() ? "" : "; ");
    if (!ending.archive.empty())
        line += "packed as " + base::printable(ending.archive) + " (" +
                (ending.isSigned ? coloured(green, "signed as " + base::printable(package.signedAs))
                                 : "not signed") +
                ')';
    print(ending.output + line + '\n', isFailure);
}

void Report::packageFailed(const PackageRecord& package) {
    const std::string& reason = package.notSigned;
    const std::lock_guard lock(mutex_);
    progress_.pass();
    ++tally_.failed;
    if (look_.form == Form::Json) {
        print(Json(Json::Object{{"package", jsonOf(package)}, {"error", reason}}).text() + '\n',
              true);
        return;
    }
    print(base::printable(lastPathComponent(package.path)) + ": " + coloured(red, "FAILED") + ": " +
              base::printable(reason) + '\n',
          true);
}

void Report::folderSkipped() {
    const std::lock_guard lock(mutex_);
    ++tally_.skipped;
}

void Report::pathRefused(const std::string& sentence) {
    const std::lock_guard lock(mutex_);
    refused_.emplace_back(sentence);
    if (look_.form != Form::Json)
        print(coloured(red, "FAILED") + ": " + base::printable(sentence) + '\n', true);
}

void Report::summarize(std::size_t left, bool stopped, const std::string& record) {
    const std::lock_guard lock(mutex_);
    tally_.left = left;
    const bool isFailure = tally_.failed > 0 || stopped || !refused_.empty();
    if (look_.form == Form::Json) {
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
        Json::Object summary = {{"done", number(tally_.packed)},
                                {"failed", number(tally_.failed)},
                                {"skipped", number(tally_.skipped)},
                                {"left", number(left)},
                                {"stopped", stopped},
                                {"refused", refused_},
                                {"seconds", seconds},
                                {"record", record}};
        print(Json(Json::Object{{"summary", std::move(summary)}}).text() + '\n', isFailure);
        return;
    }
    const std::string failed = std::to_string(tally_.failed) + " failed";
    print((stopped ? "Stopped: " : "") + counted(tally_.packed, "package") + " done, " +
              (tally_.failed > 0 ? coloured(red, failed) : failed) + ", " +
              counted(tally_.skipped, "folder") + " skipped, " + std::to_string(left) + " left" +
              (refused_.empty() ? "" : ", " + counted(refused_.size(), "PATH") + " refused") + '\n',
          isFailure);
}

Tally Report::tally() const {
    const std::lock_guard lock(mutex_);
    return tally_;
}
