#pragma once

#include "base/Result.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

// The packer: makes a zip archive of a folder, on several threads and in bounded memory.
//
// pack() is the call to use; the rest of this folder serves it. PackageTree lists the package,
// JobCutter cuts it into jobs, JobRing hands them to the threads, JobEncoder compresses them,
// ArchiveWriter writes them in order, and Verifier reads the archive back. What an archive holds
// is in docs/archive-format.md.
//
// The library never follows a symbolic link, never packs a file that changes meanwhile, never
// touches an older archive before the new one is whole, and prints nothing.
namespace zip {

constexpr int defaultLevel = 5;

struct PackOptions {
    /// From quickestLevel to smallestLevel.
    int level = defaultLevel;
    /// At least 1. The archive is the same for any number.
    unsigned threads = 1;
    /// Seconds since 1970 that every entry gets instead of its own time.
    std::optional<std::int64_t> fixedTime{};
    /// Reads the archive back and compares it with the package before it appears.
    bool verify = false;
    /// If set, gets at most one sentence: what the package has that an archive does not keep.
    std::function<void(const std::string& sentence)> notice{};
    /// If set, called now and then with the bytes that are done, by one thread at a time.
    std::function<void(std::uint64_t done, std::uint64_t total)> progress{};
};

/// Packs the folder `package` into the zip archive `output`; the folder is the archive's root. An
/// older archive is replaced when the new one is whole; on failure it stays as it was. Any thread.
[[nodiscard]] base::Outcome pack(const std::string& output, const std::string& package,
                                 const PackOptions& options);

} // namespace zip
