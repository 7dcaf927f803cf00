#include "sign/cms/BerElements.h"

#include "sign/crypto/OpenSsl.h"

namespace sign {
namespace {

constexpr unsigned deepest = 32;
constexpr std::size_t endSize = 2;

bool isAtEnd(base::Bytes bytes) {
    return bytes.size() >= endSize && bytes[0] == 0 && bytes[1] == 0;
}

std::optional<BerElement> read(base::Bytes bytes, unsigned depth) {
    const unsigned char* content = bytes.data();
    long length = 0;
    BerElement element;
    const int form = ASN1_get_object(&content, &length, &element.tag, &element.tagClass,
                                     static_cast<long>(bytes.size()));
    constexpr int failed = 0x80;
    constexpr int indefinite = 0x01;
    if (bytes.empty() || (form & failed) != 0) {
        forgetOpenSslErrors();
        return std::nullopt;
    }
    const base::Bytes behind = bytes.subspan(static_cast<std::size_t>(content - bytes.data()));
    if ((form & indefinite) == 0) {
        element.content = behind.first(static_cast<std::size_t>(length));
        element.whole = bytes.first(bytes.size() - behind.size() + element.content.size());
        return element;
    }
    base::Bytes rest = behind;
    while (!isAtEnd(rest)) {
        const auto inner = depth < deepest ? read(rest, depth + 1) : std::nullopt;
        if (!inner)
            return std::nullopt;
        rest = rest.subspan(inner->whole.size());
    }
    element.content = behind.first(behind.size() - rest.size());
    element.whole = bytes.first(bytes.size() - rest.size() + endSize);
    return element;
}

} // namespace

bool BerElement::isSequence() const {
    return tagClass == V_ASN1_UNIVERSAL && tag == V_ASN1_SEQUENCE;
}

bool BerElement::isContext(int number) const {
    return tagClass == V_ASN1_CONTEXT_SPECIFIC && tag == number;
}

std::optional<BerElement> firstElementIn(base::Bytes bytes) {
    return read(bytes, 0);
}

std::optional<std::vector<BerElement>> elementsIn(base::Bytes bytes) {
    std::vector<BerElement> elements;
    while (!bytes.empty()) {
        auto element = read(bytes, 0);
        if (!element)
            return std::nullopt;
        bytes = bytes.subspan(element->whole.size());
        elements.push_back(*element);
    }
    return elements;
}

} // namespace sign
