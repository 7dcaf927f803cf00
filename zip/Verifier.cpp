#include "zip/Verifier.h"

#include "base/WorkerThreads.h"
#include "zip/DeflateReader.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <limits>
#include <mutex>
#include <vector>

#include <fcntl.h>
#include <libdeflate.h>
#include <sys/stat.h>

namespace zip {
namespace {

namespace fs = std::filesystem;

constexpr std::uint16_t stored = 0;
constexpr std::uint16_t deflated = 8;

base::Error differs(const std::string& path, const char* what) {
    return {base::ErrorKind::Changed, "The archive differs from " + path + " in " + what +
                                          ". Pack again when nothing writes to the package."};
}

/// Compares entries; each thread has one of its own.
class EntryVerifier {
public:
    /// `compared` is told the bytes of content that were compared since the last call.
    EntryVerifier(const ArchiveReader& archive, std::string parent,
                  std::optional<std::int64_t> fixedTime,
                  std::function<void(std::uint64_t)> compared)
        : archive_(archive), parent_(std::move(parent)), fixedTime_(fixedTime),
          compared_(std::move(compared)) {}

    base::Outcome verify(const ArchivedEntry& entry) {
        path_ = parent_ + entry.name;
        if (entry.name.ends_with('/'))
            path_.pop_back();
        struct stat status {};
        if (::lstat(path_.c_str(), &status) != 0)
            return base::systemError("compare", path_, errno);
        if (entry.mode != static_cast<std::uint16_t>(status.st_mode) ||
            S_ISDIR(status.st_mode) != entry.name.ends_with('/'))
            return differs(path_, "type or permissions");
        if (entry.modified != timestamp(fixedTime_.value_or(status.st_mtime)))
            return differs(path_, "its time");
        if (entry.size !=
            (S_ISDIR(status.st_mode) ? 0 : static_cast<std::uint64_t>(status.st_size)))
            return differs(path_, "length");
        auto data = archive_.findData(entry);
        if (!data)
            return data.error();
        return S_ISREG(status.st_mode) ? verifyFile(entry, *data) : verifyLink(entry, *data);
    }

private:
    static std::uint32_t timestamp(std::int64_t seconds) {
        constexpr std::int64_t earliest = std::numeric_limits<std::int32_t>::min();
        constexpr std::int64_t latest = std::numeric_limits<std::uint32_t>::max();
        return static_cast<std::uint32_t>(std::clamp(seconds, earliest, latest));
    }

    /// Also of folders, which have no content.
    base::Outcome verifyLink(const ArchivedEntry& entry, std::uint64_t data) {
        std::string target(static_cast<std::size_t>(entry.size), '\0');
        auto* bytes = reinterpret_cast<std::uint8_t*>(target.data());
        if (auto read = archive_.read(bytes, target.size(), data); !read)
            return read;
        if (entry.method != stored || entry.compressedSize != entry.size ||
            libdeflate_crc32(0, bytes, target.size()) != entry.crc32)
            return differs(path_, "its record");
        if (entry.size != 0 && fs::read_symlink(path_) != target)
            return differs(path_, "the target of the link");
        compared_(entry.size);
        return {};
    }

    base::Outcome verifyFile(const ArchivedEntry& entry, std::uint64_t data) {
        file_ = base::FileDescriptor::openAt(AT_FDCWD, path_.c_str(),
                                             O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
        if (!file_.open())
            return base::systemError("open", path_, errno);
        offset_ = 0;
        crc32_ = 0;
        const auto compare = [&](base::Bytes content) { return compareNext(content); };
        auto compared = entry.method == deflated ? inflater_.read(archive_, entry, data, compare)
                        : entry.method == stored ? readStored(entry, data)
                                                 : differs(path_, "an unknown method");
        if (compared && crc32_ != entry.crc32)
            return differs(path_, "the check sum");
        return compared;
    }

    base::Outcome readStored(const ArchivedEntry& entry, std::uint64_t data) {
        if (entry.compressedSize != entry.size)
            return differs(path_, "length");
        while (offset_ < entry.size) {
            const auto size = static_cast<std::size_t>(
                std::min<std::uint64_t>(entry.size - offset_, DeflateReader::longestPiece));
            stored_.clear();
            if (auto read = archive_.read(stored_.tail(size), size, data + offset_); !read)
                return read;
            stored_.extend(size);
            if (auto compared = compareNext(stored_.bytes()); !compared)
                return compared;
        }
        return {};
    }

    base::Outcome compareNext(base::Bytes content) {
        onDisk_.clear();
        const auto count =
            base::readAt(file_.get(), onDisk_.tail(content.size()), content.size(), offset_);
        if (!count)
            return base::systemError("read", path_, errno);
        if (*count != content.size() ||
            std::memcmp(content.data(), onDisk_.data(), content.size()) != 0)
            return differs(path_, "content");
        offset_ += content.size();
        crc32_ = libdeflate_crc32(crc32_, content.data(), content.size());
        compared_(content.size());
        return {};
    }

    const ArchiveReader& archive_;
    std::string parent_;
    std::optional<std::int64_t> fixedTime_;
    std::function<void(std::uint64_t)> compared_;
    DeflateReader inflater_;
    base::ByteBuffer stored_;
    base::ByteBuffer onDisk_;

    std::string path_;
    base::FileDescriptor file_;
    std::uint64_t offset_ = 0;
    std::uint32_t crc32_ = 0;
};

/// Every entry is in the folder, as the caller finds; so it is enough that none is there twice and
/// that there are as many.
base::Outcome verifyNames(std::span<const ArchivedEntry> entries, const fs::path& package) {
    const std::string root = package.filename().string() + '/';
    for (std::size_t index = 0; index < entries.size(); ++index)
        if (!entries[index].name.starts_with(root) ||
            (index > 0 && entries[index].name <= entries[index - 1].name))
            return differs(package, "the order of its entries");
    const fs::recursive_directory_iterator children(package);
    if (entries.size() !=
        1 + static_cast<std::size_t>(std::distance(begin(children), end(children))))
        return differs(package, "the number of entries");
    return {};
}

/// The longest first, so that the threads finish together.
std::vector<const ArchivedEntry*> byLength(std::span<const ArchivedEntry> entries) {
    std::vector<const ArchivedEntry*> sorted;
    sorted.reserve(entries.size());
    for (const ArchivedEntry& entry : entries)
        sorted.push_back(&entry);
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto* a, const auto* b) { return a->size > b->size; });
    return sorted;
}

base::Outcome verifyEntries(const ArchiveReader& archive, const fs::path& package,
                            const VerifyOptions& options) {
    if (auto names = verifyNames(archive.entries(), package); !names)
        return names;
    const auto entries = byLength(archive.entries());
    std::atomic<std::size_t> next = 0;
    std::mutex progressMutex;
    const auto tell = [&](std::uint64_t bytes) {
        const std::lock_guard lock(progressMutex);
        if (options.progress)
            options.progress(bytes);
    };
    const auto work = [&]() -> base::Outcome {
        EntryVerifier verifier(archive, package.parent_path() / "", options.fixedTime, tell);
        for (std::size_t index = next++; index < entries.size(); index = next++)
            if (auto verified = verifier.verify(*entries[index]); !verified)
                return verified;
        return {};
    };
    return base::runOnThreads(options.threads, work, [&] { next = entries.size(); });
}

} // namespace

base::Outcome verify(const std::string& archive, const std::string& package,
                     const VerifyOptions& options) {
    auto opened = base::FileDescriptor::openAt(AT_FDCWD, archive.c_str(), O_RDONLY);
    if (!opened.open())
        return base::systemError("open", archive, errno);
    return verify(std::move(opened), archive, package, options);
}

base::Outcome verify(base::FileDescriptor archive, const std::string& path,
                     const std::string& package, const VerifyOptions& options) {
    try {
        auto reader = ArchiveReader::read(std::move(archive), path);
        if (!reader)
            return reader.error();
        return verifyEntries(*reader, fs::canonical(package), options);
    } catch (const std::exception& exception) {
        return base::Error{base::ErrorKind::System, "Cannot compare " + package +
                                                        " with its archive: " + exception.what() +
                                                        ". Try again."};
    }
}

} // namespace zip
