#include "TestTree.h"

#include <gtest/gtest.h>

namespace {

TEST(IndependentReaders, find_what_is_in_the_folder) {
    const TemporaryFolder folder;
    writeOddPackage(folder / "Ödd Nämes.app");
    std::mt19937 random(40);
    writeRandomPackage(folder / "Random.app", random);
    writeFile(folder / "Random.app/big", compressibleBytes(random, 7000000));
    std::string command = READERS;
    for (const char* argument : {KELPMORAY_ZIP, "Ödd Nämes.app", "Random.app"})
        command += " " + shellQuoted(argument);
    const ShellResult result = runInShell("cd " + shellQuoted(folder / "") + " && " + command);
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_NE(result.output.find("Random.app: "), std::string::npos) << result.output;
    EXPECT_EQ(runInShell("chmod -R u+w " + shellQuoted(folder / "")).status, 0);
}

} // namespace
