#include "sign/signature/Entitlements.h"

#include "base/ByteReader.h"
#include "base/ByteWriter.h"

#include <array>
#include <map>
#include <optional>
#include <string>

namespace sign {
namespace {

constexpr std::uint32_t xmlMagic = 0xFADE7171;
constexpr std::uint32_t derMagic = 0xFADE7172;

// Tags of the Distinguished Encoding Rules (X.690).
constexpr char booleanTag = 0x01;
constexpr char integerTag = 0x02;
constexpr char octetStringTag = 0x04;
constexpr char utf8StringTag = 0x0C;
constexpr char sequenceTag = 0x30;
constexpr char entitlementsTag = 0x70;                  // application 16
constexpr auto dictionaryTag = static_cast<char>(0xB0); // context 16

std::string tagged(char tag, const std::string& content) {
    std::string der(1, tag);
    if (content.size() < 0x80) {
        der += static_cast<char>(content.size());
    } else {
        std::string size;
        for (std::size_t rest = content.size(); rest > 0; rest >>= 8U)
            size.insert(size.begin(), static_cast<char>(rest & 0xFFU));
        der += static_cast<char>(0x80U | size.size());
        der += size;
    }
    return der + content;
}

/// As few bytes as hold the number and its sign.
std::string integerBytes(std::int64_t value) {
    std::string bytes;
    for (unsigned shift = 64; shift > 0; shift -= 8)
        bytes += static_cast<char>(static_cast<std::uint64_t>(value) >> (shift - 8) & 0xFFU);
    const auto isSpare = [&] {
        const bool nextIsNegative = (static_cast<unsigned char>(bytes[1]) & 0x80U) != 0;
        return bytes.size() > 1 && bytes[0] == (nextIsNegative ? '\xFF' : '\0');
    };
    while (bytes.size() > 1 && isSpare())
        bytes.erase(0, 1);
    return bytes;
}

/// Absent if it holds a value that entitlements cannot have.
std::optional<std::string> derOf(const PropertyValue& value);

std::optional<std::string> derOfDictionary(const PropertyDictionary& dictionary) {
    // The same key twice: the last one counts.
    std::map<std::string_view, const PropertyValue*> sorted;
    for (const auto& [key, element] : dictionary)
        sorted.insert_or_assign(key, &element);
    std::string content;
    for (const auto& [key, element] : sorted) {
        auto der = derOf(*element);
        if (!der)
            return der;
        content += tagged(sequenceTag, tagged(utf8StringTag, std::string(key)) + *der);
    }
    return tagged(dictionaryTag, content);
}

std::optional<std::string> derOfArray(const PropertyArray& array) {
    std::string content;
    for (const PropertyValue& element : array) {
        auto der = derOf(element);
        if (!der)
            return der;
        content += *der;
    }
    return tagged(sequenceTag, content);
}

std::optional<std::string> derOf(const PropertyValue& value) {
    if (const auto* dictionary = value.dictionary())
        return derOfDictionary(*dictionary);
    if (const auto* array = value.array())
        return derOfArray(*array);
    if (const auto* text = value.string())
        return tagged(utf8StringTag, *text);
    if (const auto* integer = value.integer())
        return tagged(integerTag, integerBytes(*integer));
    if (const auto* boolean = value.boolean())
        return tagged(booleanTag, std::string(1, *boolean ? '\xFF' : '\0'));
    if (const auto* data = value.data())
        return tagged(octetStringTag, std::string(base::textOf(*data)));
    return std::nullopt;
}

base::OwnedBytes withHeader(std::uint32_t magic, std::string_view content) {
    base::ByteBuffer blob;
    base::appendBig(blob, magic);
    base::appendBig(blob, static_cast<std::uint32_t>(8 + content.size()));
    base::appendText(blob, content);
    return {blob.bytes().begin(), blob.bytes().end()};
}

} // namespace

base::Result<Entitlements> entitlementsFromXml(base::Bytes xml, std::string_view name) {
    const std::string file(name);
    if (base::textOf(xml).starts_with("bplist"))
        return base::Error{base::ErrorKind::Unsupported,
                           "The entitlements in " + file +
                               " are a binary property list. Convert them to XML."};
    auto value = readPropertyList(xml, name);
    if (!value && value.error().kind == base::ErrorKind::Damaged)
        return base::Error{base::ErrorKind::Damaged,
                           "The entitlements in " + file +
                               " are not a property list in XML. Correct the file."};
    if (!value)
        return value.error();
    if (value->dictionary() == nullptr)
        return base::Error{base::ErrorKind::Damaged,
                           "The entitlements in " + file +
                               " are not a dictionary. Correct the file."};
    auto der = derOf(*value);
    if (!der)
        return base::Error{
            base::ErrorKind::Unsupported,
            "The entitlements in " + file +
                " hold a real number, a date or a number above 2^63-1, which a signature cannot "
                "hold. Remove it from the file."};
    Entitlements entitlements{.xml = withHeader(xmlMagic, base::textOf(xml)),
                              .value = *std::move(value)};
    const std::string version = tagged(integerTag, std::string(1, '\1'));
    entitlements.der = withHeader(derMagic, tagged(entitlementsTag, version + *der));
    return entitlements;
}

base::Result<Entitlements> entitlementsFromBlob(base::Bytes blob, std::string_view name) {
    base::ByteReader reader(blob);
    if (reader.takeBig<std::uint32_t>() != xmlMagic ||
        reader.takeBig<std::uint32_t>() != blob.size() || reader.failed())
        return base::Error{base::ErrorKind::Damaged, "The entitlements in the signature of " +
                                                         std::string(name) +
                                                         " are malformed. Sign the code again."};
    return entitlementsFromXml(reader.rest(), name);
}

std::uint64_t executableSegmentFlags(const PropertyValue& entitlements) {
    struct Flag {
        std::string_view key;
        std::uint64_t value;
    };
    constexpr std::array<Flag, 7> flags = {{
        {"get-task-allow", 0x10},
        {"run-unsigned-code", 0x10},
        {"com.apple.private.cs.debugger", 0x20},
        {"dynamic-codesigning", 0x40},
        {"com.apple.private.skip-library-validation", 0x80},
        {"com.apple.private.amfi.can-load-cdhash", 0x100},
        {"com.apple.private.amfi.can-execute-cdhash", 0x200},
    }};
    std::uint64_t all = 0;
    const auto isTrue = [&](std::string_view key) {
        const PropertyValue* value = entitlements.find(key);
        return value != nullptr && value->boolean() != nullptr && *value->boolean();
    };
    for (const Flag& flag : flags)
        if (isTrue(flag.key))
            all |= flag.value;
    return all;
}

} // namespace sign
