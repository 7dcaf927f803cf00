#include "sign/bundle/MachOFile.h"

#include "base/ByteReader.h"
#include "base/FileDescriptor.h"

#include <algorithm>
#include <array>
#include <initializer_list>

#include <fcntl.h>
#include <sys/stat.h>

namespace sign {

namespace {

constexpr std::size_t headerSize = 28;

bool isOneOf(std::uint32_t number, std::initializer_list<std::uint32_t> numbers) {
    return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
}

/// <mach-o/loader.h>, in either order of bytes: executables, libraries, the dynamic linker,
/// plug-ins and kernel extensions.
bool isSignableSlice(base::Bytes header) {
    base::ByteReader reader(header);
    const auto magic = reader.takeBig<std::uint32_t>();
    (void)reader.take(8); // processor
    const base::Bytes type = reader.take(4);
    if (reader.failed())
        return false;
    base::ByteReader typeReader(type);
    const bool isBig = isOneOf(magic, {0xFEEDFACE, 0xFEEDFACF});
    if (!isBig && !isOneOf(magic, {0xCEFAEDFE, 0xCFFAEDFE}))
        return false;
    return isOneOf(isBig ? typeReader.takeBig<std::uint32_t>()
                         : typeReader.takeLittle<std::uint32_t>(),
                   {2, 6, 7, 8, 11});
}

/// <mach-o/fat.h>. Compiled Java classes have the same magic, and a larger number behind it.
bool hasSignableSlice(int descriptor, base::Bytes start) {
    constexpr std::uint32_t fewestOfJava = 30;
    base::ByteReader reader(start);
    const bool is64 = reader.takeBig<std::uint32_t>() == 0xCAFEBABF;
    const auto count = reader.takeBig<std::uint32_t>();
    for (std::uint32_t index = 0; index < count && count < fewestOfJava; ++index) {
        (void)reader.take(8); // processor
        const std::uint64_t offset =
            is64 ? reader.takeBig<std::uint64_t>() : reader.takeBig<std::uint32_t>();
        (void)reader.take(is64 ? 16 : 8); // size, alignment
        std::array<std::uint8_t, headerSize> header{};
        const auto got = base::readAt(descriptor, header.data(), header.size(), offset);
        if (!reader.failed() && got == header.size() && isSignableSlice(header))
            return true;
    }
    return false;
}

} // namespace

bool isSignableMachO(const std::string& path) {
    constexpr std::size_t mostUniversalHeader = 8 + 30 * 32;
    const auto file =
        base::FileDescriptor::openAt(AT_FDCWD, path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    std::array<std::uint8_t, mostUniversalHeader> buffer{};
    struct stat status {};
    if (!file.open() || fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    const auto got = base::readAt(file.get(), buffer.data(), buffer.size(), 0);
    if (!got || *got < headerSize)
        return false;
    const base::Bytes start = base::Bytes(buffer).first(*got);
    base::ByteReader magic(start);
    return isOneOf(magic.takeBig<std::uint32_t>(), {0xCAFEBABE, 0xCAFEBABF})
               ? hasSignableSlice(file.get(), start)
               : isSignableSlice(start);
}

} // namespace sign
