#include "core/SignatureCheck.h"
#include "core/Text.h"
#include "tests/fuzz/FuzzInput.h"

#include <algorithm>

/// What the inspector printed, a zero byte, and what the identity tool printed.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = FuzzInput(data, size).rest();
    const std::string_view output = input.substr(0, input.find('\0'));
    const IdentityList list = identitiesFromListing(input.substr(output.size()));

    const std::vector<std::string> authorities = authoritiesIn(output);
    std::string joined;
    for (const std::string& authority : authorities) {
        require(authority.find('\n') == std::string::npos, "an authority is one line");
        joined += (&authority == authorities.data() ? "" : "\n") + authority;
    }
    const std::size_t first = output.find_first_not_of(" \t\n\v\f\r");
    require(first == std::string_view::npos
                ? joined.empty()
                : joined ==
                      output.substr(first, output.find_last_not_of(" \t\n\v\f\r") + 1 - first),
            "no authority is lost");

    std::size_t asked = 0;
    const std::optional<std::string> found = knownAuthority(authorities, [&] {
        ++asked;
        return list;
    });
    const auto isKnown = [&](const std::string& authority) {
        return std::ranges::any_of(
            list, [&](const IdentityRecord& record) { return record.displaystring == authority; });
    };
    require(asked <= authorities.size(), "asked at most once for each authority");
    for (std::size_t i = 0; i < asked; ++i) {
        const bool isLast = found && i + 1 == asked;
        require(isKnown(authorities[i]) == isLast, "the first known authority ends the search");
        require(!isLast || *found == authorities[i], "that authority is the one found");
    }
    require(found || asked == authorities.size(), "all were looked for before giving up");
    return 0;
}
