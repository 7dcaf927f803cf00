#include "sign/bundle/MachOFile.h"

#include "base/ByteReader.h"
#include "base/FileDescriptor.h"
#include "sign/macho/MachFile.h"

#include <array>
#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>

namespace sign {

namespace {

bool hasSignableSlice(int descriptor, base::Bytes start) {
    base::ByteReader reader(start);
    const bool is64 = reader.takeBig<std::uint32_t>() == universalMagic64;
    const auto count = reader.takeBig<std::uint32_t>();
    for (std::uint32_t index = 0; index < count && count <= mostSlices; ++index) {
        (void)reader.take(8); // processor
        const std::uint64_t offset =
            is64 ? reader.takeBig<std::uint64_t>() : reader.takeBig<std::uint32_t>();
        (void)reader.take(is64 ? 16 : 8); // size, alignment
        std::array<std::uint8_t, leastHeaderSize> header{};
        const auto got = base::readAt(descriptor, header.data(), header.size(), offset);
        if (!reader.failed() && got == header.size() && isSignableHeader(header))
            return true;
    }
    return false;
}

} // namespace

base::Result<bool> isSignableMachO(const std::string& path) {
    constexpr std::size_t mostUniversalHeader = 8 + 32 * mostSlices;
    const auto file =
        base::FileDescriptor::openAt(AT_FDCWD, path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    std::array<std::uint8_t, mostUniversalHeader> buffer{};
    struct stat status {};
    if (!file.open() || fstat(file.get(), &status) != 0)
        return errno == ELOOP || errno == ENOENT
                   ? base::Result<bool>(false)
                   : base::Result<bool>(base::systemError("read", path, errno));
    if (!S_ISREG(status.st_mode))
        return false;
    const auto got = base::readAt(file.get(), buffer.data(), buffer.size(), 0);
    if (!got)
        return base::systemError("read", path, errno);
    if (*got < leastHeaderSize)
        return false;
    const base::Bytes start = base::Bytes(buffer).first(*got);
    const auto magic = base::ByteReader(start).takeBig<std::uint32_t>();
    return magic == universalMagic || magic == universalMagic64
               ? hasSignableSlice(file.get(), start)
               : isSignableHeader(start);
}

} // namespace sign
