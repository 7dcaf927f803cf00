#include "sign/bundle/Bundle.h"

#include "base/ByteReader.h"
#include "sign/NewCode.h"
#include "sign/bundle/LooseSignature.h"
#include "sign/bundle/NestedCode.h"
#include "tests/sign/BundleFixture.h"

#include <filesystem>

#include <gmock/gmock.h>

namespace {

using sign::BundleForm;
using sign::FaultCode;
using testing::EndsWith;
using testing::HasSubstr;

TEST(BundleTest, FindsThePartsOfEachLayout) {
    const TemporaryFolder folder;
    const struct {
        const char* name;
        std::vector<std::string> files; ///< with a target: a link
        BundleForm form;
        const char* codeRoot;
        const char* executable;
        std::size_t faults = 0;
    } layouts[] = {
        {"a.app",
         {"Contents/Info.plist", "Contents/MacOS/run"},
         BundleForm::Contents,
         "/Contents",
         "/Contents/MacOS/run"},
        {"case.app",
         {"Contents/info.PLIST", "Contents/MacOS/run"},
         BundleForm::Contents,
         "/Contents",
         "/Contents/MacOS/run"},
        {"mac.app",
         {"Contents/Info-macos.plist", "Contents/Info.plist=none", "Contents/run"},
         BundleForm::Contents,
         "/Contents",
         "/Contents/run"},
        {"b.framework",
         {"Versions/A/Resources/Info.plist", "Versions/A/run", "Versions/Current>A"},
         BundleForm::Resources,
         "/Versions/A",
         "/Versions/A/run"},
        {"c.framework", {"Info.plist", "run"}, BundleForm::Flat, "", "/run"},
        {"d.framework",
         {"Resources/Info.plist", "Contents/x", "run"},
         BundleForm::Resources,
         "",
         "/run",
         2},
        {"e.bundle", {"Resources/Info.plist", "run"}, BundleForm::Resources, "", "/run"},
        {"f.bundle",
         {"Contents/Info.plist=", "Contents/Resources/x"},
         BundleForm::Contents,
         "/Contents",
         "/Contents/Info.plist"},
        {"named.bundle", {"Info.plist=", "named"}, BundleForm::Flat, "", "/named"},
        {"old.bundle", {"Support Files/Info.plist"}, BundleForm::Flat, "", nullptr},
        {"empty.app", {"x"}, BundleForm::Flat, "", nullptr},
        {"g.framework", {"Versions/A/run"}, BundleForm::Flat, "", nullptr},
        {"away.app", {"Contents/Info.plist=../../../bin/sh"}, BundleForm::Flat, "", nullptr},
    };
    for (const auto& layout : layouts) {
        const std::string root = folder.path(layout.name);
        for (const std::string& file : layout.files) {
            const std::string name = layout.name + ("/" + file.substr(0, file.find_first_of(">=")));
            if (file.find('>') != std::string::npos)
                folder.makeLink(name, file.substr(file.find('>') + 1));
            else
                folder.makeFile(name, infoPlist(file.find('=') == std::string::npos
                                                    ? "run"
                                                    : file.substr(file.find('=') + 1)));
        }
        const auto bundle = sign::openBundle(root + "/");
        if (!layout.executable) {
            ASSERT_FALSE(bundle) << layout.name;
            EXPECT_THAT(bundle.error().sentence,
                        testing::StartsWith("bundle format unrecognized, invalid, or unsuitable"));
            continue;
        }
        ASSERT_TRUE(bundle) << layout.name << bundle.error().sentence;
        EXPECT_EQ(bundle->form, layout.form) << layout.name;
        EXPECT_EQ(bundle->codeRoot, root + layout.codeRoot);
        EXPECT_EQ(bundle->executable, root + layout.executable);
        EXPECT_EQ(bundle->hasExecutable, bundle->executable != bundle->infoPlist) << layout.name;
        EXPECT_EQ(bundle->layoutFaults.size(), layout.faults) << layout.name;
        const auto owner = sign::bundleOfExecutable(bundle->executable);
        EXPECT_EQ(owner, bundle->hasExecutable ? std::optional(root) : std::nullopt);
    }
}

TEST(BundleTest, RefusesToSignWhatNoSealCovers) {
    const struct {
        const char* name;
        void (*damage)(const TemporaryFolder& folder);
        const char* sentence;
    } cases[] = {
        {"beside Contents", [](const auto& folder) { folder.makeFile("Rich App.app/x"); },
         "unsealed contents present in the bundle root"},
        {"executable named as the desktop's file",
         [](const auto& folder) { folder.makeExecutable("Rich App.app/.DS_Store", "x"); },
         "unsealed contents present in the bundle root"},
        {"beside Versions",
         [](const auto& folder) {
             folder.makeFile("Rich App.app/Contents/Frameworks/Foo.framework/x");
         },
         "unsealed contents present in the root directory of an embedded framework"},
        {"link to another version",
         [](const auto& folder) {
             folder.makeLink("Rich App.app/Contents/Frameworks/Foo.framework/libz.dylib",
                             "Versions/A/libz.dylib");
         },
         "unsealed contents present in the root directory of an embedded framework"},
        {"Info.plist is a link",
         [](const auto& folder) {
             const std::string info = folder.path("Rich App.app/Contents/Info.plist");
             std::filesystem::rename(info, info + ".real");
             folder.makeLink("Rich App.app/Contents/Info.plist", "Info.plist.real");
         },
         "the main executable or Info.plist must be a regular file (no symlinks, etc.)"},
        {"executable is in a folder elsewhere",
         [](const auto& folder) {
             const std::string place = folder.path("Rich App.app/Contents/MacOS");
             std::filesystem::rename(place, folder.path("elsewhere"));
             folder.makeLink("Rich App.app/Contents/MacOS", "../../elsewhere");
         },
         "the main executable or Info.plist must be a regular file (no symlinks, etc.)"},
        {"executable is in a folder of another name",
         [](const auto& folder) {
             const std::string place = folder.path("Rich App.app/Contents/MacOS");
             std::filesystem::rename(place, folder.path("Rich App.app/Contents/Other"));
             folder.makeLink("Rich App.app/Contents/MacOS", "Other");
         },
         "the main executable or Info.plist must be a regular file (no symlinks, etc.)"},
        {"signature is in a folder elsewhere",
         [](const auto& folder) {
             const std::string place = folder.path("Rich App.app/Contents/_CodeSignature");
             std::filesystem::rename(place, folder.path("elsewhere"));
             folder.makeLink("Rich App.app/Contents/_CodeSignature", "../../elsewhere");
         },
         "unsealed contents present in the bundle root"},
        {"beside the seal",
         [](const auto& folder) {
             folder.makeFile("Rich App.app/Contents/_CodeSignature/CodeOther");
         },
         "_CodeSignature/CodeOther\" is no file of a signature"},
        {"file in the place of the signature",
         [](const auto& folder) {
             std::filesystem::remove_all(folder.path("Rich App.app/Contents/_CodeSignature"));
             folder.makeFile("Rich App.app/Contents/_CodeSignature");
         },
         "_CodeSignature\" is a file in the place of the folder"},
        {"folder in the place of the seal",
         [](const auto& folder) {
             std::filesystem::remove(
                 folder.path("Rich App.app/Contents/_CodeSignature/CodeResources"));
             folder.makeFile("Rich App.app/Contents/_CodeSignature/CodeResources/x");
         },
         "_CodeSignature/CodeResources\" is no file of a signature"},
        {"folder with a dot",
         [](const auto& folder) {
             folder.makeFile("Rich App.app/Contents/Frameworks/python3.9/os.py");
         },
         "python3.9\" has a dot in its name and lies in a place for code"},
        {"version without anything",
         [](const auto& folder) {
             const std::string version =
                 folder.path("Rich App.app/Contents/Frameworks/Foo.framework/Versions/A");
             std::filesystem::remove_all(version);
             std::filesystem::create_directory(version);
         },
         "Versions/A\" is a version of a framework, but has neither an Info.plist nor code."},
        {"AppleDouble file",
         [](const auto& folder) {
             folder.makeFile("Rich App.app/Contents/Resources/._a.txt",
                             std::string("\0\5\x16\7", 4) + std::string(80, '\0'));
         },
         "is an AppleDouble file"},
        {"rules of its own",
         [](const auto& folder) {
             folder.makeFile(
                 "Rich App.app/Contents/Info.plist",
                 infoPlist("run", "<key>CFBundleResourceSpecification</key><string>r</string>"));
         },
         "names resource rules of its own"},
        {"missing executable",
         [](const auto& folder) {
             std::filesystem::remove(folder.path("Rich App.app/Contents/MacOS/run"));
         },
         "The executable \"run\""},
        {"damaged Info.plist",
         [](const auto& folder) {
             folder.makeFile("Rich App.app/Contents/Info.plist", "<plist><dict><key>");
         },
         "is not a property list"},
    };
    for (const auto& [name, damage, sentence] : cases) {
        const TemporaryFolder folder;
        const std::string app = makeRichApplication(folder);
        damage(folder);
        const auto plan = sign::planOf(app);
        ASSERT_FALSE(plan) << name;
        EXPECT_THAT(plan.error().sentence, testing::AllOf(HasSubstr(sentence), EndsWith("."),
                                                          testing::Not(HasSubstr(".. "))))
            << name;
    }
}

TEST(NestedCodeTest, PlansEachCodeObjectOnceFromInsideOut) {
    const TemporaryFolder folder;
    const std::string app = makeRichApplication(folder);
    const auto plan = sign::planOf(app + "/Contents/MacOS/run");
    ASSERT_TRUE(plan) << plan.error().sentence;
    std::vector<std::string> lines;
    for (const auto& object : *plan)
        lines.push_back(std::to_string(object.depth) + (object.isBundle ? " bundle" : " file") +
                        (object.isHashed ? " hashed " : " ") + object.path.substr(app.size()));
    EXPECT_THAT(lines, testing::ElementsAre(
                           "2 file /Contents/Frameworks/Foo.framework/Versions/B/libz.dylib",
                           "2 file /Contents/Frameworks/Foo.framework/Versions/A/libz.dylib",
                           "2 file hashed /Contents/PlugIns/Flat.appex/libq.dylib",
                           "1 bundle /Contents/Frameworks/Foo.framework/Versions/A",
                           "1 bundle /Contents/Frameworks/Foo.framework",
                           "1 file /Contents/Frameworks/libx.dylib",
                           "1 file /Contents/MacOS/helper", "1 bundle /Contents/PlugIns/Flat.appex",
                           "1 bundle hashed /Contents/Resources/Inner.app",
                           "1 file hashed /Contents/Resources/tool", "0 bundle "));
}

TEST(NestedCodeTest, FindsBundlesWithoutADotByTheirMainExecutables) {
    const TemporaryFolder folder;
    const std::string app = folder.path("a.app");
    folder.makeFile("a.app/Contents/Info.plist", infoPlist("run"));
    folder.makeFile("a.app/Contents/MacOS/run", machO(2));
    const std::string tool = "a.app/Contents/MacOS/Tool/Contents/";
    folder.makeFile(tool + "Info.plist", infoPlist("In"));
    folder.makeFile(tool + "MacOS/In", machO(2));
    folder.makeFile(tool + "PlugIns/p.dylib", machO());
    folder.makeFile(tool + "Helpers/Flat/Info.plist", infoPlist("F"));
    folder.makeFile(tool + "Helpers/Flat/F", machO(2));
    for (const std::string version : {"A", "B"}) {
        const std::string place = "a.app/Contents/Frameworks/Foo/Versions/" + version;
        folder.makeFile(place + "/Foo", machO());
        folder.makeFile(place + "/Resources/Info.plist", infoPlist("Foo"));
    }
    folder.makeLink("a.app/Contents/Frameworks/Foo/Versions/Current", "B");
    folder.makeFile("a.app/Contents/Resources/Other/Info.plist", infoPlist("absent"));
    folder.makeFile("a.app/Contents/Resources/Other/x", machO(2));
    const auto plan = sign::planOf(app);
    ASSERT_TRUE(plan) << plan.error().sentence;
    std::vector<std::string> lines;
    for (const auto& object : *plan)
        lines.push_back((object.isHashed ? "hashed " : "") + object.path.substr(app.size()) + " " +
                        object.executable.substr(std::min(object.executable.size(), app.size())));
    EXPECT_THAT(lines,
                testing::ElementsAre(
                    "hashed /Contents/MacOS/Tool/Contents/Helpers/Flat "
                    "/Contents/MacOS/Tool/Contents/Helpers/Flat/F",
                    "/Contents/MacOS/Tool/Contents/PlugIns/p.dylib ",
                    "hashed /Contents/Frameworks/Foo/Versions/A "
                    "/Contents/Frameworks/Foo/Versions/A/Foo",
                    "hashed /Contents/Frameworks/Foo /Contents/Frameworks/Foo/Versions/B/Foo",
                    "hashed /Contents/MacOS/Tool /Contents/MacOS/Tool/Contents/MacOS/In",
                    "hashed /Contents/Resources/Other/x ", " /Contents/MacOS/run"));
}

TEST(LooseSignatureTest, ComesBackAndLeavesNothingOfAnEarlierOne) {
    const TemporaryFolder folder;
    folder.makeFile("a.bundle/Contents/Info.plist", infoPlist(""));
    const auto bundle = sign::openBundle(folder.path("a.bundle"));
    ASSERT_TRUE(bundle);
    const auto none = sign::readLooseSignature(*bundle);
    ASSERT_FALSE(none);
    EXPECT_EQ(none.error().kind, base::ErrorKind::NotFound);

    sign::LooseSignature signature;
    signature.directories = {{1}, {2}, {3}};
    signature.requirements = {4};
    signature.entitlements = {5};
    signature.cms.emplace();
    const auto seal = base::bytesOf("seal");
    const auto write = [&] {
        sign::NewCode code;
        ASSERT_TRUE(code.makeSignatureFolder(*bundle));
        auto files = sign::writeLooseSignature(*bundle, signature, seal);
        ASSERT_TRUE(files) << files.error().sentence;
        for (auto& file : *files)
            code.add(std::move(file));
        ASSERT_TRUE(code.replaceSignatureOf(*bundle));
        ASSERT_TRUE(sign::NewCode::commit({&code}, 1));
    };
    write();
    signature.directories.pop_back();
    signature.entitlements.reset();
    const std::string directory = bundle->signatureFolder() + "/CodeDirectory";
    std::filesystem::permissions(directory, std::filesystem::perms::owner_read);
    write();
    EXPECT_EQ(std::filesystem::status(directory).permissions(), std::filesystem::perms::owner_read);

    const auto read = sign::readLooseSignature(*bundle);
    ASSERT_TRUE(read) << read.error().sentence;
    EXPECT_EQ(read->directories, signature.directories);
    EXPECT_EQ(read->requirements, signature.requirements);
    EXPECT_EQ(read->entitlements, std::nullopt);
    EXPECT_EQ(read->cms, signature.cms);
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(bundle->signatureFolder()))
        names.push_back(entry.path().filename());
    EXPECT_THAT(names, testing::UnorderedElementsAreArray(sign::signatureFiles(*read)));
    EXPECT_THAT(names, testing::UnorderedElementsAre("CodeDirectory", "CodeRequirements",
                                                     "CodeRequirements-1", "CodeResources",
                                                     "CodeSignature"));
}

} // namespace
