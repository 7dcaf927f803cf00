#pragma once

#include "base/Result.h"

#include <optional>
#include <string>
#include <vector>

/// What the command line asks for.
struct Options {
    bool processAll = false;
    bool doNotCodesign = false;
    bool listIdentities = false;
    bool verbose = false;
    bool help = false;
    bool version = false;
    std::optional<std::string> identity; ///< the holder, as in "Jane Doe (TEAMID)"
    std::vector<std::string> paths;
};

/// `arguments` are those behind the program's name; "--" ends the options.
[[nodiscard]] base::Result<Options> parseOptions(const std::vector<std::string>& arguments);

/// What --help prints.
[[nodiscard]] const char* helpText();
