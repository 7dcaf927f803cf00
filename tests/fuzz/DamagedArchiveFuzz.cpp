#include "tests/fuzz/ArchiveComparison.h"
#include "tests/fuzz/FuzzInput.h"
#include "tests/support/PackedArchive.h"
#include "tests/support/TemporaryFolder.h"
#include "zip/Verifier.h"

#include <sys/stat.h>

namespace {

constexpr std::int64_t modified = 1'000'000'000;

/// A package and its archive, the same on every machine: with a long file, or with a short one.
struct Sample {
    std::string package;
    std::string archive;
    std::vector<zip::PieceEnd> pieceEnds;
};

Sample makeSample(const TemporaryFolder& folder, bool isLong) {
    const std::string name = isLong ? "Long.app" : "Short.app";
    const std::string file =
        folder.makeFile(name + "/file", std::string(isLong ? zip::longestPiece + 300 : 300, 'x'));
    folder.makeFile(name + "/stored", "stored");
    folder.makeLink(name + "/link", "file");
    chmod(file.c_str(), 0644);
    chmod(folder.path(name + "/stored").c_str(), 0600);
    chmod(folder.path(name).c_str(), 0755);
    const std::string archive = folder.path(name + ".zip");
    auto pieceEnds = packed(archive, folder.path(name), modified);
    return {folder.path(name), contentOf(archive), std::move(pieceEnds)};
}

/// Changes some of the archive, either in one place or wherever the same bytes stand, as most
/// fields do twice.
void damage(std::string& bytes, FuzzInput& input) {
    const std::size_t kind = input.byte();
    const std::size_t at = (input.byte() << 8U | input.byte()) % (bytes.size() + 1);
    const std::string now = bytes.substr(at, 1 + kind / 4 % 8);
    const std::string_view then = input.bytes(now.size());
    if (kind % 4 == 0)
        bytes.replace(at, now.size(), then);
    else if (kind % 4 == 1)
        bytes.insert(at, then);
    else if (kind % 4 == 2)
        bytes.erase(at, now.size());
    else if (!now.empty())
        for (std::size_t found = 0; (found = bytes.find(now, found)) != std::string::npos;
             found += then.size())
            bytes.replace(found, now.size(), then);
}

} // namespace

/// Which package; then an archive that may be one of it, or what happens to the whole one.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const TemporaryFolder folder;
    static const Sample samples[] = {makeSample(folder, false), makeSample(folder, true)};
    FuzzInput input(data, size);
    const std::size_t kind = input.byte();
    const Sample& sample = samples[kind % 2];
    std::string bytes = sample.archive;
    if ((kind & 2U) != 0)
        bytes = input.rest();
    for (int count = 0; count < 6 && !input.empty(); ++count)
        damage(bytes, input);
    const std::string archive = folder.makeFile("archive.zip", bytes);
    const auto opened = base::FileDescriptor::openAt(AT_FDCWD, archive.c_str(), O_RDONLY);
    auto verified =
        zip::verify(opened.get(), archive, sample.package, {1, modified, sample.pieceEnds});
    require(verified || bytes != sample.archive, "a whole archive passes");
    if (verified)
        requireSame(archive, sample.package, modified);
    return 0;
}
