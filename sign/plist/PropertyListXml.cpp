#include "sign/plist/PropertyList.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace sign {

namespace {

/// Writes the form of CoreFoundation's CFPropertyListCreateData for XML.
class XmlWriter {
public:
    std::string take(const PropertyValue& value) {
        // Memory that is never written takes no place; a text that grows takes twice its own.
        text_.reserve(headSize + mostSizeOf(value, 0));
        text_ = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                "<plist version=\"1.0\">\n";
        write(value, 0);
        text_ += "</plist>\n";
        return std::move(text_);
    }

private:
    /// Enough for most values; a text full of what is escaped grows later.
    static constexpr std::size_t headSize = 256;
    static std::size_t mostSizeOf(const PropertyValue& value, std::size_t depth) {
        constexpr std::size_t ofTags = 40;
        std::size_t size = ofTags + 2 * depth;
        if (const PropertyDictionary* dictionary = value.dictionary())
            for (const auto& [key, inner] : *dictionary)
                size += ofTags + key.size() + depth + mostSizeOf(inner, depth + 1);
        else if (const PropertyArray* array = value.array())
            for (const PropertyValue& inner : *array)
                size += mostSizeOf(inner, depth + 1);
        else if (const PropertyData* data = value.data())
            size += 2 * data->size();
        else if (const std::string* text = value.string())
            size += text->size();
        return size;
    }

    void write(const PropertyValue& value, unsigned depth) {
        std::visit([&](const auto& kind) { writeKind(kind, depth); }, value.kinds());
    }

    void writeKind(const PropertyDictionary& dictionary, unsigned depth) {
        if (dictionary.empty())
            return line("<dict/>", depth);
        std::vector<const PropertyDictionary::value_type*> sorted;
        sorted.reserve(dictionary.size());
        for (const auto& entry : dictionary)
            sorted.push_back(&entry);
        std::stable_sort(sorted.begin(), sorted.end(), [](const auto* left, const auto* right) {
            return comesBeforeInUtf16(left->first, right->first);
        });
        line("<dict>", depth);
        for (std::size_t index = 0; index < sorted.size(); ++index) {
            if (index + 1 < sorted.size() && sorted[index]->first == sorted[index + 1]->first)
                continue;
            element("key", sorted[index]->first, depth + 1);
            write(sorted[index]->second, depth + 1);
        }
        line("</dict>", depth);
    }

    void writeKind(const PropertyArray& array, unsigned depth) {
        if (array.empty())
            return line("<array/>", depth);
        line("<array>", depth);
        for (const PropertyValue& value : array)
            write(value, depth + 1);
        line("</array>", depth);
    }

    void writeKind(const std::string& text, unsigned depth) { element("string", text, depth); }
    void writeKind(bool value, unsigned depth) { line(value ? "<true/>" : "<false/>", depth); }

    void writeKind(std::int64_t number, unsigned depth) {
        element("integer", std::to_string(number), depth);
    }

    void writeKind(std::uint64_t number, unsigned depth) {
        element("integer", std::to_string(number), depth);
    }

    void writeKind(double number, unsigned depth) {
        if (std::isnan(number))
            return element("real", "nan", depth);
        if (std::isinf(number))
            return element("real", number > 0 ? "+infinity" : "-infinity", depth);
        std::array<char, 40> buffer{};
        std::snprintf(buffer.data(), buffer.size(), "%.15g", number);
        if (std::strtod(buffer.data(), nullptr) != number)
            std::snprintf(buffer.data(), buffer.size(), "%.17g", number);
        element("real", buffer.data(), depth);
    }

    void writeKind(const PropertyDate& date, unsigned depth) {
        constexpr double from1970To2001 = 978307200;
        constexpr double year9999 = 253402300799;
        const double clamped = std::fmin(std::fmax(date.seconds + from1970To2001, -year9999),
                                         year9999); // NaN becomes a bound, too
        const auto seconds = static_cast<std::time_t>(std::floor(clamped));
        std::tm utc{};
        gmtime_r(&seconds, &utc);
        // Systems differ in how strftime() writes a year of fewer digits.
        std::array<char, 80> buffer{};
        std::snprintf(buffer.data(), buffer.size(), "%.4d-%02d-%02dT%02d:%02d:%02dZ",
                      utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min,
                      utc.tm_sec);
        element("date", buffer.data(), depth);
    }

    void writeKind(const PropertyData& data, unsigned depth) {
        line("<data>", depth);
        const std::size_t width = depth < 9 ? 76 - 8 * std::size_t{depth} : 4;
        for (std::size_t at = 0; at < data.size(); at += width / 4 * 3) {
            text_.append(depth, '\t');
            base64(base::Bytes(data).subspan(at, std::min(width / 4 * 3, data.size() - at)));
            text_ += '\n';
        }
        line("</data>", depth);
    }

    void base64(base::Bytes bytes) {
        static constexpr std::string_view letters =
            "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (std::size_t at = 0; at < bytes.size(); at += 3) {
            const std::size_t left = bytes.size() - at;
            const std::uint32_t bits = std::uint32_t{bytes[at]} << 16U |
                                       (left > 1 ? std::uint32_t{bytes[at + 1]} << 8U : 0U) |
                                       (left > 2 ? std::uint32_t{bytes[at + 2]} : 0U);
            text_ += letters[bits >> 18U];
            text_ += letters[bits >> 12U & 63U];
            text_ += left > 1 ? letters[bits >> 6U & 63U] : '=';
            text_ += left > 2 ? letters[bits & 63U] : '=';
        }
    }

    void line(std::string_view tag, unsigned depth) {
        text_.append(depth, '\t');
        text_ += tag;
        text_ += '\n';
    }

    void element(std::string_view tag, std::string_view content, unsigned depth) {
        text_.append(depth, '\t');
        ((text_ += '<') += tag) += '>';
        for (const char letter : content) {
            if (letter == '&')
                text_ += "&amp;";
            else if (letter == '<')
                text_ += "&lt;";
            else if (letter == '>')
                text_ += "&gt;";
            else
                text_ += letter;
        }
        ((text_ += "</") += tag) += ">\n";
    }

    std::string text_;
};

} // namespace

bool comesBeforeInUtf16(std::string_view left, std::string_view right) {
    const auto [a, b] = std::mismatch(left.begin(), left.end(), right.begin(), right.end());
    if (a == left.end() || b == right.end())
        return a == left.end() && b != right.end();
    const auto byteA = static_cast<unsigned char>(*a);
    const auto byteB = static_cast<unsigned char>(*b);
    // Characters past U+FFFF are surrogates in UTF-16, which come before U+E000 to U+FFFF.
    constexpr unsigned firstAfterSurrogates = 0xEE;
    constexpr unsigned firstOfFourBytes = 0xF0;
    if (std::min(byteA, byteB) >= firstAfterSurrogates &&
        (byteA >= firstOfFourBytes) != (byteB >= firstOfFourBytes))
        return byteA >= firstOfFourBytes;
    return byteA < byteB;
}

std::string applePropertyListXml(const PropertyValue& value) {
    return XmlWriter().take(value);
}

} // namespace sign
