#include "sign/plist/XmlPropertyList.h"

#include "base/ByteReader.h"
#include "base/Number.h"
#include "sign/plist/PropertyListReader.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <optional>

#include <expat.h>

namespace sign {

namespace {

enum class Problem { None, Damaged, Depth };

enum class Tag { Plist, Dictionary, Array, Key, True, False, String, Data, Date, Real, Integer };

std::optional<Tag> tagOf(std::string_view name) {
    static constexpr std::pair<std::string_view, Tag> tags[] = {
        {"key", Tag::Key},         {"data", Tag::Data},   {"dict", Tag::Dictionary},
        {"string", Tag::String},   {"true", Tag::True},   {"false", Tag::False},
        {"integer", Tag::Integer}, {"array", Tag::Array}, {"real", Tag::Real},
        {"date", Tag::Date},       {"plist", Tag::Plist}};
    for (const auto& [known, tag] : tags) {
        if (name == known)
            return tag;
    }
    return std::nullopt;
}

std::string_view withoutBlanks(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

/// Absent for what is no base64; zero for the padding.
std::optional<std::uint32_t> bitsOf(char letter) {
    if (letter >= 'A' && letter <= 'Z')
        return static_cast<std::uint32_t>(letter - 'A');
    if (letter >= 'a' && letter <= 'z')
        return static_cast<std::uint32_t>(letter - 'a' + 26);
    if (letter >= '0' && letter <= '9')
        return static_cast<std::uint32_t>(letter - '0' + 52);
    if (letter == '+' || letter == '/')
        return letter == '+' ? 62 : 63;
    return letter == '=' ? std::optional(std::uint32_t{0}) : std::nullopt;
}

/// Passes over what is no base64, and drops what is no whole group of four, as Apple does. Decodes
/// in place.
PropertyData dataOf(std::string& text) {
    std::size_t size = 0;
    std::uint32_t group = 0;
    unsigned count = 0;
    unsigned padding = 0;
    for (const char letter : text) {
        const auto bits = bitsOf(letter);
        if (!bits)
            continue;
        padding = letter == '=' ? padding + 1 : 0;
        group = group << 6U | *bits;
        if (++count % 4 != 0)
            continue;
        for (unsigned index = 0; index < 3 - std::min(padding, 2U); ++index)
            text[size++] = static_cast<char>(group >> (16 - 8 * index) & 0xFFU);
    }
    const base::Bytes bytes = base::bytesOf(text).first(size);
    return {bytes.begin(), bytes.end()};
}

/// Decimal or hexadecimal, from -2^63 to 2^64-1.
std::optional<PropertyValue> integerOf(std::string_view text) {
    const bool isNegative = text.starts_with('-');
    if (isNegative || text.starts_with('+'))
        text.remove_prefix(1);
    const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (isHexadecimal)
        text.remove_prefix(2);
    const std::uint64_t most =
        isNegative ? std::uint64_t{1} << 63U : std::numeric_limits<std::uint64_t>::max();
    const auto number = base::numberIn<std::uint64_t>(text, 0, most, isHexadecimal ? 16 : 10);
    if (!number)
        return std::nullopt;
    if (!isNegative && *number > std::numeric_limits<std::int64_t>::max())
        return *number;
    return static_cast<std::int64_t>(isNegative ? 0 - *number : *number);
}

std::optional<double> realOf(const std::string& text) {
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    if (text.empty() || end != text.c_str() + text.size())
        return std::nullopt;
    return number;
}

std::optional<PropertyDate> dateOf(const std::string& text) {
    int year = 0;
    std::array<int, 5> rest{};
    int size = 0;
    auto& [month, day, hour, minute, second] = rest;
    const int got = std::sscanf(text.c_str(), "%5d-%2d-%2dT%2d:%2d:%2dZ%n", &year, &month, &day,
                                &hour, &minute, &second, &size);
    if (got != 6 || static_cast<std::size_t>(size) != text.size() || std::abs(year) > 9999 ||
        month < 1 || month > 12 || *std::min_element(rest.begin(), rest.end()) < 0)
        return std::nullopt;
    using namespace std::chrono;
    // A day that the month does not have is one of the next month, as for Apple.
    const sys_days start = sys_days(std::chrono::year(year) / month / 1) + days(day - 1);
    const auto epoch = sys_days(2001y / 1 / 1);
    const seconds since = start - epoch + hours(hour) + minutes(minute) + seconds(second);
    return PropertyDate{static_cast<double>(since.count())};
}

struct ParserFree {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
};

/// Builds the tree as the tags come, so that nothing is held twice.
class XmlReader {
public:
    explicit XmlReader(base::Bytes bytes) : bytes_(bytes), parser_(XML_ParserCreate(nullptr)) {
        if (!parser_)
            throw std::bad_alloc();
        XML_SetUserData(parser_.get(), this);
        XML_SetElementHandler(
            parser_.get(),
            [](void* self, const char* name, const char**) {
                handle(self, [name](XmlReader& reader) { reader.open(name); });
            },
            [](void* self, const char*) {
                handle(self, [](XmlReader& reader) { reader.close(); });
            });
        XML_SetCharacterDataHandler(parser_.get(), [](void* self, const char* text, int size) {
            handle(self, [=](XmlReader& reader) {
                reader.take({text, static_cast<std::size_t>(size)});
            });
        });
        XML_SetEntityDeclHandler(parser_.get(),
                                 [](void* self, const char*, int, const char*, int, const char*,
                                    const char*, const char*, const char*) { refuse(self); });
        // Entities that a document type elsewhere may declare would be passed over.
        XML_SetSkippedEntityHandler(parser_.get(),
                                    [](void* self, const char*, int) { refuse(self); });
    }

    /// Absent if there is a problem.
    std::optional<PropertyValue> read() {
        // Not all at once: expat copies what it is given. Not too little: it starts a long tag anew
        // with each piece.
        const std::size_t piece = std::max<std::size_t>(bytes_.size() / 16, std::size_t{64} << 10U);
        for (std::size_t at = 0; !isStopped();) {
            const std::size_t size = std::min(piece, bytes_.size() - at);
            const std::string_view text = base::textOf(bytes_.subspan(at, size));
            at += size;
            const bool isLast = at == bytes_.size();
            const auto parsed = XML_Parse(parser_.get(), text.data(), static_cast<int>(size),
                                          isLast ? XML_TRUE : XML_FALSE);
            if (thrown_)
                std::rethrow_exception(thrown_);
            if (parsed == XML_STATUS_OK && !isLast)
                continue;
            if (XML_GetErrorCode(parser_.get()) == XML_ERROR_NO_MEMORY)
                throw std::bad_alloc();
            if (!isDone_)
                fail(Problem::Damaged);
        }
        return isDone_ ? std::move(root_) : std::nullopt;
    }

    [[nodiscard]] Problem problem() const { return problem_; }

private:
    struct Level {
        PropertyValue::Kinds container;
        std::optional<std::string> key; ///< the last one of a dictionary, until its value comes
    };

    [[nodiscard]] bool isStopped() const { return isDone_ || problem_ != Problem::None; }

    /// Calls `work`, unless the end was reached. No exception may pass through the frames of C.
    template <typename Work>
    static void handle(void* self, const Work& work) noexcept {
        auto& reader = *static_cast<XmlReader*>(self);
        if (reader.isStopped() || reader.thrown_)
            return; // expat goes on for a little after it was stopped
        try {
            work(reader);
        } catch (...) {
            reader.thrown_ = std::current_exception();
        }
        if (reader.isStopped() || reader.thrown_)
            XML_StopParser(reader.parser_.get(), XML_FALSE);
    }

    static void refuse(void* self) noexcept {
        handle(self, [](XmlReader& reader) { reader.fail(Problem::Damaged); });
    }

    void fail(Problem problem) {
        if (problem_ == Problem::None)
            problem_ = problem;
    }

    void open(std::string_view name) {
        const auto tag = tagOf(name);
        if (!tag || leaf_)
            return fail(Problem::Damaged);
        if (*tag == Tag::Plist) {
            if (isInPlist_ || !levels_.empty())
                return fail(Problem::Damaged);
            isInPlist_ = true;
            return;
        }
        const bool isInDictionary = !levels_.empty() && std::holds_alternative<PropertyDictionary>(
                                                            levels_.back().container);
        const bool wantsKey = isInDictionary && !levels_.back().key;
        if (root_ || wantsKey != (*tag == Tag::Key))
            return fail(Problem::Damaged);
        if (*tag != Tag::Dictionary && *tag != Tag::Array) {
            leaf_ = tag;
            text_.clear();
            return;
        }
        if (levels_.size() == mostPropertyLevels)
            return fail(Problem::Depth);
        levels_.emplace_back();
        if (*tag == Tag::Array)
            levels_.back().container = PropertyArray();
    }

    void close() {
        if (leaf_)
            return closeLeaf(*std::exchange(leaf_, std::nullopt));
        const bool isEndOfPlist = levels_.empty();
        if (isEndOfPlist ? !root_ : levels_.back().key.has_value())
            return fail(Problem::Damaged);
        if (isEndOfPlist) {
            isDone_ = true;
            return;
        }
        PropertyValue::Kinds container = std::move(levels_.back().container);
        levels_.pop_back();
        if (auto* array = std::get_if<PropertyArray>(&container))
            return place(std::move(*array));
        auto& dictionary = std::get<PropertyDictionary>(container);
        keepLastOfEachKey(dictionary);
        place(std::move(dictionary));
    }

    void closeLeaf(Tag tag) {
        switch (tag) {
        case Tag::Key:
            levels_.back().key = text_; // a copy has no room to spare
            return;
        case Tag::String:
            return place(std::string(text_));
        case Tag::Data:
            return place(dataOf(text_));
        case Tag::True:
        case Tag::False:
            return placeIfAny(text_.empty() ? std::optional(tag == Tag::True) : std::nullopt);
        case Tag::Date:
            return placeIfAny(dateOf(std::string(withoutBlanks(text_))));
        case Tag::Real:
            return placeIfAny(realOf(std::string(withoutBlanks(text_))));
        default:
            return placeIfAny(integerOf(withoutBlanks(text_)));
        }
    }

    template <typename Kind>
    void placeIfAny(const std::optional<Kind>& value) {
        if (!value)
            return fail(Problem::Damaged);
        place(*value);
    }

    void place(PropertyValue value) {
        if (levels_.empty()) {
            root_ = std::move(value);
            isDone_ = !isInPlist_;
        } else if (auto* array = std::get_if<PropertyArray>(&levels_.back().container)) {
            array->push_back(std::move(value));
        } else {
            std::get<PropertyDictionary>(levels_.back().container)
                .emplace_back(*std::exchange(levels_.back().key, std::nullopt), std::move(value));
        }
    }

    void take(std::string_view text) {
        if (leaf_)
            text_ += text == "\n" ? lineEnd() : text;
        else if (!withoutBlanks(text).empty())
            fail(Problem::Damaged);
    }

    /// XML makes a line feed of every end of a line, but Apple's reader does not: there are files
    /// with the name "Icon\r", and a seal names them so.
    [[nodiscard]] std::string_view lineEnd() const {
        const auto at = static_cast<std::size_t>(XML_GetCurrentByteIndex(parser_.get()));
        const auto size = static_cast<std::size_t>(XML_GetCurrentByteCount(parser_.get()));
        const std::string_view here = base::textOf(bytes_.subspan(at, size));
        if (here.find('\r') == std::string_view::npos)
            return "\n";
        return here.find('\n') == std::string_view::npos ? "\r" : "\r\n";
    }

    base::Bytes bytes_;
    std::unique_ptr<std::remove_pointer_t<XML_Parser>, ParserFree> parser_;
    std::vector<Level> levels_;
    std::optional<PropertyValue> root_;
    std::optional<Tag> leaf_; ///< what is open and holds no values
    std::string text_;        ///< of the leaf
    bool isInPlist_ = false;
    bool isDone_ = false;
    Problem problem_ = Problem::None;
    std::exception_ptr thrown_;
};

} // namespace

base::Result<PropertyValue> readXmlPropertyList(base::Bytes bytes, std::string_view name) {
    const std::string_view text = base::textOf(bytes);
    XmlReader reader(bytes.subspan(std::min(text.find_first_not_of(" \t\r\n"), text.size())));
    if (auto value = reader.read())
        return *std::move(value);
    return reader.problem() == Problem::Depth ? tooDeepPropertyList(name)
                                              : damagedPropertyList(name);
}

} // namespace sign
