#pragma once

#include "base/Result.h"
#include "sign/bundle/SealRules.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace sign {

class FileWatch;
class NewFiles;

enum class SealItemKind {
    File,
    Link,
    Bundle, ///< a folder that is sealed as one code object and not entered
    Other,  ///< a socket, a pipe or a device
};

/// One thing below a code root, with the rule for it (absent if none matches). What is excluded
/// does not come up.
struct SealItem {
    std::string path; ///< relative to the code root
    SealItemKind kind;
    std::optional<SealRule> rule;
    std::uint64_t size = 0;

    /// Whether the seal must have an entry for it.
    [[nodiscard]] bool isSealed() const { return rule && !rule->omit; }
    /// Whether macOS refuses it wherever it lies: what is no file, and a .DS_Store that is a link.
    [[nodiscard]] bool isForbidden() const;
};

/// Asked of each folder with a dot in its name outside the places for code: whether it is to be an
/// item of its own all the same. Given the whole path.
using BundleTest = std::function<bool(const std::string& folder)>;

/// What becomes of the hidden files that a signing writes, or has left when it was killed.
enum class Leftovers {
    AreItems, ///< they do not belong to the package
    AreSkipped,
    AreRemoved, ///< those that no process is at are; the others are skipped
};

struct SealWalking {
    BundleTest isBundle{};
    Leftovers leftovers = Leftovers::AreItems;
    const NewFiles* newFiles = nullptr; ///< which will have taken their places
    FileWatch* watch = nullptr;         ///< gets all that is walked
};

/// All things below the code root of a bundle, sorted within their folder; links are not followed.
[[nodiscard]] base::Result<std::vector<SealItem>>
sealItems(const Bundle& bundle, const SealRules& rules, const SealWalking& walking = {});

/// Refuses what must not be sealed: AppleDouble files, which turn into extended attributes where a
/// package is unpacked, devices, and a .DS_Store that is a link.
[[nodiscard]] base::Outcome checkSealable(const Bundle& bundle, const SealItem& item);

} // namespace sign
