#pragma once

#include "base/Result.h"
#include "sign/crypto/Digest.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sign {

/// Values of mach_header.filetype (Apple's loader.h) that mean something to a signature.
enum class MachType : std::uint32_t {
    Object = 1,
    Execute = 2,
    Preload = 5,
    Dylib = 6,
    Dylinker = 7,
    Bundle = 8,
    DebugSymbols = 10,
    KernelExtension = 11,
};

namespace platform {
constexpr std::uint32_t macos = 1;
constexpr std::uint32_t ios = 2;
constexpr std::uint32_t tvos = 3;
constexpr std::uint32_t watchos = 4;
} // namespace platform

/// The magic of a universal file (Apple's fat.h), and that of one with offsets of 64 bits.
constexpr std::uint32_t universalMagic = 0xCAFEBABE;
constexpr std::uint32_t universalMagic64 = 0xCAFEBABF;
/// A Java class file has the same magic and its version, 45 and more, in place of the count.
constexpr std::uint32_t mostSlices = 29;
constexpr std::size_t leastHeaderSize = 28; ///< that of 32 bits

/// Where something lies in a slice.
struct FileRange {
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
};

/// A segment, with the offset of its load command in `MachSlice::commands`.
struct MachSegment {
    std::size_t command = 0;
    std::uint64_t fileOffset = 0;
    std::uint64_t fileSize = 0;
};

/// A load command that names bytes of __LINKEDIT.
struct LinkEditData {
    std::size_t command = 0;
    std::uint32_t offset = 0;
    std::uint32_t size = 0;
};

/// The system for which a slice was linked; versions as X<<16|Y<<8|Z.
struct MachVersion {
    std::uint32_t platform = 0;
    std::uint32_t minimum = 0;
    std::uint32_t sdk = 0;
};

/// One architecture of a Mach-O file: its header and load commands (Apple's loader.h), read and
/// checked. All offsets but `offset` count from the start of the slice.
struct MachSlice {
    std::uint64_t offset = 0; ///< in the file
    std::uint64_t size = 0;
    bool is64 = false;
    bool isBigEndian = false;
    std::uint32_t cpuType = 0;
    std::uint32_t cpuSubtype = 0;    ///< without the bits for capabilities
    std::uint32_t listedSubtype = 0; ///< with them, as the table of a universal file has it
    std::uint32_t type = 0;          ///< a MachType, or another number
    std::uint32_t commandCount = 0;
    base::OwnedBytes commands; ///< header and load commands
    std::optional<MachSegment> text;
    std::optional<MachSegment> linkEdit;
    std::optional<LinkEditData> signature;
    std::optional<LinkEditData> strings; ///< of LC_SYMTAB
    std::optional<MachVersion> version;
    std::optional<std::array<std::uint8_t, 16>> uuid;
    std::optional<FileRange> infoPlist; ///< section __TEXT,__info_plist
    std::uint64_t commandsLimit = 0;    ///< where the content starts: commands end before it
    std::uint64_t structureEnd = 0;     ///< where __LINKEDIT or the strings end, if named first

    [[nodiscard]] std::size_t headerSize() const { return is64 ? 32 : leastHeaderSize; }
    [[nodiscard]] bool is(MachType wanted) const { return type == std::uint32_t(wanted); }
    /// Whether files of its type have signatures.
    [[nodiscard]] bool isSignable() const;
    /// "arm64", "x86_64" and so on; "(12:34)" for one without a name.
    [[nodiscard]] std::string architecture() const;
};

/// Whether the bytes start with one of the four magics of a slice. Any thread.
[[nodiscard]] bool startsLikeMachO(base::Bytes start);
/// Whether these first 28 bytes of a slice, or more, say that it is signable. Any thread.
[[nodiscard]] bool isSignableHeader(base::Bytes start);

/// `what` completes "The Mach-O file NAME is damaged: ...".
[[nodiscard]] base::Error damagedMachO(std::string_view name, const char* what);

/// What the first 32 bytes of a slice say of its load commands: how long both are together.
/// Unsupported if the bytes are no Mach-O. Sentences name `name`. Any thread.
[[nodiscard]] base::Result<std::size_t> commandsSizeOf(base::Bytes start, std::string_view name);

/// Reads a slice of `size` bytes at `offset` of its file from the bytes of header and commands.
/// Damaged if they contradict each other or reach past the slice. Any thread.
[[nodiscard]] base::Result<MachSlice> readMachSlice(base::OwnedBytes commands, std::uint64_t offset,
                                                    std::uint64_t size, std::string_view name);

/// A number of `slice.commands` in the order of bytes of the slice; the caller keeps to the bounds.
[[nodiscard]] std::uint32_t machNumber(const MachSlice& slice, std::size_t at);
void setMachNumber(base::OwnedBytes& bytes, std::size_t at, std::uint64_t value, bool isBigEndian,
                   std::size_t width);

} // namespace sign
