#pragma once

#include "base/Result.h"
#include "sign/bundle/Bundle.h"
#include "sign/bundle/PathPattern.h"
#include "sign/bundle/StandardRules.h"
#include "sign/plist/PropertyList.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sign {

/// What the rules say of one path.
struct SealRule {
    double weight = 1;
    bool omit = false;
    bool optional = false;
    bool nested = false;
    bool exclude = false;        ///< not looked at: the signature itself, a store receipt
    bool mainExecutable = false; ///< excluded because the code directory covers it
};

/// The rules that say which files of a bundle are sealed, and how (Apple's TN2206). Paths are
/// relative to the code root. Several threads may ask at once.
class SealRules {
public:
    /// Of a seal's `rules` or `rules2`; Damaged if a pattern or a rule cannot be read, Unsupported
    /// if one is not taken here that the platform may take. `name` is the file that an error names.
    [[nodiscard]] static base::Result<SealRules> read(const PropertyValue& rules,
                                                      const Bundle& bundle, std::string_view name);

    /// What signing writes: `rules2` for all files, and the old `rules` for resources alone.
    [[nodiscard]] static PropertyValue standard(BundleForm form);
    [[nodiscard]] static PropertyValue standardVersion1(BundleForm form);

    /// The rule with the greatest weight among those that match; absent if none does.
    [[nodiscard]] std::optional<SealRule> find(std::string_view path) const;

    /// Whether a link may lead to `path`: it is sealed, or the main executable.
    [[nodiscard]] bool includes(std::string_view path) const;

private:
    /// A pattern that is known is matched by a plain function, any other by its expression: the
    /// cost of a file must stay small for packages of 100,000.
    struct Pattern {
        PathMatcher matches = nullptr;
        PathPattern expression;
        SealRule rule;
    };

    std::vector<Pattern> patterns_;
    std::string mainExecutable_;
};

/// Whether rules leave out more than the platform allows: "custom omit rules".
[[nodiscard]] bool areWeak(const PropertyValue& rules, bool isVersion1, BundleForm form);

} // namespace sign
