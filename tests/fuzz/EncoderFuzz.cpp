#include "FuzzInput.h"
#include "tests/zip/encoder/RoundTrip.h"

namespace {

/// Runs of given bytes, of one byte and of noise, and copies of what stands before: lengths and
/// distances of two bytes reach beyond a chunk and as far as deflate can.
std::string contentFrom(FuzzInput& input) {
    constexpr std::size_t longest = 200000;
    std::string content;
    while (!input.empty() && content.size() < longest) {
        const std::size_t kind = input.byte() % 5;
        const std::size_t count = kind == 0 ? 0 : 1 + input.byte() + input.byte() % 128 * 256;
        if (kind == 0) {
            content += input.piece();
        } else if (kind == 1) {
            content.append(count, static_cast<char>(input.byte()));
        } else if (kind == 2) {
            std::uint32_t state = static_cast<std::uint32_t>(1 + input.byte());
            for (std::size_t left = count; left > 0; --left) {
                state = state * 1664525 + 1013904223;
                content += static_cast<char>(state >> 24);
            }
        } else {
            const std::size_t distance =
                1 + input.byte() + (kind == 3 ? 0 : input.byte() % 160 * 256);
            for (std::size_t left = count; left > 0 && distance <= content.size(); --left)
                content += content[content.size() - distance];
        }
    }
    return content;
}

} // namespace

/// Two decoders get the content back, and the stream does not depend on what was encoded before.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto quick = std::make_unique<zip::Encoder>(zip::Effort::Quick);
    static const auto usual = std::make_unique<zip::Encoder>(zip::Effort::Usual);
    FuzzInput input(data, size);
    const std::size_t choice = input.byte();
    const bool isQuick = choice % 2 != 0;
    const bool isLast = choice / 2 % 2 != 0;
    zip::Encoder& encoder = isQuick ? *quick : *usual;
    const std::string content =
        choice / 4 % 2 != 0 ? std::string(input.rest()) : contentFrom(input);
    const base::Bytes bytes(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
    const std::string fault = faultOfRoundTrip(encoder, bytes, isLast);
    require(fault.empty(), fault);
    const auto fresh =
        std::make_unique<zip::Encoder>(isQuick ? zip::Effort::Quick : zip::Effort::Usual);
    require(encoded(encoder, bytes, isLast) == encoded(*fresh, bytes, isLast),
            "the stream does not depend on what was encoded before");
    return 0;
}
