#include "base/ByteReader.h"
#include "base/Utf8.h"
#include "sign/plist/PropertyList.h"
#include "tests/fuzz/FuzzInput.h"

#include <algorithm>

namespace {

bool isPlainText(const std::string& text) {
    const bool hasNoncharacter =
        text.find("\uFFFE") != text.npos || text.find("\uFFFF") != text.npos;
    return base::isValidUtf8(text) && !hasNoncharacter &&
           std::none_of(text.begin(), text.end(), [](char letter) {
               return static_cast<unsigned char>(letter) < 0x20 && letter != '\t' &&
                      letter != '\n' && letter != '\r';
           });
}

/// Whether every text can be written as XML, and every number has one form.
bool canBeWritten(const sign::PropertyValue& value) {
    if (const auto* dictionary = value.dictionary())
        return std::all_of(dictionary->begin(), dictionary->end(), [](const auto& entry) {
            return isPlainText(entry.first) && canBeWritten(entry.second);
        });
    if (const auto* array = value.array())
        return std::all_of(array->begin(), array->end(), canBeWritten);
    if (const auto* text = value.string())
        return isPlainText(*text);
    return !value.real() && !std::holds_alternative<sign::PropertyDate>(value.kinds());
}

} // namespace

/// A property list, as XML or binary.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto value = sign::readPropertyList({data, size}, "input");
    if (!value) {
        require(!value.error().sentence.empty(), "a failure has a sentence");
        return 0;
    }
    const std::string written = sign::applePropertyListXml(*value);
    if (!canBeWritten(*value))
        return 0;
    const auto again = sign::readPropertyList(base::bytesOf(written), "written");
    require(static_cast<bool>(again), "what is written can be read");
    require(sign::applePropertyListXml(*again) == written, "and says the same");
    return 0;
}
