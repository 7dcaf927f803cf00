#include "core/IdentityChoice.h"

#include "core/Path.h"
#include "core/ShellRunners.h"
#include "core/Text.h"

#include <algorithm>
#include <functional>

namespace {

constexpr std::size_t hashDigits = 40;

bool isHexadecimal(std::string_view text) {
    return text.find_first_not_of("0123456789ABCDEFabcdef") == std::string_view::npos;
}

/// None if the line is not of the form `N) HASH "NAME"`.
std::optional<ListedIdentity> identityInLine(std::string_view line) {
    const std::size_t parenthesis = line.find(") ");
    const std::size_t quote = line.find('"');
    const std::size_t lastQuote = line.rfind('"');
    if (parenthesis == std::string_view::npos || quote == lastQuote || quote < parenthesis)
        return std::nullopt;
    const std::string_view hash = trimmed(line.substr(parenthesis + 1, quote - parenthesis - 1));
    const std::string_view name = line.substr(quote + 1, lastQuote - quote - 1);
    if (hash.size() != hashDigits || !isHexadecimal(hash) || lowercased(name).starts_with("iphone"))
        return std::nullopt;
    return ListedIdentity{std::string(hash), std::string(name)};
}

/// What the identity tool prints; if it fails, an error with its words.
base::Result<std::string> answerOf(const ToolPaths& tools, const std::string& arguments) {
    // A runner tells no status, so the shell prints it behind the output.
    const std::string output = VornNSStringAdditions::outputWhenRunAsShellCommand(
                                   tools.security + ' ' + arguments + " 2>&1; printf '\n%d' $?")
                                   .value_or("");
    if (output.ends_with("\n0"))
        return output;
    std::string_view said = trimmed(std::string_view(output).substr(0, output.rfind('\n')));
    const std::size_t program = said.find(": ");
    if (program != std::string_view::npos && said.starts_with(lastPathComponent(tools.security)))
        said.remove_prefix(program + 2);
    return base::Error{base::ErrorKind::Unavailable,
                       said.empty() ? tools.security + " said nothing. Try it alone."
                                    : std::string(said)};
}

std::string asLines(const std::vector<ListedIdentity>& identities) {
    std::string lines = "\n";
    for (const ListedIdentity& identity : identities)
        lines.append("  ").append(lineOf(identity)).append("\n");
    return lines;
}

} // namespace

std::vector<ListedIdentity> identitiesWithHashes(std::string_view output) {
    std::vector<ListedIdentity> identities;
    for (const std::string_view line : split(output, "\n")) {
        auto identity = identityInLine(line);
        const bool isKnown = identity && std::ranges::any_of(identities, [&](const auto& known) {
                                 return known.hash == identity->hash;
                             });
        if (identity && !isKnown)
            identities.push_back(*std::move(identity));
    }
    return identities;
}

std::string_view holderOf(std::string_view name) {
    const std::size_t colon = name.find(':');
    return colon == std::string_view::npos ? name : trimmed(name.substr(colon + 1));
}

std::string lineOf(const ListedIdentity& identity) {
    return identity.hash + "  " + identity.name;
}

base::Result<std::vector<ListedIdentity>> listedIdentities(const ToolPaths& tools) {
    // Without the tool the shell would complain to a person who may not even want to sign.
    if (!fileExists(tools.security))
        return base::Error{base::ErrorKind::Unavailable,
                           "There are no identities, as " + tools.security +
                               " is missing. Install Kelpmoray again."};
    const auto output = answerOf(tools, "find-identity -v -p codesigning");
    if (!output)
        return output.error();
    return identitiesWithHashes(*output);
}

base::Outcome checkKey(const ToolPaths& tools, const ListedIdentity& identity) {
    if (!tools.hasOwnSecurity())
        return {}; // the system asks the user when it needs the key
    if (const auto answer = answerOf(tools, "check-key -Z " + identity.hash); !answer)
        return answer.error();
    return {};
}

base::Result<ListedIdentity> chosenIdentity(const std::vector<ListedIdentity>& identities,
                                            std::string_view wanted) {
    // From the narrowest meaning to the widest; the first that anything fits decides.
    const std::function<bool(const ListedIdentity&)> meanings[] = {
        [&](const auto& identity) { return equalsIgnoringCase(identity.hash, wanted); },
        [&](const auto& identity) { return lineOf(identity) == wanted; },
        [&](const auto& identity) { return identity.name == wanted; },
        [&](const auto& identity) {
            return identity.name.starts_with("Developer ID Application:") &&
                   holderOf(identity.name) == wanted;
        },
        [&](const auto& identity) { return holderOf(identity.name) == wanted; },
        [&](const auto& identity) { return identity.name.find(wanted) != std::string_view::npos; }};
    for (const auto& fits : meanings) {
        std::vector<ListedIdentity> fitting;
        std::ranges::copy_if(identities, std::back_inserter(fitting), fits);
        if (fitting.size() == 1)
            return fitting.front();
        if (fitting.size() > 1)
            return base::Error{base::ErrorKind::Conflict,
                               "Several identities fit \"" + std::string(wanted) +
                                   "\":" + asLines(fitting) + "Give the hash of one of them."};
    }
    if (identities.empty())
        return base::Error{
            base::ErrorKind::NotFound,
            "There is no valid identity. Import yours with kelpmoray-security import."};
    return base::Error{base::ErrorKind::NotFound,
                       "No valid identity fits \"" + std::string(wanted) + "\". There are:" +
                           asLines(identities) + "Give one of these, or import yours."};
}
