#pragma once

#include "base/Result.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What the command line asks for.
struct Options {
    bool processAll = false;
    bool doNotCodesign = false;
    bool requireSignature = false;
    bool listIdentities = false;
    bool listPackages = false;
    bool nullSeparated = false; ///< the listed packages end in a zero byte each
    bool json = false;
    bool quiet = false;
    bool verbose = false;
    bool help = false;
    bool version = false;
    bool reproducible = false;
    std::optional<std::string> identity; ///< what chosenIdentity() understands
    std::optional<std::string> level;    ///< of compression, "1" to "9"
    std::optional<std::string> entitlements;
    std::optional<std::string> timestamp; ///< a URL or "none"
    std::optional<std::string> jobs;
    std::vector<std::string> paths;

    /// 0 stands for as many as pay off.
    [[nodiscard]] unsigned jobCount() const;
};

/// `arguments` are those behind the program's name; "--" ends the options.
[[nodiscard]] base::Result<Options> parseOptions(const std::vector<std::string>& arguments);

/// What --help prints.
[[nodiscard]] std::string helpText();

/// The one of `known` that `given` is most likely a slip of; empty if none is near.
[[nodiscard]] std::string_view nearest(std::string_view given,
                                       const std::vector<std::string_view>& known);
