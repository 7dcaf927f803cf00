#include "batch/Batch.h"
#include "core/Log.h"
#include "core/platform/StandardStreams.h"

#include <algorithm>
#include <csignal>
#include <iostream>

#include <unistd.h>

int main(int argc, char** argv) {
    occupyStandardStreams();
    const auto parsed = parseOptions({argv + 1, argv + argc});
    if (const auto* error = std::get_if<UsageError>(&parsed)) {
        std::cerr << "kelpmoray-batch: " << error->sentence << "; see --help\n";
        return static_cast<int>(ExitStatus::NothingToDo);
    }
    const auto& options = std::get<Options>(parsed);
    Log::setStandardErrorEnabled(options.verbose);
    // Whoever reads the report may go away; the packages are still to be packed.
    std::signal(SIGPIPE, SIG_IGN);
    Batch batch({.bundle = MainBundle::ofThisProcess(),
                 .tools = {},
                 .in = std::cin,
                 .out = std::cout,
                 .err = std::cerr,
                 .outIsTerminal = isatty(STDOUT_FILENO) != 0},
                options);
    const ExitStatus status = batch.run();
    if (!std::cout.flush()) {
        std::cerr << "kelpmoray-batch: what became of the packages could not be written down\n";
        return static_cast<int>(std::max(status, ExitStatus::SomeFailed));
    }
    return static_cast<int>(status);
}
