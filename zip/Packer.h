#pragma once

#include "base/Result.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace zip {

constexpr int defaultLevel = 5;

struct PackOptions {
    /// From quickestLevel to smallestLevel.
    int level = defaultLevel;
    /// At least 1. The archive is the same for any number.
    unsigned threads = 1;
    /// In seconds since 1970: stands in the archive instead of each entry's own time.
    std::optional<std::int64_t> fixedTime{};
    /// Reads the archive back and compares it with the package before it gets its name.
    bool verify = false;
    /// If set, told in a whole sentence what of the package the archive does not keep, once.
    std::function<void(const std::string& sentence)> notice{};
    /// If set, told now and then how many bytes of how many are done, by one thread at a time.
    std::function<void(std::uint64_t done, std::uint64_t total)> progress{};
};

/// Packs the folder `package` into the zip archive `output`, of which it is the root. An archive of
/// that name is replaced once the new one is whole; on failure it stays as it was.
[[nodiscard]] base::Outcome pack(const std::string& output, const std::string& package,
                                 const PackOptions& options);

} // namespace zip
