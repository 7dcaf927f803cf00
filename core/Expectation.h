#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/// What processing an entry of the work set will do, said beforehand.
struct Expectation {
    std::vector<std::string> packages; ///< their paths, by name
    std::size_t replaced = 0;          ///< how many have an archive beside them already
};

/// Looks at the disk, without a word in the log. Any thread.
[[nodiscard]] Expectation expectationOf(const std::string& entry);

/// "7 packages, signed as Jane Doe (AB12CD34EF)", "1 package, not signed", "no packages".
/// `identity` is the one picked, none if there is none.
[[nodiscard]] std::string textOf(const Expectation& expectation, bool doNotCodesign,
                                 const std::optional<std::string>& identity);
/// "3 archives will be replaced"; empty if none will.
[[nodiscard]] std::string replacedText(const Expectation& expectation);
