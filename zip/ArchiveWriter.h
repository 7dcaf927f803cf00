#pragma once

#include "base/Bytes.h"
#include "base/Result.h"
#include "zip/JobEncoder.h"
#include "zip/PackageTree.h"
#include "zip/PieceEnd.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace zip {

/// Writes encoded jobs one after the other into an archive, then its central directory. One thread
/// at a time may call it.
class ArchiveWriter {
public:
    /// Writes to `descriptor` from offset `start` on. `path` is for messages. The tree must outlive
    /// the writer.
    ArchiveWriter(int descriptor, std::string path, const PackageTree& tree,
                  std::optional<std::int64_t> fixedTime, std::uint64_t start = 0);

    /// Jobs come in archive order.
    [[nodiscard]] base::Outcome write(EncodedJob& encoded);
    /// Writes the central directory and cuts off what the file holds behind it.
    [[nodiscard]] base::Outcome finish();

    /// In archive order.
    [[nodiscard]] std::span<const PieceEnd> pieceEnds() const { return pieceEnds_; }

private:
    [[nodiscard]] base::Outcome append(base::Bytes bytes);
    [[nodiscard]] base::Outcome writePiece(const EncodedJob& encoded);
    [[nodiscard]] base::Outcome closeFile(std::size_t entry);
    [[nodiscard]] base::Outcome storeInstead(std::size_t entry);

    int descriptor_;
    std::string path_;
    const PackageTree& tree_;
    std::optional<std::int64_t> fixedTime_;
    std::uint64_t position_;
    std::uint64_t writtenBack_;
    std::vector<EntryRecord> records_;
    std::vector<PieceEnd> pieceEnds_;
};

} // namespace zip
