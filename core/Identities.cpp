#include "core/Identities.h"

#include "core/Log.h"
#include "core/ShellRunners.h"
#include "core/Text.h"

#include <algorithm>

namespace {

std::string replacingAll(std::string text, std::string_view placeholder, std::string_view value) {
    for (std::size_t at = 0; (at = text.find(placeholder, at)) != std::string::npos;
         at += value.size())
        text.replace(at, placeholder.size(), value);
    return text;
}

std::optional<IdentityRecord> identityFromLine(std::string_view line) {
    const std::vector<std::string_view> pieces = split(trimmed(line), "$$");
    if (pieces.size() != 2)
        return std::nullopt;
    const std::string title(trimmed(pieces.front()));
    const std::string holder(trimmed(pieces.back()));
    if (title.empty() || lowercased(title).starts_with("iphone"))
        return std::nullopt;
    return IdentityRecord{title, holder, formatted("%@: %@", title, holder)};
}

} // namespace

void describe(BoundedText& out, const IdentityRecord& record) {
    describeRecord(out, {{"displaystring", record.displaystring},
                         {"identitystring", record.identitystring},
                         {"title", record.title}});
}

std::string identityListingCommand(const ToolPaths& tools) {
    std::string command =
        R"([SECURITYCMD] find-identity -v -p codesigning | [AWKCMD] -F '"' '{print $2}')"
        R"( | awk -F ':' '{print$1"$$"$2}')";
    command = replacingAll(std::move(command), "[SECURITYCMD]", tools.security);
    return replacingAll(std::move(command), "[AWKCMD]", tools.awk);
}

IdentityList identitiesFromListing(std::string_view output) {
    const std::string doNotCodesign(doNotCodesignIdentity);
    IdentityList list = {{doNotCodesign, doNotCodesign, "Do NOT Codesign"}};
    for (std::string_view line : split(output, "\n")) {
        if (std::optional<IdentityRecord> identity = identityFromLine(line))
            list.push_back(std::move(*identity));
    }
    return list;
}

std::optional<IdentityList> codesigningIdentities(const Caller& caller, const ToolPaths& tools) {
    const Caller here = caller.in("getCodesigningIdentities");
    here.step("...");
    const std::string command = identityListingCommand(tools);
    here.step("...cmd = \n[%@]", command);
    const auto output = VornNSStringAdditions::outputWhenRunAsShellCommand(command);
    logEvent("result = %@", output);
    if (!output)
        return std::nullopt;
    IdentityList list = identitiesFromListing(*output);
    logEvent("list of identities[%lu] = %@", list.size(), list);
    return list;
}

std::size_t selectionIndex(const IdentityList& list,
                           const std::optional<std::string>& identitystring) {
    if (!identitystring)
        return 0;
    const auto match = std::ranges::find_if(list, [&](const IdentityRecord& record) {
        return equalsIgnoringCase(record.identitystring, *identitystring);
    });
    return static_cast<std::size_t>(match - list.begin());
}
