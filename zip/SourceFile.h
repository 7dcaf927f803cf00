#pragma once

#include "base/FileDescriptor.h"
#include "base/Result.h"
#include "zip/PackageTree.h"

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <utility>

namespace zip {

/// Reads the content of a listed file, and makes sure that it is still what was listed.
class SourceFile {
public:
    /// Opens a file of the folder's tree without following a link. The tree and the entry must
    /// outlive the result.
    [[nodiscard]] static base::Result<SourceFile> open(OpenFolder& folder, const Entry& file);

    /// Reads exactly `size` bytes at `offset`. Fails if it is not the listed file, or was changed
    /// before or meanwhile.
    [[nodiscard]] base::Outcome read(std::uint8_t* to, std::size_t size,
                                     std::uint64_t offset) const;

    /// Adds the names of its extended attributes and access control lists.
    void addAttributesTo(std::set<std::string>& names) const;

private:
    SourceFile(const PackageTree& tree, const Entry& file, base::FileDescriptor opened)
        : tree_(&tree), file_(&file), opened_(std::move(opened)) {}

    const PackageTree* tree_;
    const Entry* file_;
    base::FileDescriptor opened_;
};

/// The target of a listed link. Fails if it was changed since.
[[nodiscard]] base::Result<std::string> readLinkTarget(OpenFolder& folder, const Entry& link);

} // namespace zip
