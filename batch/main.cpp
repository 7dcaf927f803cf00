#include "base/Printable.h"
#include "base/ProgramStart.h"
#include "batch/Batch.h"
#include "batch/Interruption.h"
#include "batch/Jobs.h"
#include "core/Log.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <string_view>

#include <unistd.h>

namespace {

/// https://no-color.org: any text forbids it.
bool wantsColour() {
    const char* forbidden = std::getenv("NO_COLOR");
    const char* terminal = std::getenv("TERM");
    return isatty(STDOUT_FILENO) != 0 && (forbidden == nullptr || *forbidden == '\0') &&
           terminal != nullptr && std::string_view(terminal) != "dumb";
}

ExitStatus runBatch(const Options& options) {
    const MainBundle bundle = MainBundle::ofThisProcess();
    Batch batch({.bundle = bundle,
                 .tools = ToolPaths::of(bundle),
                 .in = std::cin,
                 .out = std::cout,
                 .err = std::cerr,
                 .outIsTerminal = isatty(STDOUT_FILENO) != 0,
                 .hasColour = wantsColour(),
                 .recordFolder = RunRecord::userFolder(),
                 .interrupted = Interruption::came},
                options);
    Interruption::watch();
    const ExitStatus status = batch.run();
    if (std::cout.flush())
        return status;
    std::cerr << "kelpmoray-batch: What became of the packages could not be written down.\n";
    return std::max(status, ExitStatus::SomeFailed);
}

} // namespace

int main(int argc, char** argv) {
    base::startProgram();
    const auto parsed = parseOptions({argv + 1, argv + argc});
    if (!parsed) {
        std::cerr << "kelpmoray-batch: " << base::printable(parsed.error().sentence) << '\n';
        return static_cast<int>(ExitStatus::NothingToDo);
    }
    Log::setStandardErrorEnabled(parsed->verbose);
    ExitStatus status = ExitStatus::SomeFailed;
    if (!runWithEnoughStack([&] { status = runBatch(*parsed); }))
        std::cerr << "kelpmoray-batch: There is not enough memory to begin. End other programs and "
                     "try again.\n";
    return static_cast<int>(status);
}
