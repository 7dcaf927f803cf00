#include "core/platform/FileType.h"

#include "core/PropertyList.h"
#include "tests/support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

using testing::Optional;
using testing::Pair;
using testing::UnorderedElementsAre;

namespace {

/// Builds a binary property list: {"CFBundleExecutable": "run", "N": true, "U": "ü😀" in UTF-16}.
std::string binaryPropertyList() {
    const std::vector<std::string> objects = {std::string("\xD3\x01\x02\x03\x04\x05\x06", 7),
                                              "\x5F\x10\x12"
                                              "CFBundleExecutable",
                                              "\x51N",
                                              "\x51U",
                                              "\x53run",
                                              "\x09",
                                              std::string("\x63\x00\xFC\xD8\x3D\xDE\x00", 7)};
    std::string bytes = "bplist00";
    std::string offsets;
    for (const std::string& object : objects) {
        offsets += static_cast<char>(bytes.size());
        bytes += object;
    }
    const std::size_t tableOffset = bytes.size();
    std::string trailer(32, '\0');
    trailer[6] = 1;
    trailer[7] = 1;
    trailer[15] = static_cast<char>(objects.size());
    trailer[31] = static_cast<char>(tableOffset);
    return bytes + offsets + trailer;
}

std::string plist(const std::string& content) {
    return "<?xml version=\"1.0\"?>\n<!DOCTYPE plist>\n<plist version=\"1.0\"><dict>" + content +
           "</dict></plist>";
}

} // namespace

TEST(PropertyList, GivesTheStringsOfTheOutermostDictionary) {
    EXPECT_THAT(propertyListStrings(plist(
                    "<!-- <key>no</key> --><key>A</key><string>1 &lt; "
                    "&amp;lt; &#220;&#x1F600;&#xZ;&no</string><key>B</key><true/><key>C</key><dict>"
                    "<key>A</key><string>inner</string></dict>\n"
                    "<key>D</key>\n\t<string></string>")),
                Optional(UnorderedElementsAre(Pair("A", "1 < &lt; Ü😀&#xZ;&no"), Pair("D", ""))));
    EXPECT_EQ(propertyListStrings("{ A = 1; }"), std::nullopt);
    EXPECT_EQ(propertyListStrings(""), std::nullopt);
}

TEST(PropertyList, ReadsTheBinaryForm) {
    EXPECT_THAT(propertyListStrings(binaryPropertyList()),
                Optional(UnorderedElementsAre(Pair("CFBundleExecutable", "run"), Pair("U", "ü😀"))));
}

TEST(PropertyList, ReplacesHalvesOfCharacters) {
    std::string bytes = binaryPropertyList();
    bytes.replace(bytes.find("\xD8\x3D"), 4, std::string("\xD8\x3D\x00\x41", 4));
    EXPECT_THAT(propertyListStrings(bytes), Optional(testing::Contains(Pair("U", "ü\uFFFDA"))));
}

/// Were the work more than a small multiple of the size, the test would not end in time.
TEST(PropertyList, IsReadInTimeEvenIfMadeToTakeLong) {
    // A dictionary whose keys and values are all the same long string.
    constexpr std::size_t size = 1U << 16U;
    const std::string length("\x12\x00\x01\x00\x00", 5);
    std::string bytes = "bplist00\xDF" + length + std::string(2 * size, '\1') + "\x5F" + length +
                        std::string(size, 'x');
    const std::string offsets("\x00\x00\x00\x08\x00\x02\x00\x0E", 8);
    const std::string tableOffset("\x00\x03\x00\x14", 4);
    bytes += offsets + std::string(6, '\0') + "\4\1" + std::string(7, '\0') + '\2' +
             std::string(12, '\0') + tableOffset;
    EXPECT_THAT(
        propertyListStrings(bytes),
        Optional(UnorderedElementsAre(Pair(std::string(size, 'x'), testing::SizeIs(size)))));
    const std::string signs(64 * size, '&');
    EXPECT_THAT(propertyListStrings(plist("<key>A</key><string>" + signs + "</string>")),
                Optional(UnorderedElementsAre(Pair("A", signs))));
}

#ifndef __APPLE__ // where the system decides what is well formed
TEST(FileType, KnowsTheLayoutsOfAWellFormedApplication) {
    const TemporaryFolder folder;
    const auto type = [&](const std::string& name) { return typeOfFile(folder.path(name)); };

    folder.makeApplication("Bundle.app");
    EXPECT_EQ(type("Bundle.app"), FileType::ApplicationBundle);

    folder.makeFile("Flat.app/Info.plist", plist("<key>X</key><string>y</string>"));
    EXPECT_EQ(type("Flat.app"), FileType::Package) << "its executable is missing";
    folder.makeFile("Flat.app/Flat");
    EXPECT_EQ(type("Flat.app"), FileType::ApplicationBundle);

    folder.makeFile("Binary.app/Contents/Info.plist", binaryPropertyList());
    folder.makeFile("Binary.app/Contents/MacOS/run");
    EXPECT_EQ(type("Binary.app"), FileType::ApplicationBundle);

    folder.makeApplication("Endless.app");
    std::filesystem::resize_file(folder.path("Endless.app/Contents/Info.plist"), 1U << 25U);
    EXPECT_EQ(type("Endless.app"), FileType::Package) << "no description is so long";

    folder.makeFolder("Pipe.app/Contents");
    mkfifo(folder.path("Pipe.app/Contents/Info.plist").c_str(), 0600);
    EXPECT_EQ(type("Pipe.app"), FileType::Package) << "and nobody waits for the pipe";

    folder.makeFile("Steps.app/Resources/Info-gnustep.plist");
    EXPECT_EQ(type("Steps.app"), FileType::ApplicationBundle);
    folder.makeFile("Tool.APP/Tool");
    EXPECT_EQ(type("Tool.APP"), FileType::ApplicationBundle);

    folder.makeFile("Fmwk.app/Contents/Info.plist",
                    plist("<key>CFBundlePackageType</key><string>FMWK</string>"));
    folder.makeFile("Fmwk.app/Contents/MacOS/Fmwk");
    EXPECT_EQ(type("Fmwk.app"), FileType::Package) << "it says that it is something else";
}
#endif

TEST(FileType, TellsFoldersPackagesVolumesAndDataApart) {
    const TemporaryFolder folder;
    EXPECT_EQ(typeOfFile(folder.makeFolder("Plain")), FileType::Folder);
    EXPECT_EQ(typeOfFile(folder.makeFolder("v1.2")), FileType::Folder);
    EXPECT_EQ(typeOfFile(folder.makeFolder("P.PlugIn")), FileType::Package);
    EXPECT_EQ(typeOfFile(folder.makeFile("File.app")), FileType::Data);
    EXPECT_EQ(typeOfFile(folder.makeLink("dangling", "nowhere")), std::nullopt);
    EXPECT_EQ(typeOfFile("/"), FileType::Volume);
#ifdef __linux__
    EXPECT_EQ(typeOfFile("/proc/"), FileType::Volume);
#endif
}
