#include "tests/fuzz/ArchiveComparison.h"
#include "tests/fuzz/FuzzInput.h"
#include "tests/support/TemporaryFolder.h"
#include "zip/JobCutter.h"
#include "zip/Packer.h"

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;

/// A pattern again and again, or what does not shrink; of `longSize` bytes if asked for.
std::string takeContent(FuzzInput& input, std::size_t kind, std::size_t longSize) {
    std::string pattern = std::string(input.piece()).append("x");
    const std::size_t size = pattern.size() * (1 + input.byte());
    if ((kind & 16U) != 0) {
        std::mt19937 random(static_cast<unsigned>(size));
        pattern.resize(1U << 16U);
        std::ranges::generate(pattern, [&] { return static_cast<char>(random()); });
    }
    std::string content;
    while (content.size() < size + longSize)
        content += pattern;
    content.resize(size + longSize);
    return content;
}

/// Makes a folder, a link or a file below one of the folders.
void takeEntry(FuzzInput& input, std::vector<fs::path>& folders, std::size_t longSize) {
    const std::size_t kind = input.byte();
    const std::string path = folders[input.byte() % folders.size()] / input.fileName();
    const auto mode = static_cast<mode_t>((input.byte() << 8U | input.byte()) & 07777U);
    // Beyond what a stamp can hold at both ends.
    const auto seconds = static_cast<std::time_t>(input.byte() << 26U | input.byte() << 8U) *
                             ((kind & 32U) != 0 ? -1 : 1) +
                         static_cast<std::time_t>(input.byte());
    std::error_code error;
    if (fs::exists(fs::symlink_status(path, error)))
        return;
    if (kind % 4 == 0) {
        if (fs::create_directory(path, error))
            folders.emplace_back(path);
        chmod(path.c_str(), mode | 0700U);
    } else if (kind % 4 == 1) {
        fs::create_symlink(std::string(input.piece()).append("x"), path, error);
    } else {
        std::ofstream(path, std::ios::binary)
            << takeContent(input, kind, (kind & 8U) != 0 ? longSize : 0);
        chmod(path.c_str(), mode | 0400U);
    }
    const timespec times[2] = {{seconds, 999'999'999}, {seconds, 999'999'999}};
    utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    const TemporaryFolder folder;
    zip::PackOptions options{.level = 1 + static_cast<int>(input.byte() % 9),
                             .threads = 1 + static_cast<unsigned>(input.byte() % 3),
                             .verify = true};
    if (input.byte() % 4 == 0)
        options.fixedTime = static_cast<std::int64_t>(input.byte()) << 24U;
    const std::string package = folder.makeFolder("of/" + input.fileName().substr(0, 200) + ".app");
    std::vector<fs::path> folders = {package};
    // A file of several pieces takes its time.
    std::size_t longSize = input.byte() == 'L' ? zip::longestPiece : 0;
    for (int count = 0; count < 20 && !input.empty(); ++count)
        takeEntry(input, folders, std::exchange(longSize, 0));

    const std::string archive = folder.path("archive.zip");
    auto packed = zip::pack(archive, package, options);
    require(bool(packed), packed ? "" : packed.error().sentence);
    requireSame(archive, package, options.fixedTime);
    options.threads = options.threads % 3 + 1;
    const std::string again = folder.path("again.zip");
    require(bool(zip::pack(again, package, options)) && contentOf(again) == contentOf(archive),
            "the same archive with any number of threads");
    return 0;
}
