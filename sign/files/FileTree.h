#pragma once

#include "base/Bytes.h"
#include "base/Result.h"
#include "sign/files/FileStamp.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace sign {

/// One entry of a folder; links are not followed.
struct FileEntry {
    std::string name;
    mode_t mode = 0;
    FileStamp stamp{};

    [[nodiscard]] bool isFolder() const;
    [[nodiscard]] bool isFile() const;
    [[nodiscard]] bool isLink() const;
    /// A file that nobody may execute.
    [[nodiscard]] bool isPlainData() const;
};

/// All but "." and "..", sorted by the bytes of their names.
[[nodiscard]] base::Result<std::vector<FileEntry>> entriesOf(const std::string& folder);

/// The names of all but "." and "..", in no order; much faster than entriesOf().
[[nodiscard]] base::Result<std::vector<std::string>> namesIn(const std::string& folder);

/// Whether a link at the end of a path is followed: a person may name a file through one, but what
/// stands in a package is the link.
enum class Links { Follow, Refuse };

/// The bytes of a plain file; Unsupported if there are more than `most`, or if it is no plain file.
/// `stamp`, if given, gets that of the file before. Any thread.
[[nodiscard]] base::Result<base::OwnedBytes> wholeFile(const std::string& path, Links links,
                                                       std::uint64_t most = 16U << 20U,
                                                       FileStamp* stamp = nullptr);

/// Where a link leads, as it says; absent if it is none.
[[nodiscard]] std::optional<std::string> linkTarget(const std::string& path);

/// Whether these are there; links are followed.
[[nodiscard]] bool isFolder(const std::string& path);
[[nodiscard]] bool isFile(const std::string& path);

/// Same as isFile(); an error if the system does not tell, as in a folder that may not be searched.
[[nodiscard]] base::Result<bool> hasFile(const std::string& path);

/// The path without links; absent if nothing is there.
[[nodiscard]] std::optional<std::string> realPath(const std::string& path);

/// The path without slashes at its end, but for that of the root.
[[nodiscard]] std::string withoutSlashes(std::string_view path);

/// Whether the text of a path says that it lies in one of the folders.
[[nodiscard]] bool liesInOneOf(const std::set<std::string, std::less<>>& folders,
                               std::string_view path);

/// Whether the names differ in the case of ASCII letters at most.
[[nodiscard]] bool sameWithoutCase(std::string_view left, std::string_view right);

} // namespace sign
