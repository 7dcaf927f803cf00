#include "sign/macho/MachFile.h"

#include <algorithm>

namespace sign {
namespace {

constexpr std::uint32_t magic32 = 0xFEEDFACE;
constexpr std::uint32_t magic64 = 0xFEEDFACF;

constexpr std::uint32_t commandSegment = 0x1;
constexpr std::uint32_t commandSymbols = 0x2;
constexpr std::uint32_t commandSegment64 = 0x19;
constexpr std::uint32_t commandUuid = 0x1B;
constexpr std::uint32_t commandSignature = 0x1D;
constexpr std::uint32_t commandBuildVersion = 0x32;

std::uint64_t numberAt(base::Bytes bytes, std::size_t at, std::size_t width, bool isBigEndian) {
    std::uint64_t value = 0;
    for (std::size_t index = 0; index < width; ++index)
        value = value << 8U | bytes[at + (isBigEndian ? index : width - 1 - index)];
    return value;
}

/// Walks over the load commands of a slice.
class CommandReader {
public:
    CommandReader(MachSlice& slice, std::string_view name) : slice_(slice), name_(name) {}

    base::Outcome read() {
        std::size_t at = slice_.headerSize();
        const std::size_t end = slice_.commands.size();
        for (std::uint32_t index = 0; index < slice_.commandCount; ++index) {
            if (end - at < 8)
                return damagedMachO(name_, "it has fewer load commands than it says");
            const std::size_t size = word(at + 4);
            if (size < 8 || size > end - at)
                return damagedMachO(name_, "a load command has a wrong size");
            if (auto taken = take(word(at), at, size); !taken)
                return taken;
            at += size;
        }
        if (at != end)
            return damagedMachO(name_, "the size of its load commands is wrong");
        return {};
    }

private:
    [[nodiscard]] std::uint32_t word(std::size_t at) const {
        return static_cast<std::uint32_t>(numberAt(slice_.commands, at, 4, slice_.isBigEndian));
    }
    [[nodiscard]] std::uint64_t wide(std::size_t at, bool is64) const {
        return numberAt(slice_.commands, at, is64 ? 8 : 4, slice_.isBigEndian);
    }
    [[nodiscard]] std::string_view text(std::size_t at) const {
        const std::string_view field(reinterpret_cast<const char*>(slice_.commands.data()) + at,
                                     16);
        return field.substr(0, field.find('\0'));
    }

    base::Outcome take(std::uint32_t command, std::size_t at, std::size_t size) {
        switch (command) {
        case commandSegment:
        case commandSegment64:
            return takeSegment(at, size, command == commandSegment64);
        case commandSymbols:
            return size < 24 ? tooShort() : takeStrings(at);
        case commandSignature:
            return takeSignature(at, size);
        case commandUuid:
            if (size < 24)
                return tooShort();
            std::copy_n(&slice_.commands[at + 8], 16, slice_.uuid.emplace().begin());
            return {};
        case commandBuildVersion:
            if (size < 20)
                return tooShort();
            slice_.version = {word(at + 8), word(at + 12), word(at + 16)};
            return {};
        default:
            return takeOldVersion(command, at, size);
        }
    }

    [[nodiscard]] base::Error tooShort() const {
        return damagedMachO(name_, "a load command is too short");
    }

    base::Outcome takeOldVersion(std::uint32_t command, std::size_t at, std::size_t size) {
        constexpr std::array<std::pair<std::uint32_t, std::uint32_t>, 4> platforms{
            {{0x24, platform::macos},
             {0x25, platform::ios},
             {0x2F, platform::tvos},
             {0x30, platform::watchos}}};
        const auto* found =
            std::ranges::find(platforms, command, &std::pair<std::uint32_t, std::uint32_t>::first);
        if (found == platforms.end() || slice_.version)
            return {};
        if (size < 16)
            return tooShort();
        slice_.version = {found->second, word(at + 8), word(at + 12)};
        return {};
    }

    base::Outcome takeStrings(std::size_t at) {
        slice_.strings = {at, word(at + 16), word(at + 20)};
        if (slice_.structureEnd == 0)
            slice_.structureEnd = std::uint64_t{word(at + 16)} + word(at + 20);
        return {};
    }

    base::Outcome takeSignature(std::size_t at, std::size_t size) {
        if (size != 16)
            return damagedMachO(name_, "the load command of its signature has a wrong size");
        if (slice_.signature)
            return damagedMachO(name_, "it has two signatures");
        slice_.signature = {at, word(at + 8), word(at + 12)};
        if (std::uint64_t{slice_.signature->offset} + slice_.signature->size > slice_.size)
            return damagedMachO(name_, "its signature reaches past the end");
        return {};
    }

    base::Outcome takeSegment(std::size_t at, std::size_t size, bool is64) {
        const std::size_t sectionsAt = is64 ? 72 : 56;
        const std::size_t sectionSize = is64 ? 80 : 68;
        if (size < sectionsAt)
            return tooShort();
        const MachSegment segment{at, wide(at + (is64 ? 40 : 32), is64),
                                  wide(at + (is64 ? 48 : 36), is64)};
        if (segment.fileSize > slice_.size || segment.fileOffset > slice_.size - segment.fileSize)
            return damagedMachO(name_, "a segment reaches past the end");
        if (segment.fileOffset > 0 && segment.fileSize > 0)
            slice_.commandsLimit = std::min(slice_.commandsLimit, segment.fileOffset);
        const std::string_view segmentName = text(at + 8);
        if (segmentName == "__TEXT" && !slice_.text)
            slice_.text = segment;
        if (segmentName == "__LINKEDIT" && !slice_.linkEdit) {
            slice_.linkEdit = segment;
            if (slice_.structureEnd == 0)
                slice_.structureEnd = segment.fileOffset + segment.fileSize;
        }
        const std::uint32_t count = word(at + (is64 ? 64 : 48));
        if (count > (size - sectionsAt) / sectionSize)
            return damagedMachO(name_, "a segment has fewer sections than it says");
        for (std::uint32_t index = 0; index < count; ++index)
            if (auto taken = takeSection(segment, at + sectionsAt + index * sectionSize, is64);
                !taken)
                return taken;
        return {};
    }

    base::Outcome takeSection(const MachSegment& segment, std::size_t at, bool is64) {
        const std::uint64_t size = wide(at + (is64 ? 40 : 36), is64);
        const std::uint32_t offset = word(at + (is64 ? 48 : 40));
        // Sections of zeros take no room in the file and have no offset.
        if (segment.fileOffset == 0 && segment.fileSize > 0 && offset > 0)
            slice_.commandsLimit = std::min<std::uint64_t>(slice_.commandsLimit, offset);
        if (text(at) != "__info_plist" || text(at + 16) != "__TEXT" || slice_.infoPlist)
            return {};
        if (size > slice_.size || offset > slice_.size - size)
            return damagedMachO(name_, "its embedded Info.plist reaches past the end");
        slice_.infoPlist = FileRange{offset, size};
        return {};
    }

    MachSlice& slice_;
    std::string_view name_;
};

struct ArchitectureName {
    std::uint32_t type;
    std::uint32_t subtype;
    const char* name;
};

constexpr std::array architectures{
    ArchitectureName{7, 3, "i386"},
    ArchitectureName{0x1000007, 3, "x86_64"},
    ArchitectureName{0x1000007, 8, "x86_64h"},
    ArchitectureName{12, 6, "armv6"},
    ArchitectureName{12, 9, "armv7"},
    ArchitectureName{12, 11, "armv7s"},
    ArchitectureName{12, 12, "armv7k"},
    ArchitectureName{0x100000C, 0, "arm64"},
    ArchitectureName{0x100000C, 1, "arm64v8"},
    ArchitectureName{0x100000C, 2, "arm64e"},
    ArchitectureName{0x200000C, 1, "arm64_32"},
    ArchitectureName{18, 0, "ppc"},
    ArchitectureName{18, 100, "ppc970"},
    ArchitectureName{0x1000012, 0, "ppc64"},
};

/// Which of the four magics `start` has; absent if it has none.
struct Magic {
    bool is64 = false;
    bool isBigEndian = false;
};

std::optional<Magic> magicOf(base::Bytes start) {
    for (const bool isBigEndian : {false, true}) {
        const std::uint64_t magic = start.size() < 4 ? 0 : numberAt(start, 0, 4, isBigEndian);
        if (magic == magic32 || magic == magic64)
            return Magic{magic == magic64, isBigEndian};
    }
    return std::nullopt;
}

} // namespace

base::Error damagedMachO(std::string_view name, const char* what) {
    return {base::ErrorKind::Damaged, "The Mach-O file " + std::string(name) + " is damaged: " +
                                          what + ". Build it anew or get another copy."};
}

bool startsLikeMachO(base::Bytes start) {
    return magicOf(start).has_value();
}

bool isSignableHeader(base::Bytes start) {
    const auto magic = magicOf(start);
    if (!magic || start.size() < leastHeaderSize)
        return false;
    MachSlice slice;
    slice.type = static_cast<std::uint32_t>(numberAt(start, 12, 4, magic->isBigEndian));
    return slice.isSignable();
}

bool MachSlice::isSignable() const {
    return is(MachType::Execute) || is(MachType::Dylib) || is(MachType::Dylinker) ||
           is(MachType::Bundle) || is(MachType::KernelExtension);
}

std::string MachSlice::architecture() const {
    for (const ArchitectureName& one : architectures)
        if (one.type == cpuType && one.subtype == cpuSubtype)
            return one.name;
    return '(' + std::to_string(cpuType) + ':' + std::to_string(cpuSubtype) + ')';
}

base::Result<std::size_t> commandsSizeOf(base::Bytes start, std::string_view name) {
    const auto magic = magicOf(start);
    const std::size_t headerSize = magic && magic->is64 ? 32 : leastHeaderSize;
    if (!magic || start.size() < headerSize)
        return base::Error{base::ErrorKind::Unsupported,
                           std::string(name) + " is not a Mach-O file. Check the path."};
    return headerSize + static_cast<std::size_t>(numberAt(start, 20, 4, magic->isBigEndian));
}

base::Result<MachSlice> readMachSlice(base::OwnedBytes commands, std::uint64_t offset,
                                      std::uint64_t size, std::string_view name) {
    auto whole = commandsSizeOf(commands, name);
    if (!whole)
        return whole.error();
    if (*whole > size || *whole != commands.size())
        return damagedMachO(name, "its load commands reach past the end");
    const auto magic = magicOf(commands);
    MachSlice slice;
    slice.offset = offset;
    slice.size = size;
    slice.is64 = magic->is64;
    slice.isBigEndian = magic->isBigEndian;
    slice.commands = std::move(commands);
    slice.cpuType = machNumber(slice, 4);
    slice.cpuSubtype = machNumber(slice, 8) & 0xFFFFFFU;
    slice.type = machNumber(slice, 12);
    slice.commandCount = machNumber(slice, 16);
    slice.commandsLimit = size;
    if (auto read = CommandReader(slice, name).read(); !read)
        return read.error();
    return slice;
}

std::uint32_t machNumber(const MachSlice& slice, std::size_t at) {
    return static_cast<std::uint32_t>(numberAt(slice.commands, at, 4, slice.isBigEndian));
}

void setMachNumber(base::OwnedBytes& bytes, std::size_t at, std::uint64_t value, bool isBigEndian,
                   std::size_t width) {
    for (std::size_t index = 0; index < width; ++index)
        bytes[at + (isBigEndian ? width - 1 - index : index)] =
            static_cast<std::uint8_t>(value >> (8 * index));
}

} // namespace sign
