#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

/// Ends the program unless libarchive reads from the archive what is in the package: the same
/// entries with the same types, permissions, times, link targets and content.
void requireSame(const std::string& archive, const std::filesystem::path& package,
                 std::optional<std::int64_t> fixedTime);
