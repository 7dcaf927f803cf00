#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/// What processing entries of the work set will do, said beforehand.
struct Expectation {
    std::vector<std::string> packages; ///< their paths; those of one entry sorted by name
    std::size_t replaced = 0;          ///< how many have an archive beside them already
};

/// How packages are going to be signed.
struct Signing {
    bool doNotCodesign = false;
    std::optional<std::string> identity; ///< the selected one, if there is one

    bool operator==(const Signing&) const = default;
};

/// Finds the packages that processing finds. Reads the disk and logs nothing. Any thread.
[[nodiscard]] Expectation expectationOf(const std::string& entry);
[[nodiscard]] Expectation expectationOf(const std::vector<std::string>& entries);

/// "7 packages, signed as Jane Doe (AB12CD34EF)", "1 package, not signed", "no packages".
[[nodiscard]] std::string textOf(const Expectation& expectation, const Signing& signing);
/// While there is nothing to process: "Packages will be signed as Jane Doe (AB12CD34EF)".
[[nodiscard]] std::string textOf(const Signing& signing);
/// What to rename first, since the command line cannot hand it to a script; empty if nothing is.
[[nodiscard]] std::string renamingText(const Expectation& expectation);
/// "3 archives will be replaced"; empty if none will.
[[nodiscard]] std::string replacedText(const Expectation& expectation);
