#include "zip/Packer.h"

#include "base/ReplacedFile.h"
#include "base/WorkerThreads.h"
#include "zip/ArchiveWriter.h"
#include "zip/JobRing.h"
#include "zip/Verifier.h"

#include <cerrno>
#include <filesystem>

#include <fcntl.h>

namespace zip {
namespace {

namespace fs = std::filesystem;

/// So many that a thread with short jobs need not wait for one with a long job.
constexpr std::size_t slotsPerThread = 16;
/// For each thread, and this many besides, a job of the longest kind may be under way.
constexpr std::size_t sparePieces = 2;

/// Fails if the output would lie inside the package or take the place of something else than a
/// file.
base::Outcome checkOutput(const std::string& output, const PackageTree& tree) {
    std::error_code code;
    const fs::file_type type = fs::symlink_status(output, code).type();
    if (type == fs::file_type::none)
        return base::systemError("write", output, code.value());
    if (type == fs::file_type::directory || !fs::path(output).has_filename())
        return base::Error{base::ErrorKind::Conflict,
                           "Cannot write " + output +
                               ": it is a folder. Give the path of an archive."};
    if (type != fs::file_type::not_found && type != fs::file_type::regular &&
        type != fs::file_type::symlink)
        return base::Error{base::ErrorKind::Conflict,
                           "Cannot write " + output + ": it is not a file. Give another path."};

    const FileState& package = tree.entries.front().state;
    const fs::path folder = fs::path(output).parent_path();
    base::FileDescriptor at = base::FileDescriptor::openAt(
        AT_FDCWD, folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY);
    FileState previous;
    while (at.open()) {
        struct stat status {};
        if (::fstat(at.get(), &status) != 0)
            break;
        const FileState here = FileState::of(status);
        if (here.device == package.device && here.inode == package.inode)
            return base::Error{
                base::ErrorKind::Conflict,
                "Cannot write " + output +
                    ": it would lie inside the package. Choose a place outside of it."};
        if (here.device == previous.device && here.inode == previous.inode)
            return {};
        previous = here;
        at = base::FileDescriptor::openAt(at.get(), "..", O_RDONLY | O_DIRECTORY);
    }
    return base::systemError("open the folder of", output, errno);
}

class ProgressCount {
public:
    ProgressCount(const PackOptions& options, std::uint64_t total)
        : report_(options.progress), total_(total) {}

    void add(std::uint64_t bytes) {
        done_ += bytes;
        if (report_)
            report_(done_, total_);
    }

private:
    std::function<void(std::uint64_t, std::uint64_t)> report_;
    std::uint64_t total_;
    std::uint64_t done_ = 0;
};

base::Outcome writeArchive(int descriptor, const std::string& output, const PackageTree& tree,
                           const PackOptions& options, ProgressCount& progress) {
    ArchiveWriter writer(descriptor, output, tree, options.fixedTime);
    JobRing ring(options.threads * slotsPerThread, (options.threads + sparePieces) * longestPiece,
                 JobCutter(tree.entries), [&](EncodedJob& encoded) {
                     auto written = writer.write(encoded);
                     progress.add(encoded.job.size);
                     return written;
                 });
    const auto work = [&]() -> base::Outcome {
        JobEncoder encoder(tree, options.level, options.fixedTime);
        while (EncodedJob* encoded = ring.take()) {
            if (auto done = encoder.encode(*encoded); !done)
                return done;
            if (auto written = ring.finish(*encoded); !written)
                return written;
        }
        return {};
    };
    if (auto done = base::runOnThreads(options.threads, work, [&] { ring.stop(); }); !done)
        return done;
    return writer.finish();
}

} // namespace

base::Outcome pack(const std::string& output, const std::string& package,
                   const PackOptions& options) {
    try {
        auto tree = listPackage(package);
        if (!tree)
            return tree.error();
        if (auto checked = checkOutput(output, *tree); !checked)
            return checked;
        auto file = base::ReplacedFile::createFor(output);
        if (!file)
            return file.error();
        ProgressCount progress(options, contentSize(tree->entries) * (options.verify ? 2 : 1));
        if (auto written = writeArchive(file->descriptor(), output, *tree, options, progress);
            !written)
            return written;
        if (options.verify) {
            const VerifyOptions verifyOptions{options.threads, options.fixedTime,
                                              [&](std::uint64_t bytes) { progress.add(bytes); }};
            base::FileDescriptor written(::fcntl(file->descriptor(), F_DUPFD_CLOEXEC, 0));
            if (!written.open())
                return base::systemError("read back", output, errno);
            if (auto verified = verify(std::move(written), output, package, verifyOptions);
                !verified)
                return verified;
        }
        return file->commit();
    } catch (const std::exception& exception) {
        return base::Error{base::ErrorKind::System,
                           "Cannot pack " + package + ": " + exception.what() + ". Try again."};
    }
}

} // namespace zip
