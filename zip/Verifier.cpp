#include "zip/Verifier.h"

#include "base/WorkerThreads.h"
#include "zip/ArchiveReader.h"
#include "zip/DeflateReader.h"
#include "zip/PackageTree.h"
#include "zip/SourceFile.h"
#include "zip/ZipFormat.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <mutex>
#include <numeric>
#include <string_view>
#include <utility>
#include <vector>

#include <libdeflate.h>

namespace zip {
namespace {

enum class Difference { Entries, Type, Time, Length, Content, LinkTarget };

/// Completes "The archive differs from PATH in ...".
std::string_view nounFor(Difference difference) {
    switch (difference) {
    case Difference::Entries:
        return "the list of entries";
    case Difference::Type:
        return "type or permissions";
    case Difference::Time:
        return "the time of its last change";
    case Difference::Length:
        return "length";
    case Difference::Content:
        return "content";
    case Difference::LinkTarget:
        return "the target of the link";
    }
    return "";
}

base::Error differs(const std::string& path, Difference difference) {
    std::string sentence = "The archive differs from " + path + " in ";
    sentence.append(nounFor(difference)).append(". Pack again when nothing writes to the package.");
    return {base::ErrorKind::Changed, std::move(sentence)};
}

base::Error damaged(const std::string& path) {
    return {base::ErrorKind::Damaged,
            "What the archive says about " + path +
                " does not fit what it holds. Check the memory and the disk and pack again."};
}

std::uint32_t timestamp(std::int64_t seconds) {
    return static_cast<std::uint32_t>(
        std::clamp<std::int64_t>(seconds, 0, std::numeric_limits<std::uint32_t>::max()));
}

/// Compares entries; each thread has one of its own.
class EntryVerifier {
public:
    /// `compared` is called with the bytes of content that were compared since its last call.
    EntryVerifier(const ArchiveReader& archive, const PackageTree& tree,
                  const VerifyOptions& options, std::function<void(std::uint64_t)> compared)
        : archive_(archive), tree_(tree), options_(options), compared_(std::move(compared)),
          inflater_(options.pieceEnds) {}

    base::Outcome verify(const ArchivedEntry& archived, const Entry& entry) {
        path_ = tree_.pathOf(entry);
        const std::int64_t modified = options_.fixedTime.value_or(entry.state.modified.tv_sec);
        const DosTime dos = dosTime(modified, options_.fixedTime.has_value());
        if (archived.name != entry.name)
            return differs(path_, Difference::Entries);
        if (archived.mode != entry.mode)
            return differs(path_, Difference::Type);
        if (archived.modified != timestamp(modified) ||
            archived.dosModified != (std::uint32_t{dos.date} << 16 | dos.time))
            return differs(path_, Difference::Time);
        if (archived.size != entry.contentSize())
            return differs(path_, Difference::Length);
        auto data = archive_.findData(archived);
        if (!data)
            return data.error();
        return entry.type == EntryType::File ? verifyFile(archived, entry, *data)
                                             : verifyLinkOrFolder(archived, entry, *data);
    }

private:
    base::Outcome verifyLinkOrFolder(const ArchivedEntry& archived, const Entry& entry,
                                     std::uint64_t data) {
        std::string target(static_cast<std::size_t>(archived.size), '\0');
        auto* bytes = reinterpret_cast<std::uint8_t*>(target.data());
        if (auto read = archive_.read(bytes, target.size(), data); !read)
            return read;
        if (!isStored(archived) || libdeflate_crc32(0, bytes, target.size()) != archived.crc32)
            return damaged(path_);
        if (entry.type == EntryType::Folder)
            return {};
        auto onDisk = readLinkTarget(tree_, entry);
        if (!onDisk)
            return onDisk.error();
        if (*onDisk != target)
            return differs(path_, Difference::LinkTarget);
        compared_(archived.size);
        return {};
    }

    base::Outcome verifyFile(const ArchivedEntry& archived, const Entry& entry,
                             std::uint64_t data) {
        auto file = SourceFile::open(tree_, entry);
        if (!file)
            return file.error();
        offset_ = 0;
        crc32_ = 0;
        const auto compare = [&](base::Bytes content) { return compareNext(*file, content); };
        auto compared = isStored(archived) ? readStored(archived, data, compare)
                        : archived.method == static_cast<std::uint16_t>(Method::Deflated)
                            ? inflater_.read(archive_, archived, data, compare)
                            : damaged(path_);
        if (compared && crc32_ != archived.crc32)
            return damaged(path_);
        return compared;
    }

    static bool isStored(const ArchivedEntry& archived) {
        return archived.method == static_cast<std::uint16_t>(Method::Stored) &&
               archived.compressedSize == archived.size;
    }

    base::Outcome readStored(const ArchivedEntry& archived, std::uint64_t data,
                             const std::function<base::Outcome(base::Bytes)>& sink) {
        while (offset_ < archived.size) {
            const auto size = static_cast<std::size_t>(
                std::min<std::uint64_t>(archived.size - offset_, DeflateReader::longestPiece));
            stored_.clear();
            if (auto read = archive_.read(stored_.tail(size), size, data + offset_); !read)
                return read;
            stored_.extend(size);
            if (auto done = sink(stored_.bytes()); !done)
                return done;
        }
        return {};
    }

    base::Outcome compareNext(const SourceFile& file, base::Bytes content) {
        onDisk_.clear();
        std::uint8_t* onDisk = onDisk_.tail(content.size());
        if (auto read = file.read(onDisk, content.size(), offset_); !read)
            return read;
        if (std::memcmp(content.data(), onDisk, content.size()) != 0)
            return differs(path_, Difference::Content);
        offset_ += content.size();
        crc32_ = libdeflate_crc32(crc32_, content.data(), content.size());
        compared_(content.size());
        return {};
    }

    const ArchiveReader& archive_;
    const PackageTree& tree_;
    const VerifyOptions& options_;
    std::function<void(std::uint64_t)> compared_;
    DeflateReader inflater_;
    base::ByteBuffer stored_;
    base::ByteBuffer onDisk_;

    // Of the entry that is being compared.
    std::string path_;
    std::uint64_t offset_ = 0;
    std::uint32_t crc32_ = 0;
};

/// The indexes of the entries, the longest first, so that the threads finish together.
std::vector<std::size_t> byLength(const std::vector<Entry>& entries) {
    std::vector<std::size_t> sorted(entries.size());
    std::iota(sorted.begin(), sorted.end(), std::size_t{0});
    std::stable_sort(sorted.begin(), sorted.end(), [&](std::size_t a, std::size_t b) {
        return entries[a].contentSize() > entries[b].contentSize();
    });
    return sorted;
}

} // namespace

base::Outcome verify(int archive, const std::string& path, const std::string& package,
                     const VerifyOptions& options) {
    auto reader = ArchiveReader::open(archive, path);
    if (!reader)
        return reader.error();
    auto tree = listPackage(package);
    if (!tree)
        return tree.error();
    if (tree->entries.size() != reader->entries().size())
        return differs(package, Difference::Entries);
    const auto order = byLength(tree->entries);
    std::atomic<std::size_t> next = 0;
    std::mutex progressMutex;
    const auto tell = [&](std::uint64_t bytes) {
        const std::lock_guard lock(progressMutex);
        if (options.progress)
            options.progress(bytes);
    };
    const auto work = [&]() -> base::Outcome {
        EntryVerifier verifier(*reader, *tree, options, tell);
        for (std::size_t at = next++; at < order.size(); at = next++)
            if (auto verified =
                    verifier.verify(reader->entries()[order[at]], tree->entries[order[at]]);
                !verified)
                return verified;
        return {};
    };
    return base::runOnThreads(options.threads, work, [&] { next = order.size(); });
}

} // namespace zip
