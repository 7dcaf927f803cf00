#include "core/PropertyList.h"

#include "base/ByteReader.h"
#include "base/Number.h"
#include "base/Utf8.h"

#include <cstdint>

namespace {

using Strings = std::map<std::string, std::string>;

/// The character of an entity such as "amp" or "#220"; none if it is unknown.
std::optional<char32_t> characterOfEntity(std::string_view entity) {
    constexpr std::pair<std::string_view, char32_t> named[] = {
        {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}, {"amp", '&'}};
    for (const auto& [name, character] : named) {
        if (entity == name)
            return character;
    }
    if (!entity.starts_with('#'))
        return std::nullopt;
    const bool hexadecimal = entity.substr(1).starts_with('x');
    entity.remove_prefix(hexadecimal ? 2 : 1);
    return base::numberIn<std::uint32_t>(entity, 0, 0x10FFFF, hexadecimal ? 16 : 10);
}

std::string withoutEntities(std::string_view text) {
    constexpr std::size_t longestEntity = 16;
    std::string result;
    while (!text.empty()) {
        const std::size_t end =
            text.front() == '&' ? text.substr(0, longestEntity).find(';') : std::string_view::npos;
        if (end != std::string_view::npos) {
            if (const auto character = characterOfEntity(text.substr(1, end - 1))) {
                base::appendUtf8(result, *character);
                text.remove_prefix(end + 1);
                continue;
            }
        }
        result += text.front();
        text.remove_prefix(1);
    }
    return result;
}

/// Walks the tags of an XML property list, one at a time.
class XmlTags {
public:
    explicit XmlTags(std::string_view text) : rest_(text) {}

    /// Steps to the next tag, past comments and declarations; false at the end.
    bool next() {
        while (true) {
            const std::size_t open = rest_.find('<');
            if (open == std::string_view::npos)
                return false;
            textBefore_ = rest_.substr(0, open);
            const std::string_view close = rest_.substr(open).starts_with("<!--") ? "-->" : ">";
            const std::size_t end = rest_.find(close, open);
            if (end == std::string_view::npos)
                return false;
            tag_ = rest_.substr(open + 1, end - open - 1);
            rest_.remove_prefix(end + close.size());
            if (!tag_.starts_with('!') && !tag_.starts_with('?'))
                return true;
        }
    }
    [[nodiscard]] std::string_view tag() const { return tag_; }
    [[nodiscard]] std::string_view textBefore() const { return textBefore_; }

private:
    std::string_view rest_;
    std::string_view tag_;
    std::string_view textBefore_;
};

Strings xmlStrings(std::string_view text) {
    Strings result;
    std::string key;
    int depth = 0;
    for (XmlTags tags(text); tags.next();) {
        const std::string_view tag = tags.tag();
        if (tag == "dict" || tag == "array")
            ++depth;
        else if (tag == "/dict" || tag == "/array")
            --depth;
        else if (depth == 1 && tag == "/key")
            key = withoutEntities(tags.textBefore());
        else if (depth == 1 && tag == "/string")
            result[key] = withoutEntities(tags.textBefore());
    }
    return result;
}

/// Reads the binary form: objects, each found through a table of offsets that a trailer of 32 bytes
/// describes. Every access is checked against the size.
class BinaryPropertyList {
public:
    explicit BinaryPropertyList(std::string_view bytes) : bytes_(bytes) {}

    [[nodiscard]] Strings strings() const {
        Strings result;
        // Objects may overlap: without a limit the work would grow with the square of the size.
        std::uint64_t charactersLeft = 16 * bytes_.size();
        const std::optional<Extent> top = extentOf(number(trailer() + 16, 8));
        if (!top || top->kind != dictionary)
            return result;
        for (std::uint64_t i = 0; i < top->count; ++i) {
            const auto key = string(element(*top, i), charactersLeft);
            const auto value = string(element(*top, top->count + i), charactersLeft);
            if (key && value)
                result[*key] = *value;
        }
        return result;
    }

private:
    static constexpr unsigned asciiString = 5;
    static constexpr unsigned utf16String = 6;
    static constexpr unsigned dictionary = 13;

    struct Extent {
        unsigned kind;       ///< the upper half of the marker byte
        std::uint64_t count; ///< elements or characters
        std::uint64_t start; ///< where they begin
    };

    [[nodiscard]] std::uint64_t trailer() const { return bytes_.size() - 32; }
    [[nodiscard]] std::uint64_t offsetSize() const { return number(trailer() + 6, 1); }
    [[nodiscard]] std::uint64_t referenceSize() const { return number(trailer() + 7, 1); }

    /// The big-endian number of `size` bytes; all ones if the bytes do not reach.
    [[nodiscard]] std::uint64_t number(std::uint64_t position, std::uint64_t size) const {
        if (size == 0 || size > 8 || position > bytes_.size() || bytes_.size() - position < size)
            return UINT64_MAX;
        std::uint64_t value = 0;
        for (char c : bytes_.substr(position, size))
            value = value << 8U | static_cast<unsigned char>(c);
        return value;
    }

    [[nodiscard]] std::optional<Extent> extentOf(std::uint64_t object) const {
        if (object >= number(trailer() + 8, 8) || object > bytes_.size())
            return std::nullopt;
        const std::uint64_t offset =
            number(number(trailer() + 24, 8) + object * offsetSize(), offsetSize());
        const std::uint64_t marker = number(offset, 1);
        if (marker > 0xFF)
            return std::nullopt;
        Extent extent{static_cast<unsigned>(marker >> 4U), marker & 15U, offset + 1};
        if (extent.count == 15) {
            const std::uint64_t size = 1ULL << (number(offset + 1, 1) & 3U);
            extent.count = number(offset + 2, size);
            extent.start = offset + 2 + size;
        }
        if (extent.count > bytes_.size())
            return std::nullopt;
        return extent;
    }

    [[nodiscard]] std::uint64_t element(const Extent& collection, std::uint64_t index) const {
        return number(collection.start + index * referenceSize(), referenceSize());
    }

    [[nodiscard]] std::optional<std::string> string(std::uint64_t object,
                                                    std::uint64_t& charactersLeft) const {
        const std::optional<Extent> extent = extentOf(object);
        if (!extent || (extent->kind != asciiString && extent->kind != utf16String) ||
            extent->count > charactersLeft)
            return std::nullopt;
        charactersLeft -= extent->count;
        const std::uint64_t width = extent->kind == asciiString ? 1 : 2;
        if (extent->count > (bytes_.size() - extent->start) / width)
            return std::nullopt;
        const base::Bytes bytes =
            base::bytesOf(bytes_).subspan(extent->start, extent->count * width);
        if (extent->kind == utf16String)
            return base::utf8OfUtf16(bytes);
        std::string text;
        for (const std::uint8_t byte : bytes)
            base::appendUtf8(text, byte);
        return text;
    }

    std::string_view bytes_;
};

} // namespace

std::optional<Strings> propertyListStrings(std::string_view bytes) {
    if (bytes.starts_with("bplist00") && bytes.size() >= 40)
        return BinaryPropertyList(bytes).strings();
    if (bytes.find("<plist") != std::string_view::npos)
        return xmlStrings(bytes);
    return std::nullopt;
}
