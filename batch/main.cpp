#include "base/ProgramStart.h"
#include "batch/Batch.h"
#include "core/Log.h"

#include <algorithm>
#include <iostream>

#include <unistd.h>

int main(int argc, char** argv) {
    base::startProgram();
    const auto parsed = parseOptions({argv + 1, argv + argc});
    if (const auto* error = std::get_if<UsageError>(&parsed)) {
        std::cerr << "kelpmoray-batch: " << error->sentence << "; see --help\n";
        return static_cast<int>(ExitStatus::NothingToDo);
    }
    const auto& options = std::get<Options>(parsed);
    Log::setStandardErrorEnabled(options.verbose);
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
