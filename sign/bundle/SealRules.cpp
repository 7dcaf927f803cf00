#include "sign/bundle/SealRules.h"

#include "base/Printable.h"
#include "sign/bundle/StandardRules.h"

#include <algorithm>

#include <regex.h>

namespace sign {

namespace {

constexpr std::size_t mostRules = 256;
constexpr std::size_t mostPatternBytes = 256;
constexpr std::ptrdiff_t mostPluses = 6;

base::Error damaged(std::string_view name) {
    return {base::ErrorKind::Damaged, "The resource rules in \"" + base::printable(name) +
                                          "\" cannot be used. Sign the package anew."};
}

/// The platform may well take it, so nobody is told that the package was modified.
base::Error notTaken(std::string_view name, std::string_view what) {
    return {base::ErrorKind::Unsupported, "\"" + base::printable(name) + "\" has " +
                                              base::printable(what) + ". Sign the package anew."};
}

std::optional<double> weightOf(const PropertyValue& value) {
    if (const double* real = value.real())
        return *real;
    if (const std::int64_t* integer = value.integer())
        return static_cast<double>(*integer);
    return std::nullopt;
}

/// Absent if the value is no rule.
std::optional<SealRule> ruleOf(const PropertyValue& value) {
    SealRule rule;
    if (const bool* included = value.boolean()) {
        rule.omit = !*included;
        return rule;
    }
    if (!value.dictionary())
        return std::nullopt;
    if (const PropertyValue* weight = value.find("weight"))
        rule.weight = weightOf(*weight).value_or(rule.weight);
    const auto isSet = [&](std::string_view key) {
        const PropertyValue* flag = value.find(key);
        return flag && flag->boolean() && *flag->boolean();
    };
    rule.omit = isSet("omit");
    rule.optional = isSet("optional");
    rule.nested = isSet("nested");
    return rule;
}

/// Counted repetitions, many nested "+" (each of which glibc takes for two copies) and references
/// back let a short pattern take all memory or time.
bool isHarmless(const std::string& pattern) {
    if (pattern.find('{') != std::string::npos || pattern.find('\0') != std::string::npos ||
        std::count(pattern.begin(), pattern.end(), '+') > mostPluses)
        return false;
    const auto isBackReference = [](char first, char second) {
        return first == '\\' && second >= '0' && second <= '9';
    };
    return std::adjacent_find(pattern.begin(), pattern.end(), isBackReference) == pattern.end();
}

std::shared_ptr<const regex_t> compiled(const std::string& pattern) {
    auto* expression = new regex_t();
    if (regcomp(expression, pattern.c_str(), REG_EXTENDED | REG_NOSUB) != 0) {
        delete expression;
        return nullptr;
    }
    return {expression, [](regex_t* owned) {
                regfree(owned);
                delete owned;
            }};
}

bool isExcluded(std::string_view path) {
    return path == "_CodeSignature" || path == "CodeResources" || path == "_MASReceipt";
}

} // namespace

base::Result<SealRules> SealRules::read(const PropertyValue& rules, const Bundle& bundle,
                                        std::string_view name) {
    if (!rules.dictionary())
        return damaged(name);
    if (rules.dictionary()->size() > mostRules)
        return notTaken(name, "more than " + std::to_string(mostRules) + " resource rules");
    SealRules result;
    for (const auto& [text, value] : *rules.dictionary()) {
        const auto rule = ruleOf(value);
        if (!rule)
            return damaged(name);
        const auto refusal = [&, &pattern = text](std::string_view why) {
            return notTaken(name, "the resource rule \"" + pattern.substr(0, mostPatternBytes) +
                                      "\", " + std::string(why));
        };
        if (const PropertyValue* weight = value.find("weight"); weight && !weightOf(*weight))
            return refusal("whose weight is no number");
        Pattern pattern{standardMatcher(text), nullptr, *rule};
        if (!pattern.matches) {
            if (text.size() > mostPatternBytes)
                return refusal("which is longer than " + std::to_string(mostPatternBytes) +
                               " bytes");
            if (!isHarmless(text))
                return refusal(
                    "whose counts in braces, many + or references back take too long to check");
            pattern.expression = compiled(text);
            if (!pattern.expression)
                return damaged(name);
        }
        result.patterns_.push_back(std::move(pattern));
    }
    const std::string inside = bundle.codeRoot + "/";
    if (bundle.executable.starts_with(inside))
        result.mainExecutable_ = bundle.executable.substr(inside.size());
    return result;
}

std::optional<SealRule> SealRules::find(std::string_view path) const {
    if (isExcluded(path) || (path == mainExecutable_ && !path.empty())) {
        SealRule rule;
        rule.exclude = true;
        rule.mainExecutable = path == mainExecutable_;
        return rule;
    }
    const Pattern* best = nullptr;
    std::string terminated;
    for (const Pattern& pattern : patterns_) {
        if (best && pattern.rule.weight <= best->rule.weight)
            continue;
        if (pattern.expression && terminated.empty())
            terminated = path;
        if (pattern.matches ? pattern.matches(path)
                            : regexec(static_cast<const regex_t*>(pattern.expression.get()),
                                      terminated.c_str(), 0, nullptr, 0) == 0)
            best = &pattern;
    }
    return best ? std::optional(best->rule) : std::nullopt;
}

bool SealRules::includes(std::string_view path) const {
    const auto top = find(path.substr(0, path.find('/')));
    if (top && top->exclude)
        return top->mainExecutable;
    const auto rule = find(path);
    return rule && (rule->mainExecutable || (!rule->omit && !rule->exclude));
}

bool areWeak(const PropertyValue& rules, bool isVersion1, BundleForm form) {
    const PropertyValue* catchAll = rules.find(isVersion1 ? "^Resources/" : "^.*");
    if (!catchAll || !catchAll->boolean() || !*catchAll->boolean())
        return true;
    return std::any_of(rules.dictionary()->begin(), rules.dictionary()->end(),
                       [&](const auto& entry) {
                           const auto rule = ruleOf(entry.second);
                           return rule && rule->omit && !mayOmit(entry.first, form);
                       });
}

} // namespace sign
