#include "zip/Verifier.h"

#include "base/ByteReader.h"
#include "base/WorkerThreads.h"
#include "zip/ArchiveReader.h"
#include "zip/DeflateReader.h"
#include "zip/ListingCheck.h"
#include "zip/PackageTree.h"
#include "zip/SourceFile.h"
#include "zip/ZipFormat.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <limits>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include <libdeflate.h>
#include <zlib.h>

namespace zip {
namespace {

base::Error differs(const std::string& path, std::string_view in) {
    std::string sentence = "The archive differs from " + path + " in ";
    sentence.append(in).append(". Pack again when nothing writes to the package.");
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

/// What one thread compares at a time: a piece of a file, or a whole entry.
struct Part {
    std::size_t entry = 0;
    /// Of the content.
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
    /// In the archive.
    std::uint64_t start = 0;
    std::uint64_t end = 0;
    bool isLast = true;
    /// Of the part alone, once it is compared.
    std::uint32_t crc32 = 0;
};

bool isStored(const ArchivedEntry& archived) {
    return archived.method == static_cast<std::uint16_t>(Method::Stored) &&
           archived.compressedSize == archived.size;
}

/// Fails unless the records of both agree about everything but the content.
base::Outcome compareRecords(const ArchivedEntry& archived, const Entry& entry,
                             const PackageTree& tree, std::optional<std::int64_t> fixedTime) {
    const std::int64_t modified = fixedTime.value_or(entry.state.modified.tv_sec);
    const DosTime dos = dosTime(modified, fixedTime.has_value());
    if (archived.name != entry.name)
        return differs(tree.pathOf(entry), "the list of entries");
    if (archived.mode != entry.mode())
        return differs(tree.pathOf(entry), "type or permissions");
    if (archived.modified != timestamp(modified) ||
        archived.dosModified != (std::uint32_t{dos.date} << 16 | dos.time))
        return differs(tree.pathOf(entry), "the time of its last change");
    if (archived.size != entry.contentSize())
        return differs(tree.pathOf(entry), "length");
    const bool isDeflated = entry.type == EntryType::File &&
                            archived.method == static_cast<std::uint16_t>(Method::Deflated);
    if ((!isStored(archived) && !isDeflated) || archived.compressedSize > archived.end)
        return damaged(tree.pathOf(entry));
    return {};
}

/// Appends the entry's parts: a stored file is cut anywhere, a deflated one where its pieces end.
void appendParts(std::vector<Part>& parts, std::size_t index, const ArchivedEntry& archived,
                 std::span<const PieceEnd> pieceEnds) {
    Part part{.entry = index, .start = archived.end - archived.compressedSize};
    const auto close = [&](std::uint64_t offset, std::uint64_t end) {
        part.size = offset - part.offset;
        part.end = end;
        part.isLast = end == archived.end;
        parts.push_back(part);
        part.offset = offset;
        part.start = end;
    };
    if (isStored(archived)) {
        constexpr std::uint64_t longest = std::uint64_t{1} << 20;
        while (archived.size - part.offset > longest)
            close(part.offset + longest, part.start + longest);
    } else {
        auto next = std::ranges::upper_bound(pieceEnds, part.start, {}, &PieceEnd::position);
        for (; next != pieceEnds.end() && next->position < archived.end; ++next)
            close(next->offset, next->position);
    }
    close(archived.size, archived.end);
}

/// Compares parts; each thread has one of its own.
class PartVerifier {
public:
    PartVerifier(const ArchiveReader& archive, const PackageTree& tree)
        : archive_(archive), tree_(tree), window_(archive), folder_(tree) {}

    /// Compares the part and finds its check sum.
    base::Outcome verify(Part& part) {
        const ArchivedEntry& archived = archive_.entries()[part.entry];
        const Entry& entry = tree_.entries[part.entry];
        if (part.offset == 0) {
            auto data = archive_.findData(archived, window_);
            if (!data)
                return data.error();
        }
        auto content = read(part, archived);
        if (!content)
            return content.error();
        if (entry.type == EntryType::File)
            return compareFile(part, entry, *content);
        part.crc32 = libdeflate_crc32(0, content->data(), content->size());
        return entry.type == EntryType::Link ? compareLink(entry, *content) : base::Outcome();
    }

private:
    base::Result<base::Bytes> read(const Part& part, const ArchivedEntry& archived) {
        const auto size = static_cast<std::size_t>(part.size);
        if (!isStored(archived))
            return inflater_.read(window_, archived.name, part.start, part.end, size, part.isLast);
        return window_.bytes(part.start, size);
    }

    base::Outcome compareFile(Part& part, const Entry& entry, base::Bytes content) {
        auto file = SourceFile::open(folder_, entry);
        if (!file)
            return file.error();
        part.crc32 = 0;
        // A little at a time stays in the processor's cache.
        constexpr std::size_t step = std::size_t{256} << 10;
        for (std::size_t done = 0; done < content.size() || done == 0; done += step) {
            const base::Bytes next = content.subspan(done, std::min(step, content.size() - done));
            onDisk_.clear();
            std::uint8_t* const onDisk = onDisk_.tail(next.size());
            if (auto read = file->read(onDisk, next.size(), part.offset + done); !read)
                return read;
            if (!std::equal(next.begin(), next.end(), onDisk))
                return differs(tree_.pathOf(entry), "content");
            part.crc32 = libdeflate_crc32(part.crc32, next.data(), next.size());
        }
        return {};
    }

    base::Outcome compareLink(const Entry& entry, base::Bytes content) {
        auto onDisk = readLinkTarget(folder_, entry);
        if (!onDisk)
            return onDisk.error();
        if (!std::ranges::equal(base::bytesOf(*onDisk), content))
            return differs(tree_.pathOf(entry), "the target of the link");
        return {};
    }

    const ArchiveReader& archive_;
    const PackageTree& tree_;
    ArchiveWindow window_;
    OpenFolder folder_;
    DeflateReader inflater_;
    base::ByteBuffer onDisk_;
};

/// Fails unless the check sums of the parts, in the order of the entries, are those in the archive.
base::Outcome compareCheckSums(std::span<const Part> parts, const ArchiveReader& archive,
                               const PackageTree& tree) {
    std::uint32_t crc32 = 0;
    for (const Part& part : parts) {
        crc32 = part.offset == 0 ? part.crc32
                                 : static_cast<std::uint32_t>(::crc32_combine(
                                       crc32, part.crc32, static_cast<z_off_t>(part.size)));
        if (part.isLast && crc32 != archive.entries()[part.entry].crc32)
            return damaged(tree.pathOf(tree.entries[part.entry]));
    }
    return {};
}

/// Parts that one thread compares one after the other.
struct Run {
    std::span<Part> parts;
    /// Of the content.
    std::uint64_t size = 0;
};

/// Short parts that stand next to each other make a run: they are read together, and most of them
/// lie in the same folder. The longest runs come first, so that the threads finish together.
std::vector<Run> runsOf(std::span<Part> parts) {
    constexpr std::uint64_t longest = std::uint64_t{512} << 10;
    std::vector<Run> runs;
    while (!parts.empty()) {
        std::uint64_t size = parts.front().size;
        std::size_t count = 1;
        for (; count < parts.size() && size + parts[count].size <= longest &&
               parts[count].end - parts.front().start <= ArchiveWindow::usualSize;
             ++count)
            size += parts[count].size;
        runs.push_back({parts.first(count), size});
        parts = parts.subspan(count);
    }
    std::ranges::stable_sort(runs, std::ranges::greater(), &Run::size);
    return runs;
}

base::Outcome compareParts(std::span<Part> parts, const ArchiveReader& archive,
                           const PackageTree& tree, const VerifyOptions& options) {
    const auto runs = runsOf(parts);
    std::atomic<std::size_t> next = 0;
    std::mutex progressMutex;
    const auto work = [&]() -> base::Outcome {
        PartVerifier verifier(archive, tree);
        for (std::size_t at = next++; at < runs.size(); at = next++) {
            for (Part& part : runs[at].parts)
                if (auto verified = verifier.verify(part); !verified)
                    return verified;
            const std::lock_guard lock(progressMutex);
            if (options.progress)
                options.progress(runs[at].size);
        }
        return {};
    };
    return base::runOnThreads(options.threads, work, [&] { next = runs.size(); });
}

base::Outcome compareWith(const PackageTree& tree, const ArchiveReader& reader,
                          const std::string& package, const VerifyOptions& options) {
    const auto archived = reader.entries();
    if (tree.entries.size() != archived.size())
        return differs(package, "the list of entries");
    std::vector<Part> parts;
    parts.reserve(archived.size());
    for (std::size_t index = 0; index < archived.size(); ++index) {
        if (auto same =
                compareRecords(archived[index], tree.entries[index], tree, options.fixedTime);
            !same)
            return same;
        appendParts(parts, index, archived[index], options.pieceEnds);
    }
    if (auto compared = compareParts(parts, reader, tree, options); !compared)
        return compared;
    return compareCheckSums(parts, reader, tree);
}

} // namespace

base::Outcome verify(int archive, const std::string& path, const std::string& package,
                     const VerifyOptions& options) {
    auto reader = ArchiveReader::open(archive, path);
    if (!reader)
        return reader.error();
    if (options.listed != nullptr) {
        auto compared = checkListing(*options.listed, options.threads);
        if (compared)
            compared = compareWith(*options.listed, *reader, package, options);
        if (compared || compared.error().kind != base::ErrorKind::Changed)
            return compared;
    }
    // What was changed since may still be what the archive holds, for example after a new link to
    // a file. Progress has been told already.
    VerifyOptions again = options;
    if (options.listed != nullptr)
        again.progress = {};
    auto tree = listPackage(package, options.threads);
    return tree ? compareWith(*tree, *reader, package, again) : base::Outcome(tree.error());
}

} // namespace zip
