#pragma once

#include "base/ByteReader.h"
#include "tests/support/TemporaryFolder.h"

#include <random>
#include <string>
#include <string_view>
#include <vector>

[[nodiscard]] inline std::string operator/(const TemporaryFolder& folder, const std::string& name) {
    return folder.path(name);
}

struct ShellResult {
    /// Exit status, or 128 and the signal's number.
    int status = 0;
    /// Standard output and standard error.
    std::string output;
};

[[nodiscard]] ShellResult runInShell(const std::string& command);
/// For use in a command of the shell.
[[nodiscard]] std::string shellQuoted(const std::string& text);

/// Makes the folders on the way as well.
void writeFile(const std::string& path, std::string_view content);
/// A file of `size` zero bytes that takes no room on the disk.
void writeSparseFile(const std::string& path, std::uintmax_t size);
[[nodiscard]] std::vector<std::string> namesIn(const std::string& folder);

/// Bytes that do not compress.
[[nodiscard]] std::string randomBytes(std::mt19937& random, std::size_t size);
/// Bytes like those of programs and texts: repetitions at all distances between literals.
[[nodiscard]] std::string compressibleBytes(std::mt19937& random, std::size_t size);

/// The content of a deflate stream that holds `size` bytes, as the library decompresses it.
[[nodiscard]] std::string inflate(base::Bytes stream, std::size_t size);
