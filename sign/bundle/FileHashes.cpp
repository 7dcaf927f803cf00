#include "sign/bundle/FileHashes.h"

#include "base/ByteReader.h"
#include "base/FileDescriptor.h"
#include "base/WorkerThreads.h"
#include "sign/crypto/Digest.h"
#include "sign/files/AsideFile.h"
#include "sign/files/FileStamp.h"
#include "sign/macho/MachFile.h"

#include <algorithm>
#include <atomic>

#include <fcntl.h>
#include <sys/stat.h>

namespace sign {

namespace {

constexpr std::size_t bufferSize = std::size_t{256} << 10U;
constexpr std::uint64_t smallFile = std::uint64_t{1} << 20U;

bool startsLikeCode(base::Bytes start) {
    const auto magic = base::ByteReader(start).takeBig<std::uint32_t>();
    return magic == universalMagic || magic == universalMagic64 || startsLikeMachO(start);
}

class FileHasher {
public:
    [[nodiscard]] base::Outcome hash(FileHashes& file) {
        base::FileDescriptor opened;
        if (file.newVersion != nullptr) {
            auto reading = file.newVersion->openToRead();
            if (!reading)
                return reading.error();
            opened = std::move(*reading);
        } else {
            opened = base::FileDescriptor::openAt(AT_FDCWD, file.path.c_str(),
                                                  O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
        }
        struct stat before {};
        if (!opened.open() && errno != ENOENT && errno != ENOTDIR && errno != ELOOP &&
            errno != ENXIO)
            return base::systemError("read", file.path, errno);
        if (!opened.open() || fstat(opened.get(), &before) != 0 || !S_ISREG(before.st_mode)) {
            file.isMissing = true;
            return {};
        }
        if (auto read = readAll(opened.get(), file); !read)
            return read;
        struct stat after {};
        if (fstat(opened.get(), &after) != 0 || FileStamp::of(before) != FileStamp::of(after))
            return changedWhileRead(file.path);
        return {};
    }

private:
    base::Outcome readAll(int descriptor, FileHashes& file) {
        for (std::uint64_t at = 0;;) {
            const auto got = base::readAt(descriptor, buffer_.data(), buffer_.size(), at);
            if (!got)
                return base::systemError("read", file.path, errno);
            const base::Bytes bytes(buffer_.data(), *got);
            if (at == 0)
                file.mayBeCode = startsLikeCode(bytes);
            if (file.wantsSha1)
                sha1_.update(bytes);
            if (file.wantsSha256)
                sha256_.update(bytes);
            if (*got < buffer_.size())
                break;
            at += *got;
        }
        if (file.wantsSha1)
            std::ranges::copy(sha1_.finish().bytes(), file.sha1.begin());
        if (file.wantsSha256)
            std::ranges::copy(sha256_.finish().bytes(), file.sha256.begin());
        return {};
    }

    Hasher sha1_{HashType::Sha1};
    Hasher sha256_{HashType::Sha256};
    base::OwnedBytes buffer_ = base::OwnedBytes(bufferSize);
};

} // namespace

base::Outcome hashFiles(std::vector<FileHashes>& files, unsigned threads) {
    std::vector<FileHashes*> order;
    order.reserve(files.size());
    for (FileHashes& file : files)
        order.push_back(&file);
    // A large file that comes last keeps one thread busy while the others have nothing to do.
    std::stable_sort(order.begin(), order.end(), [](const FileHashes* a, const FileHashes* b) {
        return a->size / smallFile > b->size / smallFile;
    });
    std::atomic<std::size_t> next = 0;
    const auto work = [&]() -> base::Outcome {
        FileHasher hasher;
        for (std::size_t index = next++; index < order.size(); index = next++) {
            if (auto hashed = hasher.hash(*order[index]); !hashed)
                return hashed;
        }
        return {};
    };
    const auto count = std::min<std::size_t>(std::max(1U, threads), order.size());
    if (count <= 1)
        return work();
    return base::runOnThreads(static_cast<unsigned>(count), work, [&] { next = order.size(); });
}

} // namespace sign
