#include "sign/bundle/StandardRules.h"

#include "sign/bundle/SealRules.h"

#include <algorithm>
#include <array>

namespace sign {

namespace {

constexpr std::string_view resourcesPrefix = "Resources/";
constexpr std::string_view flatPrefix;

bool anything(std::string_view) {
    return true;
}

bool atTheTop(std::string_view path) {
    return !path.empty() && path.find('/') == std::string_view::npos;
}

bool amongCode(std::string_view path) {
    constexpr std::array<std::string_view, 10> places = {
        "Frameworks/",        "SharedFrameworks/",  "PlugIns/", "Plug-ins/",
        "XPCServices/",       "Helpers/",           "MacOS/",   "Library/Automator/",
        "Library/Spotlight/", "Library/LoginItems/"};
    return std::any_of(places.begin(), places.end(),
                       [&](std::string_view place) { return path.starts_with(place); });
}

bool amongDebugSymbols(std::string_view path) {
    constexpr std::string_view extension = ".dSYM";
    for (std::size_t at = path.find(extension); at != std::string_view::npos;
         at = path.find(extension, at + 1)) {
        const std::size_t end = at + extension.size();
        if (end == path.size() || path[end] == '/')
            return true;
    }
    return false;
}

bool desktopsFile(std::string_view path) {
    return path == ".DS_Store" || path.ends_with("/.DS_Store");
}

template <const std::string_view& name>
bool named(std::string_view path) {
    return path == name;
}

template <const std::string_view& prefix>
bool resource(std::string_view path) {
    return path.starts_with(prefix);
}

template <const std::string_view& prefix>
bool localized(std::string_view path) {
    return path.starts_with(prefix) &&
           path.find(".lproj/", prefix.size()) != std::string_view::npos;
}

template <const std::string_view& prefix>
bool baseLocalized(std::string_view path) {
    return path.starts_with(prefix) && path.substr(prefix.size()).starts_with("Base.lproj/");
}

/// The pattern has a dot that stands for any letter.
bool endsLikeVersionPlist(std::string_view path, std::string_view stem) {
    constexpr std::string_view extension = "plist";
    return path.size() >= stem.size() + 1 + extension.size() && path.ends_with(extension) &&
           path.substr(0, path.size() - extension.size() - 1).ends_with(stem);
}

template <const std::string_view& prefix>
bool localizedVersion(std::string_view path) {
    return path.starts_with(prefix) &&
           endsLikeVersionPlist(path.substr(prefix.size()), ".lproj/locversion");
}

bool looseVersion(std::string_view path) {
    constexpr std::string_view like = "version.plist";
    return path.size() == like.size() && endsLikeVersionPlist(path, "version");
}

constexpr std::string_view infoName = "Info.plist";
constexpr std::string_view versionName = "version.plist";
constexpr std::string_view profileName = "embedded.provisionprofile";
constexpr std::string_view packageName = "PkgInfo";

struct StandardPattern {
    std::string_view text;
    PathMatcher matches;
};

constexpr std::array standardPatterns = {
    StandardPattern{"^.*", anything},
    StandardPattern{"^[^/]+$", atTheTop},
    StandardPattern{"^(Frameworks|SharedFrameworks|PlugIns|Plug-ins|XPCServices|Helpers|MacOS|"
                    "Library/(Automator|Spotlight|LoginItems))/",
                    amongCode},
    StandardPattern{".*\\.dSYM($|/)", amongDebugSymbols},
    StandardPattern{"^(.*/)?\\.DS_Store$", desktopsFile},
    StandardPattern{"^Info\\.plist$", named<infoName>},
    StandardPattern{"^version\\.plist$", named<versionName>},
    StandardPattern{"^embedded\\.provisionprofile$", named<profileName>},
    StandardPattern{"^PkgInfo$", named<packageName>},
    StandardPattern{"^version.plist$", looseVersion},
    StandardPattern{"^Resources/", resource<resourcesPrefix>},
    StandardPattern{"^Resources/.*\\.lproj/", localized<resourcesPrefix>},
    StandardPattern{"^Resources/Base\\.lproj/", baseLocalized<resourcesPrefix>},
    StandardPattern{"^Resources/.*\\.lproj/locversion.plist$", localizedVersion<resourcesPrefix>},
    StandardPattern{"^.*\\.lproj/", localized<flatPrefix>},
    StandardPattern{"^Base\\.lproj/", baseLocalized<flatPrefix>},
    StandardPattern{"^.*\\.lproj/locversion.plist$", localizedVersion<flatPrefix>},
};

PropertyValue weighted(double weight, const char* flag = nullptr) {
    PropertyDictionary rule;
    if (flag)
        rule.emplace_back(flag, true);
    rule.emplace_back("weight", weight);
    return rule;
}

void addLocalized(PropertyDictionary& rules, const std::string& prefix) {
    rules.emplace_back("^" + prefix + ".*\\.lproj/", weighted(1000, "optional"));
    rules.emplace_back("^" + prefix + "Base\\.lproj/", weighted(1010));
    rules.emplace_back("^" + prefix + ".*\\.lproj/locversion.plist$", weighted(1100, "omit"));
}

std::string prefixOf(BundleForm form) {
    return std::string(form == BundleForm::Flat ? flatPrefix : resourcesPrefix);
}

} // namespace

PathMatcher standardMatcher(std::string_view pattern) {
    const auto* found =
        std::find_if(standardPatterns.begin(), standardPatterns.end(),
                     [&](const StandardPattern& known) { return known.text == pattern; });
    return found == standardPatterns.end() ? nullptr : found->matches;
}

bool mayOmit(std::string_view pattern, BundleForm form) {
    return pattern == "^(.*/)?\\.DS_Store$" || pattern == "^Info\\.plist$" ||
           pattern == "^PkgInfo$" ||
           pattern == "^" + prefixOf(form) + ".*\\.lproj/locversion.plist$";
}

PropertyValue SealRules::standard(BundleForm form) {
    PropertyDictionary rules;
    rules.emplace_back("^.*", true);
    rules.emplace_back(".*\\.dSYM($|/)", weighted(11));
    rules.emplace_back("^(.*/)?\\.DS_Store$", weighted(2000, "omit"));
    rules.emplace_back("^Info\\.plist$", weighted(20, "omit"));
    rules.emplace_back("^version\\.plist$", weighted(20));
    rules.emplace_back("^embedded\\.provisionprofile$", weighted(20));
    rules.emplace_back("^PkgInfo$", weighted(20, "omit"));
    if (form != BundleForm::Flat) {
        rules.emplace_back("^[^/]+$", weighted(10, "nested"));
        rules.emplace_back(std::string(standardPatterns[2].text), weighted(10, "nested"));
        rules.emplace_back("^Resources/", weighted(20));
    }
    addLocalized(rules, prefixOf(form));
    return rules;
}

PropertyValue SealRules::standardVersion1(BundleForm form) {
    PropertyDictionary rules;
    rules.emplace_back("^version.plist$", true);
    rules.emplace_back(form == BundleForm::Flat ? "^.*" : "^Resources/", true);
    addLocalized(rules, prefixOf(form));
    return rules;
}

} // namespace sign
