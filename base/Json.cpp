#include "base/Json.h"

#include "base/Bytes.h"
#include "base/Number.h"
#include "base/Utf8.h"

#include <algorithm>
#include <array>
#include <iomanip>
#include <limits>
#include <locale>
#include <sstream>

namespace base {
namespace {

constexpr int deepest = 32;

void appendUnit(std::string& out, unsigned unit) {
    const std::array bytes{static_cast<std::uint8_t>(unit >> 8U), static_cast<std::uint8_t>(unit)};
    out.append("\\u").append(hex(bytes));
}

void appendQuoted(std::string& out, std::string_view text) {
    out += '"';
    while (!text.empty()) {
        const std::size_t length = utf8Length(text);
        const auto first = static_cast<unsigned char>(text.front());
        if (length == 0) {
            appendUnit(out, 0xDC00U + first);
        } else if (first == '"' || first == '\\') {
            out += {'\\', text.front()};
        } else if (first == '\n') {
            out += "\\n";
        } else if (first < 0x20 || first == 0x7f) {
            appendUnit(out, first);
        } else {
            out += text.substr(0, length);
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    out += '"';
}

/// Takes values off the front of a text. After a failure the results are of no use.
class Parser {
public:
    explicit Parser(std::string_view text) : text_(text) {}

    std::optional<Json> whole() {
        Json value = takeValue(0);
        skipBlanks();
        if (failed_ || !text_.empty())
            return std::nullopt;
        return value;
    }

private:
    Json fail() {
        failed_ = true;
        return {};
    }
    void skipBlanks() {
        text_.remove_prefix(std::min(text_.find_first_not_of(" \t\n\r"), text_.size()));
    }
    bool take(std::string_view expected) {
        if (!text_.starts_with(expected))
            return false;
        text_.remove_prefix(expected.size());
        return true;
    }
    bool takeToken(std::string_view expected) {
        skipBlanks();
        return take(expected);
    }

    Json takeValue(int depth) {
        skipBlanks();
        if (text_.empty() || depth > deepest)
            return fail();
        switch (text_.front()) {
        case '{':
            return takeObject(depth);
        case '[':
            return takeArray(depth);
        case '"':
            return takeString();
        case 't':
            return take("true") ? Json(true) : fail();
        case 'f':
            return take("false") ? Json(false) : fail();
        case 'n':
            return take("null") ? Json() : fail();
        default:
            return takeNumber();
        }
    }

    Json takeArray(int depth) {
        Json::Array elements;
        take("[");
        if (takeToken("]"))
            return elements;
        do
            elements.push_back(takeValue(depth + 1));
        while (!failed_ && takeToken(","));
        return takeToken("]") ? Json(std::move(elements)) : fail();
    }

    Json takeObject(int depth) {
        Json::Object members;
        take("{");
        if (takeToken("}"))
            return members;
        do {
            skipBlanks();
            if (!text_.starts_with('"'))
                return fail();
            std::string name = takeString().string();
            if (!takeToken(":") || std::ranges::count(members, name, &Json::Member::first) > 0)
                return fail();
            members.emplace_back(std::move(name), takeValue(depth + 1));
        } while (!failed_ && takeToken(","));
        return takeToken("}") ? Json(std::move(members)) : fail();
    }

    Json takeNumber() {
        const std::size_t size = std::min(text_.find_first_not_of("+-.0123456789Ee"), text_.size());
        const std::string_view digits = text_.substr(0, size);
        text_.remove_prefix(size);
        std::string_view whole = digits;
        if (whole.starts_with('-'))
            whole.remove_prefix(1);
        const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
        // Neither "01" nor ".5" nor "1.": the standard library would take them.
        if (whole.empty() || !isDigit(whole.front()) || !isDigit(whole.back()) ||
            (whole.size() > 1 && whole.front() == '0' && isDigit(whole[1])) ||
            whole.find(".e") != whole.npos || whole.find(".E") != whole.npos)
            return fail();
        using Limits = std::numeric_limits<std::int64_t>;
        if (const auto integer = numberIn<std::int64_t>(digits, Limits::min(), Limits::max()))
            return *integer;
        return takeDouble(digits);
    }

    Json takeDouble(std::string_view digits) {
        // Neither from_chars(), which some standard libraries lack for this type, nor strtod(),
        // which goes by the locale.
        std::istringstream stream{std::string(digits)};
        stream.imbue(std::locale::classic());
        double value = 0;
        stream >> value;
        return stream && stream.peek() == std::char_traits<char>::eof() ? Json(value) : fail();
    }

    std::optional<unsigned> takeUnit() {
        const auto unit = numberIn<unsigned>(text_.substr(0, 4), 0, 0xFFFF, 16);
        if (!unit || text_.size() < 4)
            return std::nullopt;
        text_.remove_prefix(4);
        return unit;
    }

    void takeEscapedUnit(std::string& out) {
        const auto unit = takeUnit();
        if (!unit) {
            failed_ = true;
        } else if (*unit >= 0xDC80 && *unit <= 0xDCFF) {
            out += static_cast<char>(*unit - 0xDC00U);
        } else if (*unit >= 0xD800 && *unit <= 0xDBFF) {
            const auto second = take("\\u") ? takeUnit() : std::nullopt;
            if (!second || *second < 0xDC00 || *second > 0xDFFF)
                failed_ = true;
            else
                appendUtf8(out, 0x10000U + ((*unit - 0xD800U) << 10U) + (*second - 0xDC00U));
        } else if (*unit >= 0xDC00 && *unit <= 0xDFFF) {
            failed_ = true;
        } else {
            appendUtf8(out, *unit);
        }
    }

    void takeEscape(std::string& out) {
        constexpr std::string_view letters = "\"\\/bfnrt";
        constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
        if (take("u"))
            return takeEscapedUnit(out);
        const std::size_t at = text_.empty() ? letters.npos : letters.find(text_.front());
        if (at == letters.npos) {
            failed_ = true;
            return;
        }
        out += meanings[at];
        text_.remove_prefix(1);
    }

    Json takeString() {
        std::string out;
        take("\"");
        while (!failed_ && !text_.empty() && text_.front() != '"') {
            if (take("\\")) {
                takeEscape(out);
                continue;
            }
            const std::size_t length = utf8Length(text_);
            if (length == 0 || static_cast<unsigned char>(text_.front()) < 0x20)
                return fail();
            out += text_.substr(0, length);
            text_.remove_prefix(length);
        }
        return take("\"") ? Json(std::move(out)) : fail();
    }

    std::string_view text_;
    bool failed_ = false;
};

template <typename Value, typename Variant>
const Value& valueOr(const Variant& variant, const Value& other) {
    const auto* value = std::get_if<Value>(&variant);
    return value != nullptr ? *value : other;
}

} // namespace

std::optional<Json> Json::parse(std::string_view text) {
    return Parser(text).whole();
}

std::string Json::text() const {
    std::string out;
    append(out);
    return out;
}

void Json::append(std::string& out) const {
    if (const auto* text = std::get_if<std::string>(&value_)) {
        appendQuoted(out, *text);
    } else if (const auto* elements = std::get_if<Array>(&value_)) {
        const char* separator = "[";
        for (const Json& element : *elements) {
            out += std::exchange(separator, ", ");
            element.append(out);
        }
        out += elements->empty() ? "[]" : "]";
    } else if (const auto* members = std::get_if<Object>(&value_)) {
        const char* separator = "{";
        for (const auto& [name, value] : *members) {
            out += std::exchange(separator, ", ");
            appendQuoted(out, name);
            out += ": ";
            value.append(out);
        }
        out += members->empty() ? "{}" : "}";
    } else if (const auto* truth = std::get_if<bool>(&value_)) {
        out += *truth ? "true" : "false";
    } else if (const auto* integer = std::get_if<std::int64_t>(&value_)) {
        out += std::to_string(*integer);
    } else if (const auto* number = std::get_if<double>(&value_)) {
        std::ostringstream digits;
        digits.imbue(std::locale::classic());
        digits << std::fixed << std::setprecision(3) << *number;
        out += digits.str();
    } else {
        out += "null";
    }
}

const Json& Json::operator[](std::string_view name) const {
    static const Json none;
    const auto* members = std::get_if<Object>(&value_);
    if (members == nullptr)
        return none;
    const auto found = std::ranges::find(*members, name, &Member::first);
    return found == members->end() ? none : found->second;
}

const std::string& Json::string() const {
    static const std::string none;
    return valueOr(value_, none);
}

double Json::number() const {
    const auto* integer = std::get_if<std::int64_t>(&value_);
    return integer != nullptr ? static_cast<double>(*integer) : valueOr(value_, 0.0);
}

std::int64_t Json::integer() const {
    return valueOr(value_, std::int64_t{0});
}

const Json::Array& Json::array() const {
    static const Array none;
    return valueOr(value_, none);
}

} // namespace base
