#include "TestTree.h"
#include "zip/ArchiveWriter.h"
#include "zip/Packer.h"
#include "zip/Verifier.h"

#include <fcntl.h>
#include <gmock/gmock.h>

namespace {

constexpr std::uint64_t gigabyte = std::uint64_t{1} << 30;

TEST(Zip64, holds_entries_that_start_beyond_four_gigabytes) {
    const TemporaryFolder folder;
    writeFile(folder / "A.app/file", "far away");
    const std::string archive = folder / "A.zip";
    auto tree = zip::listPackage(folder / "A.app");
    ASSERT_TRUE(tree);
    const auto opened =
        base::FileDescriptor::openAt(AT_FDCWD, archive.c_str(), O_RDWR | O_CREAT, 0666);
    // A hole in front, as of a program that unpacks itself.
    zip::ArchiveWriter writer(opened.get(), archive, *tree, std::nullopt, 5 * gigabyte);
    zip::JobCutter cutter(tree->entries);
    zip::JobEncoder encoder(*tree, 5, std::nullopt);
    zip::EncodedJob encoded;
    while (const auto job = cutter.next()) {
        encoded.job = *job;
        ASSERT_TRUE(encoder.encode(encoded));
        ASSERT_TRUE(writer.write(encoded));
    }
    ASSERT_TRUE(writer.finish());
    auto verified = zip::verify(archive, folder / "A.app", {});
    EXPECT_TRUE(verified) << verified.error().sentence;
    EXPECT_EQ(runInShell("python3 -c \"import zipfile, sys; z = zipfile.ZipFile(sys.argv[1]);"
                         " print(z.read('A.app/file').decode(), z.infolist()[0].header_offset)\" " +
                         shellQuoted(archive))
                  .output,
              "far away " + std::to_string(5 * gigabyte) + "\n");
    EXPECT_EQ(runInShell("bsdtar -xOf " + shellQuoted(archive) + " A.app/file").output, "far away");
    EXPECT_EQ(runInShell("unzip -p " + shellQuoted(archive) + " A.app/file").output, "far away");
}

} // namespace
