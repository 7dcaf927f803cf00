#include "sign/PropertyList.h"

#include "base/ByteReader.h"
#include "base/Printable.h"
#include "sign/BinaryPropertyList.h"

#include <cstdlib>
#include <memory>

#include <plist/plist.h>

namespace sign {

namespace {

constexpr std::size_t mostBytes = std::size_t{64} << 20U;

/// Counts the open containers without reading further: libplist and what follows it recurse.
bool isNestedTooDeep(std::string_view text) {
    unsigned depth = 0;
    for (std::size_t at = text.find('<'); at != std::string_view::npos; at = text.find('<', at)) {
        const std::string_view tag = text.substr(at);
        const bool isContainer = tag.starts_with("<dict") || tag.starts_with("<array");
        if (tag.starts_with("<!--"))
            at = text.find("-->", at + 4);
        else if (tag.starts_with("<![CDATA["))
            at = text.find("]]>", at);
        else if (tag.starts_with("</dict") || tag.starts_with("</array"))
            depth -= depth > 0 ? 1 : 0;
        else if (isContainer && !tag.substr(0, tag.find('>')).ends_with('/'))
            ++depth;
        if (depth > mostPropertyLevels)
            return true;
        if (at == std::string_view::npos)
            return false;
        ++at;
    }
    return false;
}

struct NodeFree {
    void operator()(void* node) const { plist_free(node); }
};
struct MemoryFree {
    void operator()(void* memory) const { std::free(memory); }
};
using Text = std::unique_ptr<char, MemoryFree>;

PropertyValue valueOf(plist_t node);

PropertyValue dictionaryOf(plist_t node) {
    PropertyDictionary dictionary;
    dictionary.reserve(plist_dict_get_size(node));
    plist_dict_iter given = nullptr;
    plist_dict_new_iter(node, &given);
    const std::unique_ptr<void, MemoryFree> iterator(given);
    while (true) {
        char* key = nullptr;
        plist_t child = nullptr;
        plist_dict_next_item(node, given, &key, &child);
        const Text owned(key);
        if (!key || !child)
            return dictionary;
        dictionary.emplace_back(key, valueOf(child));
    }
}

PropertyValue arrayOf(plist_t node) {
    PropertyArray array;
    array.reserve(plist_array_get_size(node));
    plist_array_iter given = nullptr;
    plist_array_new_iter(node, &given);
    const std::unique_ptr<void, MemoryFree> iterator(given);
    while (true) {
        plist_t child = nullptr;
        plist_array_next_item(node, given, &child);
        if (!child)
            return array;
        array.push_back(valueOf(child));
    }
}

PropertyValue dataOf(plist_t node) {
    std::uint64_t size = 0;
    const char* bytes = plist_get_data_ptr(node, &size);
    return bytes ? PropertyData(bytes, bytes + size) : PropertyData();
}

PropertyValue dateOf(plist_t node) {
    std::int32_t seconds = 0;
    std::int32_t microseconds = 0;
    plist_get_date_val(node, &seconds, &microseconds);
    return PropertyDate{seconds + microseconds / 1e6};
}

PropertyValue numberOf(plist_t node) {
    std::uint64_t number = 0;
    plist_get_uint_val(node, &number);
    return static_cast<std::int64_t>(number);
}

PropertyValue textOf(plist_t node) {
    std::uint64_t size = 0;
    const char* text = plist_get_string_ptr(node, &size);
    return text ? std::string(text, size) : std::string();
}

PropertyValue valueOf(plist_t node) {
    switch (plist_get_node_type(node)) {
    case PLIST_DICT:
        return dictionaryOf(node);
    case PLIST_ARRAY:
        return arrayOf(node);
    case PLIST_BOOLEAN: {
        std::uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return value != 0;
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return value;
    }
    case PLIST_DATA:
        return dataOf(node);
    case PLIST_DATE:
        return dateOf(node);
    case PLIST_STRING:
        return textOf(node);
    default:
        return numberOf(node);
    }
}

} // namespace

const PropertyValue* PropertyValue::find(std::string_view key) const {
    const PropertyDictionary* entries = dictionary();
    if (!entries)
        return nullptr;
    for (auto entry = entries->rbegin(); entry != entries->rend(); ++entry) {
        if (entry->first == key)
            return &entry->second;
    }
    return nullptr;
}

const std::string* PropertyValue::findString(std::string_view key) const {
    const PropertyValue* value = find(key);
    return value ? value->string() : nullptr;
}

base::Result<PropertyValue> readPropertyList(base::Bytes bytes, std::string_view name) {
    if (bytes.size() > mostBytes)
        return base::Error{base::ErrorKind::Unsupported,
                           "The property list \"" + base::printable(name) +
                               "\" is larger than 64 MB. Take out of it what is no setting."};
    if (isBinaryPropertyList(bytes))
        return readBinaryPropertyList(bytes, name);
    if (isNestedTooDeep(base::textOf(bytes)))
        return tooDeepPropertyList(name);
    plist_t read = nullptr;
    plist_from_xml(base::textOf(bytes).data(), static_cast<std::uint32_t>(bytes.size()), &read);
    const std::unique_ptr<void, NodeFree> root(read);
    if (!root)
        return damagedPropertyList(name);
    return valueOf(root.get());
}

} // namespace sign
