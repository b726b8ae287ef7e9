#include "error_texts.h"
#include "model/backup.h"
#include "model/configuration.h"

#include <gtest/gtest.h>

#include <cctype>
#include <string>

using namespace phone;

namespace {

constexpr const char* kPassphrase = "seven quiet hens";

// A phone with something of everything.
State someState() {
    State state;
    state.settings = factorySettings();
    state.settings.accounts[0].secret = " sesame ";
    state.settings.accounts[5].label = "A & B";
    state.settings.network.hostname = "hall";
    state.settings.audio.micGain = 3;
    state.settings.web.user = "admin";
    state.settings.web.passwordHash = "$y$hash";
    state.settings.web.factoryPassword = false;
    state.settings.web.hostNames = {"phone.example"};
    state.localCopy = "<configuration/>";
    EXPECT_TRUE(state.directory.put({"Anna", "100", "0170 1", ""}));
    EXPECT_TRUE(state.directory.put({"Björn", "200"}));
    return state;
}

// Another phone, of another owner.
State otherState() {
    State state;
    state.settings = factorySettings();
    state.settings.accounts[0].secret = "own secret";
    state.settings.accounts[1].secret = "own secret";
    state.settings.web.user = "boss";
    state.settings.web.passwordHash = "$y$other";
    EXPECT_TRUE(state.directory.put({"Own contact", "1"}));
    return state;
}

// Returns the errors; checks that nothing is set after any.
std::string errorsWhenRestored(const std::string& file,
                               const std::string& passphrase = kPassphrase) {
    State state = otherState();
    const std::string before = stateText(state);
    const std::string errors = textOf(readBackup(file, passphrase, state));
    EXPECT_TRUE(errors.empty() || stateText(state) == before) << "changed, though refused";
    return errors;
}

} // namespace

TEST(Backup, RestoresEverythingThatThePhoneKeeps) {
    const State original = someState();
    const std::string file = backupOf(original, kPassphrase);
    State state = otherState();
    const std::string previous = configurationText(state.settings);
    State backup;
    ASSERT_EQ(textOf(readBackup(file, kPassphrase, backup)), "");
    restoreBackup(backup, state);

    EXPECT_EQ(settingsText(state.settings), settingsText(original.settings));
    EXPECT_EQ(state.settings.accounts[0].secret, " sesame ");
    EXPECT_EQ(state.settings.accounts[1].secret, "") << "not that of the other phone";
    EXPECT_TRUE(state.directory.contacts() == original.directory.contacts());
    EXPECT_EQ(state.directory.find("Own contact"), nullptr);
    EXPECT_EQ(state.localCopy, previous);
}

TEST(Backup, LeavesWhoMaySignInAsItIs) {
    State original = someState();
    original.settings.web.factoryPassword = true;
    State backup;
    ASSERT_EQ(textOf(readBackup(backupOf(original, kPassphrase), kPassphrase, backup)), "");
    EXPECT_EQ(backup.settings.web.passwordHash, "");
    State state = otherState();
    state.settings.web.factoryPassword = false;
    restoreBackup(backup, state);
    EXPECT_EQ(state.settings.web.user, "boss");
    EXPECT_EQ(state.settings.web.passwordHash, "$y$other");
    EXPECT_FALSE(state.settings.web.factoryPassword);
}

// The attack: a backup made by hand, with a password in the place where state files of earlier
// versions have it.
TEST(Backup, CannotSetThePassword) {
    std::string text = stateText(someState());
    const std::string hash = "$y$j8T$abcdefghijkl$0123456789012345678901234567890123456789012";
    const auto end = text.find("</access>");
    ASSERT_NE(end, std::string::npos);
    text.insert(end, "<user>mallory</user><passwordHash>" + hash + "</passwordHash>");
    State backup;
    ASSERT_EQ(textOf(readBackup(seal(text, kPassphrase), kPassphrase, backup)), "");
    ASSERT_EQ(backup.settings.web.user, "mallory") << "read, as from a state file";
    State state = otherState();
    restoreBackup(backup, state);
    EXPECT_EQ(state.settings.web.user, "boss");
    EXPECT_EQ(state.settings.web.passwordHash, "$y$other");
}

TEST(Backup, IsRefusedAsAWhole) {
    const std::string file = backupOf(someState(), kPassphrase);
    EXPECT_EQ(errorsWhenRestored(file), "");
    EXPECT_EQ(errorsWhenRestored(file, "seven quiet hen"), "config: wrongPassphrase");
    EXPECT_EQ(errorsWhenRestored(file.substr(0, file.size() / 2)), "config: wrongPassphrase");
    EXPECT_EQ(errorsWhenRestored(file.substr(0, 20)), "config: wrongPassphrase");
    std::string changed = file;
    changed[changed.size() / 2] ^= 1;
    EXPECT_EQ(errorsWhenRestored(changed), "config: wrongPassphrase");
    EXPECT_EQ(errorsWhenRestored("desk phone backup 2\n" + file.substr(20)),
              "config: otherVersion");
}

TEST(Backup, WithAStateThatThePhoneDoesNotUnderstandIsRefused) {
    const std::string good = stateText(someState());
    for (const auto& [part, other] :
         {std::pair("<micGain>3<", "<micGain>99<"), std::pair("<audio>", "<audio><later>1</later>"),
          std::pair("</state>", "")}) {
        std::string text = good;
        ASSERT_NE(text.find(part), std::string::npos);
        text.replace(text.find(part), std::string(part).size(), other);
        EXPECT_EQ(errorsWhenRestored(seal(text, kPassphrase)), "config: otherVersion") << other;
    }
    EXPECT_EQ(errorsWhenRestored(seal("", kPassphrase)), "config: otherVersion");
}

TEST(Backup, HasRoomForTheLargestState) {
    State state = someState();
    const std::string longest(64, '&'); // five bytes each as an escape
    for (std::size_t i = state.directory.contacts().size(); i < Directory::kMaxContacts; ++i) {
        std::string name = longest;
        name.replace(0, 4, std::to_string(1000 + i));
        const std::string number(32, '1');
        ASSERT_TRUE(state.directory.put({name, number, number, number}));
    }
    const std::string file = backupOf(state, kPassphrase);
    EXPECT_LT(file.size(), kMaxBackupBytes);
    EXPECT_EQ(errorsWhenRestored(file), "");
    EXPECT_EQ(errorsWhenRestored(file + std::string(kMaxBackupBytes, ' ')),
              "config: tooLarge " + std::to_string(kMaxBackupBytes));
}

TEST(Backup, NeedsAPassphraseThatIsHardToGuess) {
    const auto fault = [](const std::string& passphrase) {
        return textOf(checkPassphrase(passphrase, passphrase));
    };
    EXPECT_EQ(fault("twelve chars"), "");
    EXPECT_EQ(fault("garden gate " + std::string(116, 'x')), "");
    EXPECT_EQ(fault("zwölf Zeiche"), "") << "characters, not bytes";
    EXPECT_EQ(fault(""), "passphrase: required");
    EXPECT_EQ(fault("eleven char"), "passphrase: tooShort 12");
    EXPECT_EQ(fault("garden gate " + std::string(117, 'x')), "passphrase: tooLong 128");
    EXPECT_EQ(fault("with a tab \t here"), "passphrase: badCharacters");
    EXPECT_EQ(fault("not utf-8: \xff\xfe"), "passphrase: notUtf8");
    EXPECT_EQ(fault("Password2026!"), "passphrase: tooCommon");
    EXPECT_EQ(textOf(checkPassphrase("twelve chars", "Twelve chars")), "repeat: mismatch");
    EXPECT_EQ(textOf(checkPassphrase("twelve chars", "")), "repeat: mismatch");
    EXPECT_EQ(textOf(checkPassphrase("short", "other")), "passphrase: tooShort 12");
}
