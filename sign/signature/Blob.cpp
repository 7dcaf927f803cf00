#include "sign/signature/Blob.h"

#include "base/ByteReader.h"
#include "base/ByteWriter.h"

namespace sign {
namespace {

constexpr std::size_t superHeaderSize = 12;
constexpr std::size_t indexSize = 8;
/// Far more than there are slots, so that a wrong count costs nothing.
constexpr std::uint32_t mostBlobs = 64;

} // namespace

base::Error damagedSignature(std::string_view name, const char* what) {
    return {base::ErrorKind::Damaged,
            "The signature of " + std::string(name) + " is damaged: " + what + ". Sign it anew."};
}

base::OwnedBytes makeBlob(BlobMagic magic, base::Bytes content) {
    base::ByteBuffer buffer;
    base::appendBig(buffer, std::uint32_t(magic));
    base::appendBig(buffer, static_cast<std::uint32_t>(blobHeaderSize + content.size()));
    buffer.append(content);
    return {buffer.bytes().begin(), buffer.bytes().end()};
}

std::uint32_t magicOf(base::Bytes bytes) {
    return base::ByteReader(bytes).takeBig<std::uint32_t>();
}

base::Bytes contentOf(base::Bytes blob) {
    return blob.size() < blobHeaderSize ? base::Bytes() : blob.subspan(blobHeaderSize);
}

std::size_t superBlobSize(std::size_t count, std::size_t sizeOfBlobs) {
    return superHeaderSize + count * indexSize + sizeOfBlobs;
}

base::OwnedBytes makeSuperBlob(BlobMagic magic, const BlobMap& blobs) {
    std::size_t size = superBlobSize(blobs.size(), 0);
    base::ByteBuffer index;
    for (const auto& [slot, blob] : blobs) {
        base::appendBig(index, slot);
        base::appendBig(index, static_cast<std::uint32_t>(size));
        size += blob.size();
    }
    base::ByteBuffer whole;
    base::appendBig(whole, std::uint32_t(magic));
    base::appendBig(whole, static_cast<std::uint32_t>(size));
    base::appendBig(whole, static_cast<std::uint32_t>(blobs.size()));
    whole.append(index.bytes());
    for (const auto& [slot, blob] : blobs)
        whole.append(blob);
    return {whole.bytes().begin(), whole.bytes().end()};
}

base::Result<BlobMap> readSuperBlob(BlobMagic magic, base::Bytes bytes, std::string_view name) {
    base::ByteReader header(bytes);
    if (header.takeBig<std::uint32_t>() != std::uint32_t(magic))
        return damagedSignature(name, "it does not start as it must");
    const auto length = header.takeBig<std::uint32_t>();
    const auto count = header.takeBig<std::uint32_t>();
    if (header.failed() || length > bytes.size() || count > mostBlobs ||
        superBlobSize(count, 0) > length)
        return damagedSignature(name, "its length is wrong");
    BlobMap blobs;
    for (std::uint32_t index = 0; index < count; ++index) {
        const auto slot = header.takeBig<std::uint32_t>();
        const auto offset = header.takeBig<std::uint32_t>();
        if (offset < superBlobSize(count, 0) || offset > length)
            return damagedSignature(name, "a part of it lies outside");
        const base::Bytes rest = bytes.subspan(offset, length - offset);
        base::ByteReader part(rest);
        (void)part.takeBig<std::uint32_t>();
        const auto size = part.takeBig<std::uint32_t>();
        if (part.failed() || size < blobHeaderSize || size > rest.size())
            return damagedSignature(name, "a part of it reaches past its end");
        const base::Bytes blob = rest.first(size);
        if (!blobs.emplace(slot, base::OwnedBytes(blob.begin(), blob.end())).second)
            return damagedSignature(name, "it has the same part twice");
    }
    return blobs;
}

} // namespace sign
