#include "app/toolkit/SettingsStore.h"

#include "tests/app/Support.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScopedEnvironment.h"

#include <QCheckBox>
#include <QFile>
#include <QTemporaryDir>

#include <thread>

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace {

class SettingsStoreTest : public testing::Test {
protected:
    void writeFile(const QByteArray& content) const {
        QFile target(file);
        ASSERT_TRUE(target.open(QIODevice::WriteOnly));
        target.write(content);
    }
    [[nodiscard]] std::string fileContent() const {
        QFile source(file);
        return source.open(QIODevice::ReadOnly) ? source.readAll().toStdString() : "";
    }

    const QTemporaryDir folder;
    const QString file = folder.filePath(QStringLiteral("settings.ini"));
    const IdentityRecord identity{"Developer ID Application", "Zoë, Inc. (X1)",
                                  "Developer ID Application: Zoë, Inc. (X1)"};
};

} // namespace

TEST_F(SettingsStoreTest, KeepsReadableValuesFromRunToRun) {
    {
        SettingsStore store(file);
        EXPECT_FALSE(store.boolForKey("flag"));
        EXPECT_EQ(store.stringForKey("version"), std::nullopt);
        store.setBool("flag", true);
        store.setString("version", "Kelpmoray - v1");
        store.setRecord("identity", identity);
        store.synchronize();
    }
    EXPECT_THAT(fileContent(), testing::AllOf(testing::HasSubstr("flag=true\n"),
                                              testing::HasSubstr("version=Kelpmoray - v1\n"),
                                              testing::HasSubstr("[identity]\n"),
                                              testing::HasSubstr("Zoë, Inc. (X1)")));
    SettingsStore store(file);
    EXPECT_TRUE(store.boolForKey("flag"));
    EXPECT_EQ(store.stringForKey("version"), "Kelpmoray - v1");
    const auto restored = store.recordForKey("identity");
    ASSERT_TRUE(restored);
    EXPECT_EQ(restored->title, identity.title);
    EXPECT_EQ(restored->identitystring, identity.identitystring);
    EXPECT_EQ(restored->displaystring, identity.displaystring);
    ASSERT_TRUE(QFile::remove(file));
    store.setString("version", "Kelpmoray - v1");
    store.synchronize();
    EXPECT_THAT(fileContent(), testing::HasSubstr("version=Kelpmoray - v1\n")) << "each time";
}

TEST_F(SettingsStoreTest, TakesValuesOfTheWrongTypeForNone) {
    writeFile("identity=text\nflag=perhaps\nlist=a, b\nraw=@ByteArray(x)\n"
              "[partial]\ntitle=T\n[other]\nidentitystring=Jane (J)\n");
    const SettingsStore store(file);
    EXPECT_FALSE(store.recordForKey("identity"));
    EXPECT_FALSE(store.recordForKey("partial"));
    EXPECT_FALSE(store.boolForKey("flag"));
    EXPECT_FALSE(store.stringForKey("list"));
    EXPECT_FALSE(store.stringForKey("raw"));
    ASSERT_TRUE(store.recordForKey("other"));
    EXPECT_EQ(store.recordForKey("other")->identitystring, "Jane (J)");
}

TEST_F(SettingsStoreTest, BindsACheckBoxInBothDirections) {
    SettingsStore store(file);
    store.setBool("flag", true);
    {
        QCheckBox box;
        box.setEnabled(false);
        store.bind(box, "flag");
        EXPECT_TRUE(box.isChecked());
        EXPECT_FALSE(box.isEnabled());
        box.setEnabled(true);
        box.click();
        EXPECT_FALSE(store.boolForKey("flag"));
        store.setBool("flag", true);
        EXPECT_TRUE(box.isChecked());
        store.setBool("another", false);
        EXPECT_TRUE(box.isChecked());
    }
    store.setBool("flag", false); // the box has gone
    EXPECT_FALSE(store.boolForKey("flag"));
}

TEST_F(SettingsStoreTest, CanBeReadOnAnotherThreadWhileItChanges) {
    SettingsStore store(file);
    store.setBool("flag", true);
    bool alwaysThere = true;
    std::thread reader([&] {
        for (int i = 0; i < 1000; ++i)
            alwaysThere = alwaysThere && store.boolForKey("flag");
    });
    for (int i = 0; i < 200; ++i)
        store.setString("other" + QString::number(i), "x");
    reader.join();
    EXPECT_TRUE(alwaysThere);
}

TEST_F(SettingsStoreTest, SaysOnceThatTheFileCanNotBeUsed) {
    const ScopedEnvironment config("XDG_CONFIG_HOME", folder.path().toStdString());
    const QString pipe = SettingsStore::userFile();
    EXPECT_EQ(pipe.toStdString(),
              folder.path().toStdString() + "/" + applicationIdentifier + ".ini");
    ASSERT_EQ(mkfifo(pipe.toLocal8Bit().constData(), 0600), 0);
    writeFile("");
    for (const QString& unusable : {file + "/below-a-file.ini", SettingsStore::userFile()}) {
        const LogCapture log;
        SettingsStore store(unusable);
        for (int round = 0; round < 2; ++round) {
            store.setBool("flag", round == 0);
            store.synchronize();
        }
        EXPECT_THAT(
            log.messages(),
            testing::ElementsAre("settings: " + unusable.toStdString() +
                                 " can not be used, changes last until the end of this run"));
    }
}
