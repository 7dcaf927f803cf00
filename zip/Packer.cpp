#include "zip/Packer.h"

#include "base/ReplacedFile.h"
#include "base/WorkerThreads.h"
#include "zip/ArchiveWriter.h"
#include "zip/JobRing.h"
#include "zip/Verifier.h"

#include <cerrno>
#include <filesystem>
#include <mutex>
#include <new>
#include <set>

#include <sys/stat.h>

namespace zip {
namespace {

namespace fs = std::filesystem;

/// Enough that a thread with short jobs need not wait for one with a long job.
constexpr std::size_t slotsPerThread = 16;
/// As many jobs of the longest kind as there are threads, plus this number, may be under way.
constexpr std::size_t sparePieces = 2;

/// Fails if the output would lie inside the package, or would replace anything but a file.
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
    const fs::path parent = fs::path(output).parent_path();
    // By path: a folder that may be passed but not listed cannot be opened.
    fs::path folder = fs::canonical(parent.empty() ? "." : parent, code);
    if (code)
        return base::systemError("open the folder of", output, code.value());
    for (;; folder = folder.parent_path()) {
        struct stat status {};
        if (::stat(folder.c_str(), &status) != 0)
            return base::systemError("examine", folder.string(), errno);
        if (status.st_dev == package.device && status.st_ino == package.inode)
            return base::Error{
                base::ErrorKind::Conflict,
                "Cannot write " + output +
                    ": it would lie inside the package. Choose a place outside of it."};
        if (!folder.has_relative_path())
            return {};
    }
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

/// Adds the names of the files' extended attributes to the tree's.
base::Outcome writeArchive(ArchiveWriter& writer, PackageTree& tree, const PackOptions& options,
                           ProgressCount& progress) {
    std::mutex attributesMutex;
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
        const std::lock_guard lock(attributesMutex);
        tree.attributes.insert(encoder.attributes().begin(), encoder.attributes().end());
        return {};
    };
    if (auto done = base::runOnThreads(options.threads, work, [&] { ring.stop(); }); !done)
        return done;
    return writer.finish();
}

/// "PACKAGE has extended attributes (NAME, …), which a zip archive does not keep."
std::string noticeOf(const std::string& package, const std::set<std::string>& attributes) {
    constexpr std::size_t mostNames = 5;
    std::string list;
    std::size_t count = 0;
    for (const std::string& name : attributes) {
        if (count++ == mostNames) {
            list.append(", …");
            break;
        }
        list.append(list.empty() ? "" : ", ").append(name);
    }
    return package + " has extended attributes (" + list + "), which a zip archive does not keep.";
}

base::Outcome packUnguarded(const std::string& output, const std::string& package,
                            const PackOptions& options) {
    auto tree = listPackage(package, options.threads);
    if (!tree)
        return tree.error();
    if (auto checked = checkOutput(output, *tree); !checked)
        return checked;
    auto file = base::ReplacedFile::createFor(output);
    if (!file)
        return file.error();
    ProgressCount progress(options, contentSize(tree->entries) * (options.verify ? 2 : 1));
    ArchiveWriter writer(file->descriptor(), output, *tree, options.fixedTime);
    if (auto written = writeArchive(writer, *tree, options, progress); !written)
        return written;
    if (options.notice && !tree->attributes.empty())
        options.notice(noticeOf(package, tree->attributes));
    if (options.verify) {
        const VerifyOptions verifyOptions{options.threads, options.fixedTime, writer.pieceEnds(),
                                          &*tree,
                                          [&](std::uint64_t bytes) { progress.add(bytes); }};
        if (auto verified = verify(file->descriptor(), output, package, verifyOptions); !verified)
            return verified;
    }
    return file->commit();
}

} // namespace

base::Outcome pack(const std::string& output, const std::string& package,
                   const PackOptions& options) {
    try {
        return packUnguarded(output, package, options);
    } catch (const std::bad_alloc&) {
        return base::Error{base::ErrorKind::System,
                           "There is not enough memory to pack " + package +
                               ". Close other programs or use fewer threads."};
    }
}

} // namespace zip
