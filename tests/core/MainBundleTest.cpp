#include "core/ScriptLocator.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScopedEnvironment.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

using VornNSStringAdditions::getPathToScript;

TEST(MainBundle, FindsItsResourcesFromTheExecutablesPlace) {
    const TemporaryFolder folder;
    const std::string script = folder.makeFile("prefix/share/kelpmoray/a.sh");
    const MainBundle installed = MainBundle::ofExecutable(folder.path("prefix/bin/tool"));
    EXPECT_EQ(installed.pathForResource("a", "sh"), script);
    EXPECT_EQ(installed.pathForResource("a.sh", ""), script);
    EXPECT_EQ(installed.pathForResource("b", "sh"), std::nullopt);
    EXPECT_EQ(installed.ownFolder(), folder.path("prefix/bin"));
    EXPECT_EQ(installed.identifier, "com.quenbark.kelpmoray");

    const std::string page = folder.makeFile("K.app/Contents/Resources/p.html");
    const MainBundle bundled = MainBundle::ofExecutable(folder.path("K.app/Contents/MacOS/K"));
    EXPECT_EQ(bundled.pathForResource("p", "html"), page);
    EXPECT_EQ(bundled.ownFolder(), folder.path());
}

TEST(MainBundle, IsThatOfTheRunningProgram) {
    const MainBundle bundle = MainBundle::ofThisProcess();
    EXPECT_TRUE(bundle.pathForAuxiliaryExecutable("core_tests").has_value());
}

TEST(AppVersionText, NamesTheBuildInOneLine) {
    std::map<std::string, std::string> info = {{"CFBundleName", "Beta"},
                                               {"CFBundleDisplayName", "Alpha"},
                                               {"CFBundleShortVersionString", "1.2"},
                                               {"DTXcode", "0920"},
                                               {"DTSDKName", "macosx10.9"}};
    EXPECT_EQ(appVersionText(info), "Alpha - v1.2 [XC-0920 sdk-macosx10.9]");
    info.erase("DTXcode");
    info.erase("DTSDKName");
    EXPECT_EQ(appVersionText(info), "Alpha - v1.2 [XC-?? sdk-??]");
    info.erase("CFBundleDisplayName");
    EXPECT_EQ(appVersionText(info), "Beta - v1.2 [XC-?? sdk-??]");
    EXPECT_EQ(appVersionText({}), "(null) - v(null) [XC-?? sdk-??]");
}

TEST(GetPathToScript, PrefersTheDesktopThenTheApplicationsFolderThenTheBundle) {
    const TemporaryFolder folder;
    const ScopedEnvironment home("HOME", folder.path("home"));
    const MainBundle bundle = MainBundle::ofExecutable(folder.path("K.app/Contents/MacOS/K"));
    const LogCapture log;
    EXPECT_EQ(getPathToScript("s.sh", bundle), "(null)");
    EXPECT_EQ(log.count("bundlePath is " + folder.path()), 1);
    EXPECT_EQ(log.count("Searching for shell script file in alternate paths first ..."), 1);
    EXPECT_EQ(log.count("\n\nrunShellScript FAILED => UNABLE to find script named: [s.sh]!\n\n"),
              1);
    for (const char* place : {"K.app/Contents/Resources/s.sh", "K.app/Contents/MacOS/s.sh"}) {
        const std::string script = folder.makeFile(place);
        EXPECT_EQ(getPathToScript("s.sh", bundle), script);
    }
    const std::string beside = folder.makeFile("s.sh");
    EXPECT_EQ(getPathToScript("s.sh", bundle), beside);
    const std::string onDesktop = folder.makeFolder("home/Desktop/s.sh");
    EXPECT_EQ(getPathToScript("s.sh", bundle), onDesktop) << "a folder will do";
    EXPECT_EQ(log.count("FOUND alternate path for shell script at: " + onDesktop), 1);
    const std::string bare = folder.makeFile("K.app/Contents/Resources/bare");
    EXPECT_EQ(getPathToScript("bare", bundle), bare) << "no extension: an empty type";
}
