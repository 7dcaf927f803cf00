#include "TestTree.h"
#include "tests/support/PackedArchive.h"
#include "zip/Verifier.h"

#include <gmock/gmock.h>

namespace {

constexpr std::uint64_t gigabyte = std::uint64_t{1} << 30;

TEST(Zip64, HoldsEntriesThatStartBeyondFourGigabytes) {
    const TemporaryFolder folder;
    writeFile(folder / "A.app/file", "far away");
    const std::string archive = folder / "A.zip";
    // A hole in front, as of a program that unpacks itself.
    packed(archive, folder / "A.app", std::nullopt, 5 * gigabyte);
    const auto opened = base::FileDescriptor::openAt(AT_FDCWD, archive.c_str(), O_RDONLY);
    auto verified = zip::verify(opened.get(), archive, folder / "A.app", {});
    EXPECT_TRUE(verified) << verified.error().sentence;
    EXPECT_EQ(runInShell("python3 -c \"import zipfile, sys; z = zipfile.ZipFile(sys.argv[1]);"
                         " print(z.read('A.app/file').decode(), z.infolist()[0].header_offset)\" " +
                         shellQuoted(archive))
                  .output,
              "far away " + std::to_string(5 * gigabyte) + "\n");
}

} // namespace
