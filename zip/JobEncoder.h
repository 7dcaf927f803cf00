#pragma once

#include "base/Bytes.h"
#include "base/Result.h"
#include "zip/Compressor.h"
#include "zip/JobCutter.h"
#include "zip/PackageTree.h"
#include "zip/ZipFormat.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace zip {

/// What packing has found out about an entry: the rest of its headers.
struct EntryRecord {
    /// Of the local file header; while a job holds it, counted from the job's first byte.
    std::uint64_t localHeaderOffset = 0;
    std::uint64_t compressedSize = 0;
    std::uint32_t crc32 = 0;
    Method method = Method::Stored;
};

/// A job done: bytes for the archive.
struct EncodedJob {
    Job job;
    base::ByteBuffer bytes;
    /// One for each entry of the job. That of a piece is about the piece alone.
    std::vector<EntryRecord> records;
};

/// The headers of the entry. `fixedTime`, in seconds since 1970, takes the place of its own time.
[[nodiscard]] HeaderFields headerFields(const Entry& entry, const EntryRecord& record,
                                        std::optional<std::int64_t> fixedTime);

/// Turns jobs into bytes. Each thread needs one of its own.
class JobEncoder {
public:
    /// The tree must outlive the encoder.
    JobEncoder(const PackageTree& tree, int level, std::optional<std::int64_t> fixedTime)
        : tree_(tree), folder_(tree), fixedTime_(fixedTime), compressor_(level) {}

    /// Does `encoded.job`: the entries with their local file headers; of a piece just the data,
    /// with a header whose sizes and check sum are still open before the first.
    [[nodiscard]] base::Outcome encode(EncodedJob& encoded);

    /// The names of the extended attributes and access control lists of the files so far.
    [[nodiscard]] const std::set<std::string>& attributes() const { return attributes_; }

private:
    [[nodiscard]] base::Outcome encodePiece(EncodedJob& encoded);
    [[nodiscard]] base::Outcome encodeEntry(const Entry& entry, EncodedJob& encoded);
    [[nodiscard]] base::Outcome readContent(const Entry& entry, std::uint64_t offset,
                                            std::size_t size);

    const PackageTree& tree_;
    OpenFolder folder_;
    std::optional<std::int64_t> fixedTime_;
    Compressor compressor_;
    PaddedContent content_;
    base::ByteBuffer deflated_;
    std::set<std::string> attributes_;
};

} // namespace zip
