#pragma once

#include <cstdint>

namespace zip {

/// The CRC-32 of two pieces joined, from the CRC-32 of each and the length of the second in bytes.
[[nodiscard]] std::uint32_t crc32OfJoined(std::uint32_t first, std::uint32_t second,
                                          std::uint64_t secondLength);

} // namespace zip
