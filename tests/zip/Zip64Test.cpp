#include "TestTree.h"
#include "zip/ArchiveWriter.h"
#include "zip/Packer.h"
#include "zip/Verifier.h"

#include <fcntl.h>
#include <gmock/gmock.h>

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t gigabyte = std::uint64_t{1} << 30;

/// The output of a Python program that has the archive open as `z`.
std::string askPython(const std::string& archive, const std::string& program) {
    return runInShell(
               "python3 -c " +
               shellQuoted("import zipfile,sys; z=zipfile.ZipFile(sys.argv[1]); " + program) + " " +
               shellQuoted(archive))
        .output;
}

TEST(Zip64, holds_a_file_longer_than_four_gigabytes) {
    const TemporaryFolder folder;
    constexpr std::uint64_t size = 4 * gigabyte + 5;
    writeSparseFile(folder / "A.app/long", size);
    writeFile(folder / "A.app/short", "behind");
    auto packed = zip::pack(folder / "A.zip", folder / "A.app", {.threads = 2, .verify = true});
    ASSERT_TRUE(packed) << packed.error().sentence;
    EXPECT_EQ(askPython(folder / "A.zip",
                        "print(z.getinfo('A.app/long').file_size, z.read('A.app/short').decode())"),
              std::to_string(size) + " behind\n");
    for (const char* list : {"unzip -Zl ", "bsdtar -tvf ", "7z l "})
        EXPECT_THAT(runInShell(list + shellQuoted(folder / "A.zip")).output,
                    testing::HasSubstr(std::to_string(size)))
            << list;
    EXPECT_EQ(runInShell("unzip -tqq " + shellQuoted(folder / "A.zip") + " A.app/short").status, 0);
}

TEST(Zip64, holds_more_entries_than_the_plain_record_can_count) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "A.app");
    constexpr std::size_t plainLimit = 65535;
    const auto hasZip64Record = [&] {
        return contentOf(folder / "A.zip").find("PK\x06\x06") != std::string::npos;
    };
    for (std::size_t index = 1; index < plainLimit; ++index)
        fs::create_symlink("target", folder / ("A.app/" + std::to_string(index)));
    ASSERT_TRUE(zip::pack(folder / "A.zip", folder / "A.app", {.threads = 2}));
    EXPECT_FALSE(hasZip64Record());
    EXPECT_EQ(askPython(folder / "A.zip", "print(len(z.infolist()))"), "65535\n");

    fs::create_symlink("target", folder / "A.app/one more");
    ASSERT_TRUE(zip::pack(folder / "A.zip", folder / "A.app", {.threads = 2, .verify = true}));
    EXPECT_TRUE(hasZip64Record());
    EXPECT_EQ(askPython(folder / "A.zip", "print(len(z.infolist()))"), "65536\n");
    for (const char* list : {"unzip -Z1 ", "bsdtar -tf "})
        EXPECT_EQ(runInShell(list + shellQuoted(folder / "A.zip") + " | wc -l").output, "65536\n")
            << list;
}

TEST(Zip64, holds_entries_that_start_beyond_four_gigabytes) {
    const TemporaryFolder folder;
    writeFile(folder / "A.app/file", "far away");
    const std::string archive = folder / "A.zip";
    auto tree = zip::listPackage(folder / "A.app");
    ASSERT_TRUE(tree);
    const auto opened =
        zip::FileDescriptor::openAt(AT_FDCWD, archive.c_str(), O_RDWR | O_CREAT, 0666);
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
    EXPECT_EQ(
        askPython(archive, "print(z.read('A.app/file').decode(), z.infolist()[0].header_offset)"),
        "far away " + std::to_string(5 * gigabyte) + "\n");
    EXPECT_EQ(runInShell("bsdtar -xOf " + shellQuoted(archive) + " A.app/file").output, "far away");
    EXPECT_EQ(runInShell("unzip -p " + shellQuoted(archive) + " A.app/file").output, "far away");
}

} // namespace
