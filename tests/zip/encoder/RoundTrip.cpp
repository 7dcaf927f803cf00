#include "RoundTrip.h"

#include <cstring>

#include <libdeflate.h>
#include <zlib.h>

namespace {

std::string faultByLibdeflate(base::Bytes stream, base::Bytes content) {
    static auto* const decompressor = libdeflate_alloc_decompressor();
    std::string back(content.size(), '\0');
    std::size_t used = 0;
    std::size_t size = 0;
    const auto result = libdeflate_deflate_decompress_ex(decompressor, stream.data(), stream.size(),
                                                         back.data(), back.size(), &used, &size);
    if (result != LIBDEFLATE_SUCCESS || used != stream.size() || size != content.size())
        return "libdeflate refuses the stream";
    return std::memcmp(back.data(), content.data(), size) == 0 ? "" : "libdeflate gets other bytes";
}

std::string faultByZlib(base::Bytes stream, base::Bytes content) {
    std::string back(content.size() + 1, '\0');
    z_stream inflater{};
    inflateInit2(&inflater, -MAX_WBITS);
    inflater.next_in = const_cast<Bytef*>(stream.data());
    inflater.avail_in = static_cast<uInt>(stream.size());
    inflater.next_out = reinterpret_cast<Bytef*>(back.data());
    inflater.avail_out = static_cast<uInt>(back.size());
    const int result = inflate(&inflater, Z_FINISH);
    inflateEnd(&inflater);
    if (result != Z_STREAM_END || inflater.avail_in != 0 || inflater.total_out != content.size())
        return "zlib refuses the stream";
    return std::memcmp(back.data(), content.data(), content.size()) == 0 ? ""
                                                                         : "zlib gets other bytes";
}

} // namespace

std::string encoded(zip::Encoder& encoder, const zip::PaddedContent& content, bool isLast) {
    std::string stream(zip::Encoder::mostBytes(content.bytes().size()), '\0');
    // Of exact size, which a string's memory is not.
    const std::unique_ptr<std::uint8_t[]> to(new std::uint8_t[stream.size()]);
    stream.resize(encoder.encode(content, isLast, to.get()));
    std::memcpy(stream.data(), to.get(), stream.size());
    return stream;
}

std::string encoded(zip::Encoder& encoder, base::Bytes content, bool isLast) {
    zip::PaddedContent padded;
    padded.assign(content);
    return encoded(encoder, padded, isLast);
}

std::string faultOfRoundTrip(zip::Encoder& encoder, base::Bytes content, bool isLast) {
    std::string stream = encoded(encoder, content, isLast);
    // The empty block with which another part would end.
    if (!isLast)
        stream += std::string("\x03\x00", 2);
    const base::Bytes bytes(reinterpret_cast<const std::uint8_t*>(stream.data()), stream.size());
    std::string fault = faultByLibdeflate(bytes, content);
    return fault.empty() ? faultByZlib(bytes, content) : fault;
}
