#include "sign/signature/ObjectIdentifier.h"

#include "base/Number.h"

#include <cstdint>
#include <limits>
#include <vector>

namespace sign {
namespace {

constexpr std::uint64_t mostArc = std::numeric_limits<std::uint32_t>::max();

void appendBase128(std::string& to, std::uint64_t number) {
    unsigned shift = 0;
    while (number >> shift >= 0x80)
        shift += 7;
    for (; shift > 0; shift -= 7)
        to += static_cast<char>(0x80U | (number >> shift & 0x7FU));
    to += static_cast<char>(number & 0x7FU);
}

} // namespace

std::string encodedOid(std::string_view dotted) {
    std::vector<std::uint64_t> arcs;
    for (std::size_t end = 0; end != std::string_view::npos;) {
        end = dotted.find('.');
        const auto arc = base::numberIn<std::uint64_t>(dotted.substr(0, end), 0, mostArc);
        if (!arc)
            return {};
        arcs.push_back(*arc);
        dotted.remove_prefix(end == std::string_view::npos ? dotted.size() : end + 1);
    }
    if (arcs.size() < 2 || arcs[0] > 2 || (arcs[0] < 2 && arcs[1] > 39))
        return {};
    std::string content;
    appendBase128(content, arcs[0] * 40 + arcs[1]);
    for (std::size_t arc = 2; arc < arcs.size(); ++arc)
        appendBase128(content, arcs[arc]);
    return content;
}

std::optional<std::string> decodedOid(base::Bytes content) {
    std::string dotted;
    std::uint64_t number = 0;
    bool isInside = false;
    for (const std::uint8_t byte : content) {
        number = number << 7U | (byte & 0x7FU);
        if (number > mostArc + 80)
            return std::nullopt;
        isInside = (byte & 0x80U) != 0;
        if (isInside)
            continue;
        if (dotted.empty()) {
            const std::uint64_t first = number < 80 ? number / 40 : 2;
            dotted = std::to_string(first) + '.' + std::to_string(number - first * 40);
        } else {
            dotted += '.' + std::to_string(number);
        }
        number = 0;
    }
    if (dotted.empty() || isInside)
        return std::nullopt;
    return dotted;
}

} // namespace sign
