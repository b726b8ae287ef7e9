// The encrypted backup on the page "settings-config".
#include "phone_test.h"

#include "model/configuration.h"
#include "model/sealed_text.h"
#include "model/state_file.h"

#include <filesystem>
#include <iterator>
#include <string>
#include <thread>

using kit::testing::file;
using kit::testing::test_clock::advanceSeconds;

namespace {

constexpr const char* kPassphrase = "seven quiet hens";
constexpr const char* kSecret = "s3cr3t of the account";

Fields passphrase(const std::string& first, const std::string& second) {
    return {{"passphrase", first}, {"repeat", second}};
}

class EncryptedBackup : public SignedInFixture {
protected:
    EncryptedBackup() { setAccount("hall", kSecret); }

    void setAccount(const std::string& userName, const std::string& secret) {
        EXPECT_EQ(me.submit("accounts&acc=0", {{"enabled", "1"},
                                               {"label", "Hall"},
                                               {"userName", userName},
                                               {"secret", secret},
                                               {"server", "sip.example.com"},
                                               {"port", "5060"},
                                               {"transport", "udp"},
                                               {"expiry", "3600"}})
                      .status,
                  303);
    }
    // Makes the phone differ from its backup in everything that a backup contains.
    void changeEverything() {
        setAccount("other", "another secret");
        EXPECT_EQ(me.submit("network", {{"mode", "dhcp"}, {"hostname", "other"}}).status, 303);
        EXPECT_EQ(me.submit("contacts&q=remove", {{"name", "Anna"}}).status, 303);
        EXPECT_EQ(me.submit("contacts&q=add", {{"name", "Emil"}, {"number", "500"}}).status, 303);
        me.page("contacts"); // shows the message, once
    }
    Answer exportWith(const Fields& fields) {
        return me.submit("settings-config&q=backup", fields);
    }
    std::string exported() { return exportWith(passphrase(kPassphrase, kPassphrase)).body; }
    Answer import(const std::string& backup, const Fields& fields) {
        return me.upload("settings-config&q=import", file("config", "phone.backup", backup),
                         fields);
    }
    Answer import(const std::string& backup) {
        return import(backup, {{"confirm", "1"}, {"filePassphrase", kPassphrase}});
    }
    // Imports what must be refused, and checks that nothing changes. Returns the page.
    Answer refused(const std::string& backup, const Fields& fields) {
        const std::string before = savedText();
        Answer answer = import(backup, fields);
        EXPECT_EQ(answer.status, 422);
        EXPECT_EQ(answer.done(), "");
        EXPECT_EQ(savedText(), before);
        return answer;
    }
    bool shows(const std::string& text) {
        return me.page("settings-config").text().find(text) != std::string::npos;
    }
};

} // namespace

TEST_F(EncryptedBackup, RestoresSettingsSecretsAndContacts) {
    const phone::State before = *saved();
    const Answer answer = exportWith(passphrase(kPassphrase, kPassphrase));
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.header("Content-Type"), "application/octet-stream");
    EXPECT_EQ(answer.header("Content-Disposition"), "attachment; filename=phone.backup");
    EXPECT_EQ(answer.header("Cache-Control"), "no-store");

    changeEverything();
    const std::string previous = phone::configurationText(saved()->settings);
    const Answer imported = import(answer.body);
    EXPECT_EQ(imported.status, 303);
    EXPECT_EQ(me.send(get(imported.location())).done(),
              "The encrypted backup was imported: settings, passwords of accounts and contacts.");
    EXPECT_EQ(phone::settingsText(saved()->settings), phone::settingsText(before.settings));
    EXPECT_EQ(saved()->settings.accounts[0].secret, kSecret);
    EXPECT_TRUE(saved()->directory.contacts() == before.directory.contacts());
    EXPECT_EQ(saved()->localCopy, previous);
    EXPECT_EQ(me.page("network").field("hostname"), "desk-phone");
}

TEST_F(EncryptedBackup, CanBeImportedByAnotherPhone) {
    const std::string backup = exported();
    resetAtTheDevice();
    Visitor owner(*container);
    owner.signIn(kFactoryPassword);
    owner.submit("security&q=password", {{"oldPassword", kFactoryPassword},
                                         {"newPassword", "quiet harbour"},
                                         {"repeat", "quiet harbour"}});
    EXPECT_EQ(owner
                  .upload("settings-config&q=import", file("config", "b", backup),
                          {{"confirm", "1"}, {"filePassphrase", kPassphrase}})
                  .status,
              303);
    EXPECT_EQ(saved()->settings.accounts[0].secret, kSecret);
    EXPECT_NE(Visitor(*container, "192.0.2.8").signIn().status, 303) << "not its former password";
    EXPECT_EQ(Visitor(*container, "192.0.2.9").signIn("quiet harbour").status, 303);
}

TEST_F(EncryptedBackup, ShowsNothingOfWhatItContains) {
    const Answer answer = exportWith(passphrase(kPassphrase, kPassphrase));
    for (const char* part : {kSecret, "hall", "Anna", "configuration", "$y$", kPassphrase}) {
        EXPECT_EQ(answer.body.find(part), std::string::npos) << part;
    }
}

TEST_F(EncryptedBackup, NeedsAPassphraseThatIsHardToGuess) {
    const struct {
        Fields fields;
        const char* field;
        const char* error;
    } kCases[] = {
        {{}, "passphrase", "Please fill in this field."},
        {passphrase("eleven char", "eleven char"), "passphrase", "Use at least 12 characters."},
        {passphrase("Password2026!", "Password2026!"), "passphrase",
         "This password is one of the first that attackers try. Choose another one."},
        {passphrase("tab \t in the text", "tab \t in the text"), "passphrase",
         "Contains characters that are not allowed."},
        {passphrase(kPassphrase, "seven quiet hen"), "repeat", "The two entries do not match."},
    };
    for (const auto& [fields, field, error] : kCases) {
        const Answer answer = exportWith(fields);
        EXPECT_EQ(answer.status, 422) << error;
        EXPECT_EQ(answer.error(field), error);
        EXPECT_TRUE(answer.isMarked(field)) << error;
        EXPECT_FALSE(answer.header("Content-Disposition")) << error;
        for (const auto& [name, value] : fields) {
            EXPECT_EQ(answer.body.find(value), std::string::npos) << "sends " << name << " back";
        }
    }
}

TEST_F(EncryptedBackup, IsNotExportedForOthers) {
    const Fields fields = passphrase(kPassphrase, kPassphrase);
    const Answer forged = me.submitWithoutToken("settings-config&q=backup", fields);
    EXPECT_EQ(forged.status, 403);
    EXPECT_FALSE(forged.header("Content-Disposition"));
    const Answer stranger =
        Visitor(*container, "192.0.2.66").submitWithoutToken("settings-config&q=backup", fields);
    EXPECT_NE(stranger.status, 200);
    EXPECT_FALSE(stranger.header("Content-Disposition"));
    const Answer link = me.page("settings-config&q=backup&passphrase=seven+quiet+hens"
                                "&repeat=seven+quiet+hens&token=" +
                                me.token());
    EXPECT_EQ(link.title(), "Configuration") << "a link downloads nothing";
    EXPECT_FALSE(link.header("Content-Disposition"));
}

TEST_F(EncryptedBackup, IsNotImportedWithAWrongPassphraseOrDamage) {
    const std::string backup = exported();
    changeEverything();
    const Fields right{{"confirm", "1"}, {"filePassphrase", kPassphrase}};
    const char* const kFault =
        "The passphrase is wrong, or the file is damaged. Nothing was changed.";
    EXPECT_EQ(refused(backup, {{"confirm", "1"}, {"filePassphrase", "seven quiet hen"}}).alert(),
              kFault);
    EXPECT_EQ(refused(backup.substr(0, backup.size() - 1), right).alert(), kFault);
    EXPECT_EQ(refused(backup.substr(0, 40), right).alert(), kFault);
    std::string changed = backup;
    changed[changed.size() / 2] ^= 1;
    EXPECT_EQ(refused(changed, right).alert(), kFault);
    EXPECT_EQ(refused("desk phone backup 2\n" + backup.substr(20), right).alert(),
              "The backup comes from another version of the phone's software, which this one "
              "cannot read. Nothing was changed.");
    EXPECT_EQ(refused(phone::seal("<state/>", kPassphrase), right).alert(),
              "The backup comes from another version of the phone's software, which this one "
              "cannot read. Nothing was changed.");
    EXPECT_EQ(notice(), "idle");
    EXPECT_EQ(import(backup).status, 303) << "and the file was good";
}

TEST_F(EncryptedBackup, IsImportedOnlyWithConfirmationPassphraseAndToken) {
    const std::string backup = exported();
    changeEverything();
    EXPECT_EQ(refused(backup, {{"filePassphrase", kPassphrase}}).alert(),
              "The action was not confirmed. Nothing was changed.");
    for (const Fields& without :
         {Fields{{"confirm", "1"}}, Fields{{"confirm", "1"}, {"filePassphrase", ""}}}) {
        EXPECT_EQ(refused(backup, without).error("filePassphrase"), "Please fill in this field.");
    }
    const std::string before = savedText();
    Visitor stranger(*container, "192.0.2.66");
    EXPECT_EQ(stranger
                  .upload("settings-config&q=import", file("config", "b", backup),
                          {{"confirm", "1"}, {"filePassphrase", kPassphrase}})
                  .status,
              303);
    EXPECT_EQ(savedText(), before);
}

TEST_F(EncryptedBackup, ChangesNothingIfSavingFails) {
    const std::string backup = exported();
    changeEverything();
    breakTheDisk();
    EXPECT_EQ(import(backup).status, 500);
    EXPECT_EQ(me.page("network").field("hostname"), "other");
    EXPECT_NE(me.page("contacts").text().find("Emil"), std::string::npos);
}

TEST_F(EncryptedBackup, PutsAChangeOfAddressOnTrial) {
    const Fields network{{"mode", "static"},           {"address", "192.168.7.20"},
                         {"netmask", "255.255.255.0"}, {"gateway", "192.168.7.1"},
                         {"dns1", "192.168.7.1"},      {"hostname", "desk-phone"}};
    me.submit("network", network);
    const std::string backup = exported();
    advanceSeconds(130);
    me.page("status");
    ASSERT_EQ(saved()->settings.network.mode, "dhcp") << "undone, as not confirmed";
    EXPECT_EQ(import(backup).status, 303);
    EXPECT_EQ(saved()->settings.network.address, "192.168.7.20");
    advanceSeconds(130);
    me.page("status");
    EXPECT_EQ(saved()->settings.network.mode, "dhcp") << "not confirmed";
}

// The attack: requests that make the phone derive one key after the other in all of its threads.
TEST_F(EncryptedBackup, WaitsForNoOtherTransfer) {
    const std::string backup = exported();
    const Request slow =
        me.uploading("settings-upgrade&q=upload",
                     file("firmware", "a.img", std::string(4 << 20, 'x')), kConfirmed)
            .inPieces(1);
    const auto files = [&] {
        return std::distance(std::filesystem::directory_iterator(folder.file("phone")),
                             std::filesystem::directory_iterator());
    };
    Visitor other(*container, "192.0.2.8");
    other.signIn();
    const auto before = files();
    std::thread first([&] { me.send(slow); });
    while (files() == before) {
        std::this_thread::yield(); // until the upload has begun
    }
    const Answer download =
        other.submit("settings-config&q=backup", passphrase(kPassphrase, kPassphrase));
    const Answer upload = other.upload("settings-config&q=import", file("config", "b", backup),
                                       {{"confirm", "1"}, {"filePassphrase", kPassphrase}});
    first.join();
    for (const Answer& answer : {download, upload}) {
        EXPECT_EQ(answer.status, 409);
        EXPECT_EQ(answer.alert(), "Another transfer is in progress. Try again in a moment.");
    }
    EXPECT_EQ(exportWith(passphrase(kPassphrase, kPassphrase)).status, 200);
}

TEST_F(EncryptedBackup, IsNamedWithWhatItContains) {
    EXPECT_TRUE(shows("All settings, the passwords of accounts (1 on this phone) and the contacts "
                      "(3 on this phone)."));
    EXPECT_TRUE(
        shows("The passwords of accounts (1 on this phone), the contacts (3 on this phone), "
              "the user name and password for these pages, the log and the firmware."))
        << "which the configuration lacks";
    EXPECT_TRUE(shows("An encrypted backup also replaces the passwords of accounts (1 on this "
                      "phone) and all contacts (3 on this phone), which are not kept."));
    me.submit("contacts&q=remove", {{"name", "Anna"}});
    setAccount("other", "");
    EXPECT_TRUE(shows("All settings, the passwords of accounts (0 on this phone) and the contacts "
                      "(2 on this phone)."));
}

TEST_F(EncryptedBackup, SpeaksTheLanguageOfThePage) {
    const std::string backup = exported();
    const Fields wrong{{"confirm", "1"}, {"filePassphrase", "seven quiet hen"}};
    me.page("language&to=de");
    EXPECT_TRUE(shows("Alle Einstellungen, die Kennwörter der Konten (1 auf diesem Telefon)"));
    EXPECT_EQ(refused(backup, wrong).alert(),
              "Die Passphrase ist falsch oder die Datei ist beschädigt. Es wurde nichts geändert.");
    me.page("language&to=zh");
    EXPECT_TRUE(shows("所有设置、账号密码（本机 1 个）和联系人（本机 3 个）。"));
    EXPECT_EQ(refused(backup, wrong).alert(), "密码短语错误，或文件已损坏。未作任何更改。");
}

TEST_F(EncryptedBackup, LeavesATraceInTheLogButNoSecret) {
    const std::string backup = exported();
    import(backup);
    import(backup, {{"confirm", "1"}, { "filePassphrase", "another phrase" }});
    const std::string log = me.page("log").text();
    for (const char* line : {"An encrypted backup was downloaded by admin",
                             "An encrypted backup that admin sent was opened",
                             "An encrypted backup that admin sent was refused"}) {
        EXPECT_NE(log.find(line), std::string::npos) << line << " in " << log;
    }
    for (const char* secret : {kPassphrase, "another phrase", kSecret}) {
        EXPECT_EQ(log.find(secret), std::string::npos) << secret;
    }
}
