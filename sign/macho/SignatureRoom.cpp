#include "sign/macho/SignatureRoom.h"

#include "base/ByteWriter.h"

#include <algorithm>
#include <limits>

namespace sign {
namespace {

constexpr std::uint32_t commandSignature = 0x1D;
constexpr std::size_t commandSize = 16;
/// Of every architecture, as Apple's tools round, though pages of Intel processors are smaller.
constexpr std::uint64_t segmentAlignment = 0x4000;
constexpr std::uint32_t sliceAlignment = 14;
/// How far a signature may end before its file does: older tools left that much.
constexpr std::uint64_t toleratedTail = 7;
constexpr std::uint64_t mostStringPadding = 12;
constexpr std::uint64_t mostFileSize = std::numeric_limits<std::uint32_t>::max();

std::uint64_t roundUp(std::uint64_t value, std::uint64_t to) {
    return (value + to - 1) / to * to;
}

base::Error refused(std::string_view name, const char* why, const char* remedy) {
    std::string sentence("Cannot sign ");
    sentence.append(name).append(": ").append(why).append(". ").append(remedy);
    return {base::ErrorKind::Unsupported, std::move(sentence)};
}

void setWord(SignatureRoom& room, const MachSlice& slice, std::size_t at, std::uint64_t value) {
    setMachNumber(room.head, at, value, slice.isBigEndian, 4);
}

/// Lets __LINKEDIT end with the slice; `hasVmSize` if its size in memory follows.
void fitLinkEdit(SignatureRoom& room, const MachSlice& slice, bool hasVmSize) {
    const std::uint64_t size = room.size() - slice.linkEdit->fileOffset;
    const std::size_t at = slice.linkEdit->command;
    const std::size_t width = slice.is64 ? 8 : 4;
    setMachNumber(room.head, at + (slice.is64 ? 48 : 36), size, slice.isBigEndian, width);
    if (hasVmSize)
        setMachNumber(room.head, at + (slice.is64 ? 32 : 28), roundUp(size, segmentAlignment),
                      slice.isBigEndian, width);
}

base::Outcome checkShape(const MachSlice& slice, std::string_view name) {
    if (!slice.isSignable())
        return refused(name, "files of its type have no signature",
                       "Sign executables, libraries and plug-ins only.");
    if (!slice.linkEdit)
        return refused(name, "it has no __LINKEDIT segment", "Link it anew.");
    if (slice.linkEdit->fileOffset + slice.linkEdit->fileSize != slice.size)
        return refused(name, "there is data behind its __LINKEDIT segment",
                       "Remove what was appended to it.");
    return {};
}

base::Outcome checkOldSignature(const MachSlice& slice, std::string_view name) {
    const std::uint64_t end = std::uint64_t{slice.signature->offset} + slice.signature->size;
    if (slice.size - end > toleratedTail || slice.signature->offset < slice.linkEdit->fileOffset ||
        slice.signature->offset < slice.commands.size())
        return refused(name, "its old signature does not lie at its end",
                       "Remove the signature and try again.");
    return {};
}

} // namespace

base::Result<SignatureRoom> makeSignatureRoom(const MachSlice& slice, std::uint64_t signatureSize,
                                              std::string_view name) {
    if (auto shape = checkShape(slice, name); !shape)
        return shape.error();
    SignatureRoom room{slice.commands, slice.size, 0, signatureSize};
    std::size_t command = slice.commands.size();
    if (slice.signature) {
        if (auto old = checkOldSignature(slice, name); !old)
            return old.error();
        command = slice.signature->command;
        room.kept = room.signatureOffset = slice.signature->offset;
    } else {
        if (slice.commands.size() + commandSize > slice.commandsLimit)
            return refused(name, "its header has no room for the load command of a signature",
                           "Link it with -headerpad 0x20.");
        room.head.resize(room.head.size() + commandSize);
        setWord(room, slice, 16, slice.commandCount + 1);
        setWord(room, slice, 20, slice.commands.size() + commandSize - slice.headerSize());
        room.signatureOffset = roundUp(slice.size, 16);
    }
    if (room.size() > mostFileSize)
        return refused(name, "an architecture is larger than 4 GiB", "Move data out of it.");
    setWord(room, slice, command, commandSignature);
    setWord(room, slice, command + 4, commandSize);
    setWord(room, slice, command + 8, room.signatureOffset);
    setWord(room, slice, command + 12, room.signatureSize);
    fitLinkEdit(room, slice, true);
    return room;
}

base::Result<SignatureRoom> removeSignatureRoom(const MachSlice& slice, std::string_view name) {
    if (!slice.signature)
        return SignatureRoom{slice.commands, slice.size, slice.size, 0};
    if (auto shape = checkShape(slice, name); !shape)
        return shape.error();
    if (auto old = checkOldSignature(slice, name); !old)
        return old.error();
    SignatureRoom room{slice.commands, slice.signature->offset, slice.signature->offset, 0};
    if (slice.strings) {
        const std::uint64_t end = std::uint64_t{slice.strings->offset} + slice.strings->size;
        if (end >= slice.linkEdit->fileOffset && end <= room.kept &&
            room.kept - end <= mostStringPadding)
            room.kept = room.signatureOffset = end;
    }
    fitLinkEdit(room, slice, false);
    const auto at = room.head.begin() + std::ptrdiff_t(slice.signature->command);
    const std::size_t size = machNumber(slice, slice.signature->command + 4);
    std::fill(std::copy(at + std::ptrdiff_t(size), room.head.end(), at), room.head.end(), 0);
    setWord(room, slice, 16, slice.commandCount - 1);
    setWord(room, slice, 20, slice.commands.size() - size - slice.headerSize());
    return room;
}

base::Outcome readWithRoom(const CodeFile& file, const MachSlice& slice, const SignatureRoom& room,
                           std::uint8_t* to, FileRange range) {
    const std::uint64_t end = range.offset + range.size;
    const std::uint64_t keptEnd = std::min(end, room.kept);
    if (range.offset < keptEnd)
        if (auto read = file.read(to, {slice.offset + range.offset, keptEnd - range.offset}); !read)
            return read;
    if (const std::uint64_t zeros = std::max(range.offset, keptEnd); zeros < end)
        std::fill_n(to + (zeros - range.offset), end - zeros, std::uint8_t{0});
    if (range.offset < room.head.size())
        std::copy_n(&room.head[range.offset],
                    std::min<std::uint64_t>(range.size, room.head.size() - range.offset), to);
    return {};
}

base::Result<UniversalLayout> layOut(const CodeFile& file,
                                     const std::vector<SignatureRoom>& rooms) {
    UniversalLayout layout;
    if (!file.isUniversal()) {
        layout.offsets = {0};
        layout.size = rooms.front().size();
        return layout;
    }
    if (file.isUniversal64())
        return refused(file.path(), "it is a universal file with offsets of 64 bits",
                       "Build it without -fat64.");
    if (auto whole = file.checkNothingElse(); !whole)
        return whole.error();
    base::ByteBuffer table;
    base::appendBig(table, std::uint32_t{0xCAFEBABE});
    base::appendBig(table, static_cast<std::uint32_t>(rooms.size()));
    for (std::size_t index = 0; index < rooms.size(); ++index) {
        const MachSlice& slice = file.slices()[index];
        const std::uint64_t end = std::max<std::uint64_t>(layout.size, 1);
        layout.offsets.push_back(roundUp(end, std::uint64_t{1} << sliceAlignment));
        layout.size = layout.offsets.back() + rooms[index].size();
        if (layout.size > mostFileSize)
            return refused(file.path(), "it would be larger than 4 GiB", "Move data out of it.");
        for (const std::uint64_t number :
             {std::uint64_t{slice.cpuType}, std::uint64_t{slice.listedSubtype},
              layout.offsets.back(), rooms[index].size(), std::uint64_t{sliceAlignment}})
            base::appendBig(table, static_cast<std::uint32_t>(number));
    }
    layout.table.assign(table.bytes().begin(), table.bytes().end());
    return layout;
}

} // namespace sign
