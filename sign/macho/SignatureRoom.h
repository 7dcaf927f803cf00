#pragma once

#include "base/Result.h"
#include "sign/macho/CodeFile.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace sign {

/// How a slice is written anew: `head`, then the old bytes behind it up to `kept`, then zeros up to
/// `signatureOffset`, then room for the signature. Offsets count from the start of the slice.
struct SignatureRoom {
    base::OwnedBytes head; ///< header and load commands, in place of the old ones
    std::uint64_t kept = 0;
    std::uint64_t signatureOffset = 0; ///< what the code directory covers ends here
    std::uint64_t signatureSize = 0;

    [[nodiscard]] std::uint64_t size() const { return signatureOffset + signatureSize; }
};

/// Makes room for `signatureSize` bytes (a multiple of 16) in place of the old signature, or behind
/// the end of a slice that has none. The sentence tells why a slice has no room. Any thread.
[[nodiscard]] base::Result<SignatureRoom>
makeSignatureRoom(const MachSlice& slice, std::uint64_t signatureSize, std::string_view name);

/// The slice without its signature and load command. Any thread.
[[nodiscard]] base::Result<SignatureRoom> removeSignatureRoom(const MachSlice& slice,
                                                              std::string_view name);

/// Reads a range of the new slice below `signatureOffset` from the old file. Any thread.
[[nodiscard]] base::Outcome readWithRoom(const CodeFile& file, const MachSlice& slice,
                                         const SignatureRoom& room, std::uint8_t* to,
                                         FileRange range);

/// Where the slices of the new file lie: each at a multiple of 16 KiB, behind a table.
struct UniversalLayout {
    base::OwnedBytes table; ///< empty for a thin file
    std::vector<std::uint64_t> offsets;
    std::uint64_t size = 0;
};
/// Refused if the old file holds more than its slices.
[[nodiscard]] base::Result<UniversalLayout> layOut(const CodeFile& file,
                                                   const std::vector<SignatureRoom>& rooms);

} // namespace sign
