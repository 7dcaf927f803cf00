#include "app/ExpectationLine.h"
#include "app/identities/IdentityDialogs.h"
#include "app/toolkit/ElidedPopup.h"
#include "app/toolkit/Sheet.h"
#include "core/Path.h"
#include "tests/app/WindowFixture.h"

#include <QAccessible>
#include <QAction>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QTest>

#include <csignal>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr const char* doNotCodesign = "Do NOT Codesign";

/// The window over the real identity tool and an identity folder of the test's own.
struct Identities : WindowFixture {
    Identities() {
        tools.security = SECURITY_PROGRAM;
        std::filesystem::permissions(passphrase, std::filesystem::perms::owner_read);
        openWindow();
        settle();
    }
    /// Opens a dialog by its item in the menu.
    void choose(const char* action) {
        find<QAction>(action)->trigger();
        dialog = attachedSheet(window.get());
        ASSERT_NE(dialog, nullptr);
    }
    void type(const char* line, const std::string& text) const {
        dialog->findChild<QLineEdit*>(line)->setText(QString::fromStdString(text));
    }
    [[nodiscard]] QPushButton* button() const { return dialog->findChild<QPushButton*>("action"); }
    /// Presses Return, and awaits what the dialog says then.
    [[nodiscard]] std::string act() const {
        QTest::keyClick(dialog, Qt::Key_Return);
        EXPECT_TRUE(waitUntil([this] { return button()->isEnabled(); }));
        return dialog->findChild<QLabel*>("message")->text().toStdString();
    }
    void close() {
        QTest::keyClick(dialog, Qt::Key_Escape);
        EXPECT_FALSE(hasAttachedSheet(window.get()));
    }
    void makeTestIdentity(const char* name) {
        choose("newTestIdentity");
        type("name", name);
        EXPECT_THAT(act(), StartsWith(formatted("Made \"Test Identity: %@\"", name)));
        close();
    }
    void openssl(const QStringList& arguments) const {
        QProcess process;
        process.setWorkingDirectory(QString::fromStdString(folder.path()));
        process.start("openssl", arguments);
        EXPECT_TRUE(process.waitForFinished());
        EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
    }
    /// leaf.p12 with its key, but without the certificate of its issuer, which is in root.pem.
    void makeIdentityFile() const {
        folder.makeFile("extensions",
                        "keyUsage=critical,digitalSignature\nextendedKeyUsage=codeSigning\n");
        openssl({"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "root.key", "-out",
                 "root.pem", "-subj", "/CN=Root", "-addext", "keyUsage=critical,keyCertSign"});
        openssl({"req", "-newkey", "rsa:2048", "-nodes", "-keyout", "leaf.key", "-out", "leaf.csr",
                 "-subj", "/CN=Kind: Jane Doe (AB12CD34EF)"});
        openssl({"x509", "-req", "-in", "leaf.csr", "-CA", "root.pem", "-CAkey", "root.key",
                 "-CAcreateserial", "-extfile", "extensions", "-out", "leaf.pem"});
        openssl({"pkcs12", "-export", "-inkey", "leaf.key", "-in", "leaf.pem", "-out", "leaf.p12",
                 "-passout", "pass:secret"});
    }
    [[nodiscard]] std::vector<std::string> listed() const {
        std::vector<std::string> names;
        const IdentityList list = *controller().ibListOfIdentities()->content();
        for (const IdentityRecord& record : list)
            names.push_back(record.displaystring);
        return names;
    }
    [[nodiscard]] std::string picked() const {
        return find<QComboBox>("identities")->currentText().toStdString();
    }

    std::string passphrase = folder.makeFile("pass", "a passphrase\n");
    ScopedEnvironment identities{"KELPMORAY_IDENTITIES", folder.path("identities")};
    ScopedEnvironment passphraseFile{"KELPMORAY_PASSPHRASE_FILE", passphrase};
    QDialog* dialog = nullptr;
};

} // namespace

TEST_F(Identities, AreImportedAfterALookInside) {
    makeIdentityFile();
    EXPECT_THAT(find("identities")->toolTip().toStdString(), HasSubstr("Import"));
    EXPECT_THAT(listed(), ElementsAre(doNotCodesign));
    choose("importIdentity");
    EXPECT_EQ(act(), "Give the file to import.");
    type("file", folder.path("leaf.p12"));
    type("passphrase", "wrong");
    EXPECT_THAT(act(), HasSubstr("passphrase"));
    type("passphrase", "secret");
    EXPECT_THAT(act(), HasSubstr("and give it under Issuers."));
    type("chain", folder.path("root.pem"));
    EXPECT_EQ(button()->text(), "&Look Inside");
    EXPECT_THAT(act(), StartsWith("Found \"Kind: Jane Doe (AB12CD34EF)\"\n"));
    EXPECT_EQ(button()->text(), "&Import");
    EXPECT_FALSE(fileExists(folder.path("identities/certificates"))) << "nothing is stored yet";
    EXPECT_THAT(act(), HasSubstr("Imported."));
    EXPECT_FALSE(button()->isVisible());
    close();
    EXPECT_THAT(listed(), ElementsAre(doNotCodesign)) << "its root is not trusted for signing";
    folder.makeFolder("identities/roots");
    std::filesystem::copy(folder.path("root.pem"), folder.path("identities/roots"));
    controller().identitiesChanged();
    EXPECT_THAT(listed(), ElementsAre(doNotCodesign, "Kind: Jane Doe (AB12CD34EF)"));
}

TEST_F(Identities, AreMadeAndRemovedWithoutChangingThePick) {
    makeTestIdentity("Jo (T1)");
    std::signal(SIGCHLD, SIG_IGN); // as while another thread runs a command
    makeTestIdentity("Kim (T2)");
    std::signal(SIGCHLD, SIG_DFL);
    EXPECT_EQ(listed().size(), 3U);
    EXPECT_EQ(picked(), doNotCodesign);
    find<QComboBox>("identities")->setCurrentText("Test Identity: Kim (T2)");
    EXPECT_THAT(find("identities")->toolTip().toStdString(), HasSubstr("Test Identity: Kim (T2)"));
    for (const auto& [removed, left] :
         {std::pair("Test Identity: Jo (T1)", "Test Identity: Kim (T2)"),
          std::pair("Test Identity: Kim (T2)", "")}) {
        choose("removeIdentity");
        auto* choice = dialog->findChild<QComboBox*>("identities");
        ASSERT_TRUE(waitUntil([&] { return choice->count() > 0; }));
        choice->setCurrentText(removed);
        QTest::mouseClick(button(), Qt::LeftButton);
        ASSERT_TRUE(waitUntil([this] { return !button()->isVisible(); }));
        close();
        EXPECT_EQ(picked(), left);
    }
    EXPECT_THAT(listed(), ElementsAre(doNotCodesign));
}

TEST_F(Identities, AreRequestedWithoutOverwritingAnEarlierRequest) {
    choose("requestCertificate");
    type("name", "Jane Doe");
    EXPECT_EQ(act(), "Give your name, your email address and a file.");
    type("email", "jane@example.com");
    type("file", folder.makeFile("request", "earlier"));
    EXPECT_EQ(act(),
              folder.path("request") + " is there already. Write the request to another file.");
    type("file", folder.path("new request"));
    EXPECT_THAT(act(), StartsWith("The request is in " + folder.path("new request")));
    EXPECT_THAT(contentOf(folder.path("new request")),
                StartsWith("-----BEGIN CERTIFICATE REQUEST"));
}

TEST_F(Identities, LetAStoppedTurnGoOnWhenTheirDialogIsClosed) {
    choose("newTestIdentity");
    controller().addItemToBeProcessedSet(folder.makeFolder("apps"));
    ASSERT_TRUE(waitUntil([this] {
        return log.contains(logged("doButton1Loop:", "...Already An Alert showing...."));
    }));
    QTest::keyClick(dialog, Qt::Key_Escape);
    EXPECT_NE(sheet(), nullptr);
}

TEST_F(Identities, SayWhyNoneCanBeListed) {
    std::filesystem::permissions(folder.makeFolder("identities"), std::filesystem::perms(0755));
    controller().identitiesChanged();
    EXPECT_TRUE(waitUntil([this] { return find("notice")->isVisible(); }));
    EXPECT_THAT(find<QLabel>("notice")->text().toStdString(),
                StartsWith("Others can reach the signing keys through " + folder.path()));
}

TEST_F(Identities, NameEveryFieldForReadersOfTheScreen) {
    for (const char* action :
         {"importIdentity", "requestCertificate", "newTestIdentity", "removeIdentity"}) {
        choose(action);
        for (QWidget* field : dialog->findChildren<QWidget*>()) {
            if (field->focusPolicy() == Qt::NoFocus || !field->isVisibleTo(dialog))
                continue;
            EXPECT_NE(QAccessible::queryAccessibleInterface(field)->text(QAccessible::Name), "")
                << action << ' ' << field->metaObject()->className();
        }
        close();
    }
}
