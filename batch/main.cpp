#include "base/Printable.h"
#include "base/ProgramStart.h"
#include "batch/Batch.h"
#include "core/Log.h"

#include <algorithm>
#include <functional>
#include <iostream>

#include <pthread.h>
#include <unistd.h>

namespace {

/// Runs `work` on a thread with a stack that suits runShellCommand(), whatever limit the main
/// thread's stack has. False if there is no memory for it.
bool runWithEnoughStack(std::function<void()> work) {
    constexpr std::size_t stackSize = 4U << 20U;
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    pthread_attr_setstacksize(&attributes, stackSize);
    pthread_t thread{};
    const auto run = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    const bool started = pthread_create(&thread, &attributes, run, &work) == 0;
    pthread_attr_destroy(&attributes);
    return started && pthread_join(thread, nullptr) == 0;
}

ExitStatus runBatch(const Options& options) {
    const MainBundle bundle = MainBundle::ofThisProcess();
    Batch batch({.bundle = bundle,
                 .tools = ToolPaths::of(bundle),
                 .in = std::cin,
                 .out = std::cout,
                 .err = std::cerr,
                 .outIsTerminal = isatty(STDOUT_FILENO) != 0},
                options);
    const ExitStatus status = batch.run();
    if (std::cout.flush())
        return status;
    std::cerr << "kelpmoray-batch: what became of the packages could not be written down\n";
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
        std::cerr << "kelpmoray-batch: there is not enough memory to begin; end other programs and "
                     "try again\n";
    return static_cast<int>(status);
}
