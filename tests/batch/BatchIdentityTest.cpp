#include "tests/batch/BatchFace.h"

using base::Json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST_F(BatchFace, ListsTheIdentitiesAndNothingElse) {
    EXPECT_EQ(run({"--list-identities"}), ExitStatus::NothingToDo);
    EXPECT_THAT(err.str(), HasSubstr("/nonexistent/security is missing"));
    const TemporaryFolder bin(TemporaryFolder::withoutBlank);
    useIdentities(bin);
    EXPECT_EQ(run({"--list-identities"}), ExitStatus::AllDone);
    EXPECT_EQ(out.str(), jo + "  Kind A: Jo (X1)\n" + kim + "  Kind B: Kim (Y2)\n");
    EXPECT_EQ(run({"--list-identities", "--json"}), ExitStatus::AllDone);
    const auto listed = Json::parse(out.str());
    ASSERT_TRUE(listed);
    ASSERT_EQ(listed->array().size(), 2U);
    EXPECT_EQ(listed->array()[1]["hash"].string(), kim);
    EXPECT_EQ(listed->array()[1]["name"].string(), "Kind B: Kim (Y2)");
}

TEST_F(BatchFace, TouchesNothingWithoutTheIdentityThatIsGiven) {
    useScript("fenwoJustZipApps.sh", "touch '" + folder.path("touched") + "'");
    useScript("fenwoCodesignApps.sh", "touch '" + folder.path("touched") + "'");
    const auto refused = [this](const std::string& identity) {
        EXPECT_EQ(run({"--process-all", "--identity", identity, folder.path("apps")}),
                  ExitStatus::NothingToDo);
        EXPECT_EQ(out.str(), "");
        EXPECT_FALSE(std::filesystem::exists(folder.path("touched")));
        return err.str();
    };
    EXPECT_THAT(refused(jo), HasSubstr("/nonexistent/security is missing"));
    const TemporaryFolder bin(TemporaryFolder::withoutBlank);
    useIdentities(bin);
    EXPECT_EQ(refused("Jp"), "kelpmoray-batch: No valid identity fits \"Jp\". There are:\n  " + jo +
                                 "  Kind A: Jo (X1)\n  " + kim +
                                 "  Kind B: Kim (Y2)\nGive one of these, or import yours.\n");
    EXPECT_THAT(refused("Kind"), HasSubstr("Several identities fit \"Kind\":\n"));
    useScript("fenwoZipAppsDNP.sh", "touch '" + folder.path("touched") + "'");
    EXPECT_THAT(refused(jo), HasSubstr("This edition never signs. Leave"));
}

TEST_F(BatchFace, SignsAsTheOneIdentityThatFits) {
    const TemporaryFolder bin(TemporaryFolder::withoutBlank);
    useIdentities(bin);
    bin.makeExecutable("codesign", "#!/bin/sh\n");
    // The inspector's path is fixed: what reads its output answers in its stead.
    bin.makeExecutable("awk", "#!/bin/sh\ncase $1 in */^Authority*) cat >/dev/null; echo 'Kind A: "
                              "Jo (X1)';; *) exec /usr/bin/awk \"$@\";; esac\n");
    const ScopedEnvironment searchPath("PATH", pathWith(bin.path()));
    useScript("fenwoCodesignApps.sh", "echo \"signed: $1 $2\"");
    useScript("fenwoJustZipApps.sh", "echo \"packed: x\"");
    for (const std::string& identity :
         std::vector<std::string>{jo, "Jo (X1)", "X1", jo + "  Kind A: Jo (X1)"}) {
        EXPECT_EQ(run({"--process-all", "--identity", identity, folder.path("more")}),
                  ExitStatus::AllDone);
        EXPECT_THAT(out.str(), HasSubstr("C.app: packed as x (signed as Jo (X1))\n"));
        EXPECT_TRUE(log.contains("result of fenwoCodesignApps.sh = signed: " +
                                 folder.path("more/C.app") + " " + jo + "\n"))
            << identity;
        log.clear();
    }
    outIsTerminal = true;
    EXPECT_EQ(run({"--process-all", "--identity", "X1", folder.path("more")}), ExitStatus::AllDone);
    EXPECT_THAT(out.str(), HasSubstr("packed as x (\033[32msigned as Jo (X1)\033[0m)"));
    EXPECT_TRUE(log.contains("<Batch>-isValidItemToSign:...FOUND object = [Kind A: Jo (X1)]...."));
}

TEST_F(BatchFace, PacksNothingUnsignedIfASignatureIsRequired) {
    const TemporaryFolder bin(TemporaryFolder::withoutBlank);
    useIdentities(bin);
    useScript("fenwoCodesignApps.sh",
              "case $1 in *A.app) echo 'error: no: key';; *) echo signed: $1;; esac");
    useScript("fenwoJustZipApps.sh",
              "touch '" + folder.path("packed") + "'\"${1##*/}\"; echo packed: x");
    EXPECT_EQ(run({"--process-all", "--identity=X1", folder.path("apps")}), ExitStatus::SomeFailed);
    EXPECT_TRUE(zipped("packedA.app"));
    EXPECT_THAT(out.str(), HasSubstr("A.app: FAILED: no: key; packed as x (not signed)\n"));
    std::filesystem::remove(folder.path("packedA.app"));
    std::filesystem::remove(folder.path("packedBß 2.app"));
    EXPECT_EQ(run({"--process-all", "--identity=X1", "--require-signature", folder.path("apps")}),
              ExitStatus::SomeFailed);
    EXPECT_THAT(out.str(), AllOf(HasSubstr("A.app: FAILED: no: key\n"),
                                 HasSubstr("Bß 2.app: packed as x (signed as Jo (X1))\n")));
    EXPECT_FALSE(zipped("packedA.app"));
    EXPECT_TRUE(zipped("packedBß 2.app"));
    EXPECT_EQ(run({"--identity=X1", "--require-signature", folder.path("more")}, "d\np\n"),
              ExitStatus::SomeFailed);
    EXPECT_THAT(out.str(),
                HasSubstr("more: FAILED: It is not packed, as --require-signature was given.\n"));
    EXPECT_FALSE(zipped("packedC.app"));
    useScript("fenwoJustZipApps.sh", "echo error: no: room");
    (void)run({"--process-all", "--identity=X1", folder.path("apps/A.app")});
    EXPECT_THAT(out.str(), HasSubstr("A.app: FAILED: no: key; no: room\n"));
}
