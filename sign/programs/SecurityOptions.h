#pragma once

#include "base/Result.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace sign {

/// The command line of kelpmoray-security, read: a command, its options and what stands for itself.
struct SecurityOptions {
    std::string command; ///< "help" and "version" too
    /// By their names without dashes; those without a value have an empty one.
    std::map<std::string, std::string, std::less<>> options;
    std::vector<std::string> arguments;

    [[nodiscard]] bool has(std::string_view option) const {
        return options.find(option) != options.end();
    }
    /// Empty if it was not given.
    [[nodiscard]] std::string value(std::string_view option) const {
        const auto found = options.find(option);
        return found == options.end() ? std::string() : found->second;
    }
};

/// `arguments` are those behind the program's name. An error is one of usage.
[[nodiscard]] base::Result<SecurityOptions>
readSecurityOptions(const std::vector<std::string>& arguments);

extern const char* const securityUsage;

} // namespace sign
