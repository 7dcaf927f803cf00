#include "sign/plist/PropertyList.h"

#include "base/Printable.h"
#include "sign/plist/BinaryPropertyList.h"
#include "sign/plist/PropertyListReader.h"
#include "sign/plist/XmlPropertyList.h"

#include <algorithm>
#include <functional>
#include <unordered_set>

namespace sign {

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
    if (bytes.size() > mostPropertyListBytes)
        return base::Error{base::ErrorKind::Unsupported,
                           "The property list \"" + base::printable(name) +
                               "\" is larger than 64 MB. Take out of it what is no setting."};
    if (isBinaryPropertyList(bytes))
        return readBinaryPropertyList(bytes, name);
    return readXmlPropertyList(bytes, name);
}

base::Error tooDeepPropertyList(std::string_view name) {
    return {base::ErrorKind::Unsupported,
            "The property list \"" + base::printable(name) +
                "\" is nested deeper than 64 levels. Make it flatter."};
}

base::Error damagedPropertyList(std::string_view name) {
    return {base::ErrorKind::Damaged,
            "\"" + base::printable(name) +
                "\" is not a property list in XML or binary form. Get the package anew from where "
                "it was built."};
}

void keepLastOfEachKey(PropertyDictionary& dictionary) {
    const auto key = [](const auto& entry) -> const std::string& { return entry.first; };
    if (std::ranges::adjacent_find(dictionary, std::ranges::greater_equal(), key) ==
        dictionary.end())
        return; // as what the platform writes: in order, so that no key comes twice
    std::unordered_set<std::string_view> seen;
    seen.reserve(dictionary.size());
    std::vector<bool> isLast(dictionary.size());
    for (std::size_t index = dictionary.size(); index-- > 0;)
        isLast[index] = seen.insert(dictionary[index].first).second;
    if (seen.size() == dictionary.size())
        return;
    PropertyDictionary kept;
    for (std::size_t index = 0; index < dictionary.size(); ++index)
        if (isLast[index])
            kept.push_back(std::move(dictionary[index]));
    dictionary = std::move(kept);
}

} // namespace sign
