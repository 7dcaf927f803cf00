#include "core/ScriptOutcome.h"

#include "core/Text.h"

#include <algorithm>

ScriptOutcome outcomeOf(const ScriptRun& run) {
    using Kind = ScriptOutcome::Kind;
    constexpr std::pair<std::string_view, Kind> beginnings[] = {{"packed: ", Kind::Packed},
                                                                {"signed: ", Kind::Signed},
                                                                {"unsigned: ", Kind::Unsigned},
                                                                {"error: ", Kind::Failed}};
    const std::string output = run.output.value_or("");
    // Blanks in front stay: what a script quotes of a tool has some, and is no result.
    const std::string_view lastLine =
        split(std::string_view(output).substr(0, output.find_last_not_of(" \n") + 1), "\n").back();
    for (const auto& [beginning, kind] : beginnings) {
        if (lastLine.starts_with(beginning))
            return {kind, std::string(lastLine.substr(beginning.size()))};
    }
    return {Kind::Failed, run.scriptFileName + " ended without a result" +
                              (lastLine.empty() ? "" : ": " + std::string(trimmed(lastLine)))};
}

bool hasNotes(const ScriptRun& run) {
    const std::string output = run.output.value_or("");
    return std::ranges::any_of(split(output, "\n"), [](std::string_view line) {
        return line.starts_with("  ") && !line.ends_with(": replacing existing signature");
    });
}
