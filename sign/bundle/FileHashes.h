#pragma once

#include "base/Result.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace sign {

class AsideFile;

/// A file to be hashed, and then its hashes.
struct FileHashes {
    std::string path;
    std::uint64_t size = 0; ///< when it was listed: large ones go first
    bool wantsSha1 = false;
    bool wantsSha256 = true;
    std::array<std::uint8_t, 20> sha1{};
    std::array<std::uint8_t, 32> sha256{};
    bool mayBeCode = false;                ///< it starts like a Mach-O file of any form
    bool isMissing = false;                ///< it is no longer there, or no longer a plain file
    const AsideFile* newVersion = nullptr; ///< hashed in place of the file, if there is one
};

/// Reads each file once and fills in what is wanted, on `threads` threads. Changed if a file
/// changes while it is read; a missing one is marked, any other failure is the error. Several
/// callers may run it at once.
[[nodiscard]] base::Outcome hashFiles(std::vector<FileHashes>& files, unsigned threads);

} // namespace sign
