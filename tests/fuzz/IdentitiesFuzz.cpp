#include "core/Identities.h"
#include "core/Text.h"
#include "tests/fuzz/FuzzInput.h"

#include <cctype>
#include <sstream>

#include <strings.h>

namespace {

std::string stripped(std::string text) {
    const auto isBlank = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    while (!text.empty() && isBlank(text.back()))
        text.pop_back();
    while (!text.empty() && isBlank(text.front()))
        text.erase(0, 1);
    return text;
}

IdentityList expectedIdentities(const std::string& output) {
    IdentityList list = {{"donotcodesign", "donotcodesign", "Do NOT Codesign"}};
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        line = stripped(line);
        const std::size_t seam = line.find("$$");
        if (seam == std::string::npos || line.find("$$", seam + 2) != std::string::npos)
            continue;
        const std::string title = stripped(line.substr(0, seam));
        const std::string holder = stripped(line.substr(seam + 2));
        if (!title.empty() && strncasecmp(title.c_str(), "iphone", 6) != 0)
            list.push_back({title, holder, title + ": " + holder});
    }
    return list;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string output(FuzzInput(data, size).rest());
    const IdentityList list = identitiesFromListing(output);
    const IdentityList expected = expectedIdentities(output);
    require(list.size() == expected.size(), "one record a well-formed line");
    for (std::size_t i = 0; i < list.size(); ++i) {
        require(list[i].title == expected[i].title, "title");
        require(list[i].identitystring == expected[i].identitystring, "holder");
        require(list[i].displaystring == expected[i].displaystring, "text for display");
        const std::size_t selected = selectionIndex(list, list[i].identitystring);
        require(selected <= i, "the first of equal holders is selected");
        require(equalsIgnoringCase(list[selected].identitystring, list[i].identitystring),
                "the selected holder is the one asked for");
    }
    require(selectionIndex(list, output + "!") == list.size(), "nobody has such a long name");
    return 0;
}
