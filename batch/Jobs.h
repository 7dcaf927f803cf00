#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

/// What decides how many packages at once pay off.
struct Machine {
    unsigned processors = 1;
    std::optional<std::uint64_t> freeMemory; ///< in bytes; none if the system does not tell

    [[nodiscard]] static Machine ofThisProcess();
};

/// A job for each processor; more if jobs wait for a time stamp server most of the time. Never more
/// than the free memory has room for, and at least one.
[[nodiscard]] unsigned jobsThatPayOff(const Machine& machine, bool waitForTimeStamps);

/// Calls `job` with the numbers from 0 to `count` in order, on `jobs` threads that have the stack
/// that runShellCommand() needs: the caller's and others. `slot`, below `jobs`, is different for
/// calls that overlap. When `goesOn` says no, the calls that have begun end, and no other begins.
/// With too little memory for so many threads, fewer do the work. Gives how many calls were made.
std::size_t runJobs(unsigned jobs, std::size_t count, const std::function<bool()>& goesOn,
                    const std::function<void(std::size_t number, unsigned slot)>& job);

/// Runs `work` on a thread with a stack that suits runShellCommand(), whatever limit the main
/// thread's stack has. False if there is no memory for it.
bool runWithEnoughStack(std::function<void()> work);
