#pragma once

#include "base/Bytes.h"

#include <optional>
#include <vector>

namespace sign {

/// One element in BER (X.690). Both spans lie in the bytes that it was read from.
struct BerElement {
    int tag = 0;
    int tagClass = 0; ///< V_ASN1_UNIVERSAL or another of OpenSSL's
    base::Bytes whole;
    base::Bytes content;

    [[nodiscard]] bool isSequence() const;
    /// Whether it is [number], as the members of a SEQUENCE that may be absent are.
    [[nodiscard]] bool isContext(int number) const;
};

/// The elements that follow each other in `bytes`; absent if these are no BER. Any thread.
[[nodiscard]] std::optional<std::vector<BerElement>> elementsIn(base::Bytes bytes);

/// The first one alone; what follows it is not looked at.
[[nodiscard]] std::optional<BerElement> firstElementIn(base::Bytes bytes);

} // namespace sign
