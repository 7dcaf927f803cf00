#include "sign/bundle/SealRules.h"

#include "base/Printable.h"
#include "sign/bundle/StandardRules.h"

#include <algorithm>

namespace sign {

namespace {

constexpr std::size_t mostRules = 256;
constexpr std::size_t mostPatternBytes = 256;
/// Of a pattern, and of all together: a file takes some 5 ns for each and a byte of its path.
constexpr std::size_t mostStates = 2048;
constexpr std::size_t mostStatesOfAll = 4096;

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

base::Error ruleNotTaken(std::string_view name, std::string_view pattern, const std::string& why) {
    return notTaken(name, "the resource rule \"" +
                              std::string(pattern.substr(0, mostPatternBytes)) + "\", " + why);
}

base::Result<PathPattern> compiled(std::string_view pattern, std::size_t statesLeft,
                                   std::string_view name) {
    if (pattern.size() > mostPatternBytes)
        return ruleNotTaken(name, pattern,
                            "which is longer than " + std::to_string(mostPatternBytes) + " bytes");
    auto result = PathPattern::compile(pattern, std::min(mostStates, statesLeft));
    if (auto* expression = std::get_if<PathPattern>(&result))
        return std::move(*expression);
    switch (std::get<PatternFault>(result)) {
    case PatternFault::Malformed:
        return damaged(name);
    case PatternFault::NotTaken:
        return ruleNotTaken(name, pattern,
                            "with a reference back or an escape that systems read differently");
    case PatternFault::TooLarge:
        break;
    }
    if (statesLeft < mostStates)
        return notTaken(name, "resource rules that take too long to check together");
    return ruleNotTaken(name, pattern, "whose repetitions take too long to check");
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
    std::size_t statesLeft = mostStatesOfAll;
    for (const auto& [text, value] : *rules.dictionary()) {
        const auto rule = ruleOf(value);
        if (!rule)
            return damaged(name);
        if (const PropertyValue* weight = value.find("weight"); weight && !weightOf(*weight))
            return ruleNotTaken(name, text, "whose weight is no number");
        Pattern pattern{standardMatcher(text), {}, *rule};
        if (!pattern.matches) {
            auto expression = compiled(text, statesLeft, name);
            if (!expression)
                return expression.error();
            pattern.expression = *std::move(expression);
            statesLeft -= pattern.expression.size();
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
    for (const Pattern& pattern : patterns_) {
        if (best && pattern.rule.weight <= best->rule.weight)
            continue;
        if (pattern.matches ? pattern.matches(path) : pattern.expression.matches(path))
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
