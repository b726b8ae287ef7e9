#include "damaged_text.h"
#include "error_texts.h"
#include "failing_calls.h"
#include "model/configuration.h"
#include "model/device.h"

#include "temporary_folder.h"

#include <kit/testing/recorded_log.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <ctime>
#include <gtest/gtest.h>

#include <stdexcept>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace phone;
using namespace kit::testing;

namespace {

class StoredState : public ::testing::Test {
protected:
    StoredState() {
        writeTextFile(files.factoryContacts, "name,number\nAnn,1001\nBen,1002\n");
        writeTextFile(folder.file("reset"), ""); // as delivered
        recorded_log::clear();
    }
    ~StoredState() override { failing_calls::fail(failing_calls::Call::none); }

    bool logged(const std::string& call, const std::string& part) const {
        const auto records = recorded_log::records();
        return std::any_of(records.begin(), records.end(), [&](const LogRecord& record) {
            return record.call == call && record.text.find(part) != std::string::npos;
        });
    }

    // Returns whether there are the files of a phone that has started, and no others.
    bool isTidy() const {
        auto names = folder.names();
        std::sort(names.begin(), names.end());
        names.erase(std::remove(names.begin(), names.end(), "changes.xml"), names.end());
        return names ==
               std::vector<std::string>{"factory.csv", "password.1", "password.2", "phone.xml"};
    }

    // Returns all that is saved but the password.
    std::string savedText() const { return textOfFile(files.state) + textOfFile(changes); }

    TemporaryFolder folder;
    const Device::Files files{folder.file("phone.xml"), folder.file("factory.csv")};
    const std::string changes = folder.file("changes.xml");
};

Device::Edit setMicGain(int gain) {
    return [gain](State& state) {
        state.settings.audio.micGain = gain;
        return Errors();
    };
}

int micGain(const Device& device) {
    return device.state()->settings.audio.micGain;
}

} // namespace

TEST_F(StoredState, IsNotReplacedIfItCannotBeRead) {
    writeTextFile(folder.file("file"), "");
    EXPECT_THROW(Device({folder.file("file") + "/phone.xml", files.factoryContacts}),
                 std::runtime_error);
}

TEST_F(StoredState, StartsWithFactorySettings) {
    Device device(files);
    const auto state = device.state();
    EXPECT_EQ(state->settings.accounts[0].userName, "1001");
    EXPECT_EQ(state->directory.contacts().size(), 2u);
    EXPECT_TRUE(state->settings.web.factoryPassword);
    EXPECT_TRUE(device.authenticate("admin", "admin"));
    EXPECT_TRUE(recorded_log::records().empty());
}

TEST_F(StoredState, StartsWithoutContactsIfTheFactoryFileIsMissing) {
    Device device({files.state, folder.file("missing.csv")});
    EXPECT_TRUE(device.state()->directory.contacts().empty());
    EXPECT_TRUE(logged("warn", "missing.csv"));
}

TEST_F(StoredState, KeepsChanges) {
    {
        Device device(files);
        ASSERT_TRUE(device
                        .change([](State& state) {
                            state.settings.accounts[1].secret = "  ";
                            state.settings.accounts[2].secret = "<&>\"'";
                            state.settings.network.vlan = 7;
                            state.settings.web.remoteAddresses = {"192.0.2.1", "::1"};
                            state.directory.remove("Ann");
                            state.directory.put({"\xE7\x8E\x8B \"<&>\"", "+1 202 555-0100"});
                            return keepLocalCopy(state);
                        })
                        .done());
    }
    Device device(files);
    const auto state = device.state();
    EXPECT_EQ(state->settings.accounts[0].secret, "");
    EXPECT_EQ(state->settings.accounts[1].secret, "  ");
    EXPECT_EQ(state->settings.accounts[2].secret, "<&>\"'");
    EXPECT_EQ(state->settings.network.vlan, 7);
    EXPECT_EQ(state->settings.web.remoteAddresses.size(), 2u);
    EXPECT_EQ(state->directory.find("Ann"), nullptr);
    EXPECT_NE(state->directory.find("\xE7\x8E\x8B \"<&>\""), nullptr);
    EXPECT_EQ(state->localCopy, configurationText(state->settings));
    EXPECT_TRUE(device.authenticate("admin", "admin"));
}

TEST_F(StoredState, KeepsTheLargestPossibleState) {
    {
        Device device(files);
        ASSERT_TRUE(device
                        .change([](State& state) {
                            state.directory = Directory();
                            for (std::size_t i = 0; i < Directory::kMaxContacts; ++i) {
                                std::string name = std::to_string(i);
                                name.resize(64, '&');
                                state.directory.put({name, std::string(31, '#') + "1"});
                            }
                            return Errors();
                        })
                        .done());
    }
    EXPECT_EQ(Device(files).state()->directory.contacts().size(), Directory::kMaxContacts);
}

TEST_F(StoredState, IsReadableByItsOwnerOnly) {
    Device device(files);
    ASSERT_TRUE(device.change(setMicGain(3)).done());
    for (const std::string& file :
         {files.state, changes, folder.file("password.1"), folder.file("password.2")}) {
        struct stat status {};
        ASSERT_EQ(stat(file.c_str(), &status), 0) << file;
        EXPECT_EQ(status.st_mode & 0777u, 0600u) << file;
    }
}

TEST_F(StoredState, IsUnchangedIfTheEditReturnsErrors) {
    Device device(files);
    device.preparePassword();
    const std::string saved = savedText();
    const auto before = device.state();
    const Outcome outcome = device.change([](State& state) -> Errors {
        state.settings.audio.micGain = 5;
        return {{"micGain", ErrorCode::tooLarge, 4}};
    });
    EXPECT_FALSE(outcome.done());
    EXPECT_EQ(textOf(outcome.errors), "micGain: tooLarge 4");
    EXPECT_EQ(device.state(), before);
    EXPECT_EQ(savedText(), saved);
}

TEST_F(StoredState, IsUnchangedIfTheEditThrows) {
    Device device(files);
    EXPECT_THROW(device.change([](State& state) -> Errors {
        state.settings.audio.micGain = 5;
        throw std::bad_alloc();
    }),
                 std::bad_alloc);
    EXPECT_EQ(micGain(device), 0);
    EXPECT_TRUE(device.change(setMicGain(3)).done());
}

TEST_F(StoredState, IsUnchangedIfSavingFails) {
    Device device(files);
    device.preparePassword();
    const std::string saved = savedText();
    for (auto call :
         {failing_calls::Call::write, failing_calls::Call::fsync, failing_calls::Call::rename}) {
        recorded_log::clear();
        failing_calls::fail(call);
        const Outcome outcome = device.change(setMicGain(3));
        failing_calls::fail(failing_calls::Call::none);
        EXPECT_TRUE(outcome.saveFailed);
        EXPECT_FALSE(outcome.done());
        EXPECT_EQ(micGain(device), 0);
        EXPECT_EQ(savedText(), saved);
        EXPECT_TRUE(isTidy());
        EXPECT_TRUE(logged("error", "Cannot save"));
    }
    EXPECT_TRUE(device.change(setMicGain(3)).done());
}

TEST_F(StoredState, IsSavedDespiteShortAndInterruptedWrites) {
    Device device(files);
    for (auto call : {failing_calls::Call::shortWrite, failing_calls::Call::interruptedWrite}) {
        failing_calls::fail(call);
        EXPECT_TRUE(device.change(setMicGain(micGain(device) + 1)).done());
        failing_calls::fail(failing_calls::Call::none);
    }
    EXPECT_EQ(micGain(Device(files)), 2);
}

TEST_F(StoredState, IsReadOnlyWithoutItsFolder) {
    Device device({folder.file("missing/phone.xml"), files.factoryContacts});
    EXPECT_TRUE(device.isClosed());
    EXPECT_FALSE(device.authenticate("admin", "admin"));
    EXPECT_TRUE(device.change(setMicGain(3)).saveFailed);
    EXPECT_EQ(micGain(device), 0);
}

TEST_F(StoredState, IsResetIfDamagedAndTheDamagedFileIsKept) {
    std::string good;
    {
        Device device(files);
        device.changePassword("admin", "correct horse", "correct horse");
        device.change([](State& state) {
            state.settings.audio.micGain = 3;
            return keepLocalCopy(state); // so that the state file is written
        });
        good = textOfFile(files.state);
    }
    const auto damages = damagesOf(
        good, {
                  {"<micGain>3<", "<micGain>33<"},
                  {"<state>", "<stat>"},
                  {"<access>", "<access><user>admin</user><passwordHash>$x$j7T$</passwordHash>"},
                  {"<secret></secret>", ""},
                  {"<name>Ann<", "<name>Ben<"},
                  {"<number>1001<", "<number>x<"},
                  {"<configuration>", "<configuration><camera/>"},
              });
    for (const std::string& damage : damages) {
        SCOPED_TRACE(damage.substr(0, 60));
        recorded_log::clear();
        writeTextFile(files.state, damage);
        Device device(files);
        EXPECT_EQ(micGain(device), 0);
        EXPECT_TRUE(device.authenticate("admin", "correct horse"));
        EXPECT_FALSE(device.authenticate("admin", "admin")) << "the attack";
        EXPECT_TRUE(textOfFile(files.state + ".damaged") == damage);
        EXPECT_TRUE(logged("error", "damaged"));
    }
}

// The attack: whoever can delete or damage files signs in with the factory password.
TEST_F(StoredState, ClosesThePhoneIfItsPasswordIsLost) {
    { EXPECT_TRUE(Device(files).authenticate("admin", "admin")); }
    const std::string first = textOfFile(folder.file("password.1"));
    const std::string damages[] = {"", "garbage", first.substr(0, first.size() - 2), first + "\n",
                                   "2" + first.substr(1)};
    for (const std::string& damage : damages) {
        SCOPED_TRACE(damage);
        writeTextFile(folder.file("password.1"), damage);
        writeTextFile(folder.file("password.2"), damage);
        recorded_log::clear();
        Device device(files);
        EXPECT_TRUE(device.isClosed());
        EXPECT_FALSE(device.authenticate("admin", "admin"));
        EXPECT_FALSE(device.authenticate("admin", ""));
        EXPECT_FALSE(device.change(setMicGain(3)).done());
        EXPECT_TRUE(logged("error", "There is no password"));
    }
    for (const char* name : {"password.1", "password.2", "phone.xml"}) {
        std::filesystem::remove(folder.file(name));
        EXPECT_TRUE(Device(files).isClosed()) << name;
    }
    std::filesystem::remove(files.state);
    EXPECT_TRUE(Device(files).isClosed()) << "an empty folder";
}

TEST_F(StoredState, OpensAgainAfterAResetAtTheDevice) {
    { Device(files).change(setMicGain(3)); }
    writeTextFile(folder.file("password.1"), "garbage");
    std::filesystem::remove(folder.file("password.2"));
    EXPECT_TRUE(Device(files).isClosed());
    writeTextFile(folder.file("reset"), "");
    {
        Device device(files);
        EXPECT_TRUE(device.authenticate("admin", "admin"));
        EXPECT_EQ(micGain(device), 0);
    }
    EXPECT_TRUE(isTidy());
    Device device(files);
    EXPECT_TRUE(device.authenticate("admin", "admin"));
}

TEST_F(StoredState, StaysNewUntilItCouldBeSaved) {
    failing_calls::fail(failing_calls::Call::rename);
    EXPECT_TRUE(Device(files).authenticate("admin", "admin"));
    failing_calls::fail(failing_calls::Call::none);
    { EXPECT_TRUE(Device(files).authenticate("admin", "admin")); }
    EXPECT_TRUE(isTidy());
}

// Hashing takes seconds on a slow processor, and the phone starts with its first page.
TEST_F(StoredState, OfANewPhoneIsThereBeforeItsPasswordIsHashed) {
    failing_calls::fail(failing_calls::Call::crypt);
    Device device(files);
    EXPECT_FALSE(device.isClosed());
    EXPECT_TRUE(device.state()->settings.web.factoryPassword);
    EXPECT_EQ(device.state()->directory.contacts().size(), 2u);
    EXPECT_TRUE(recorded_log::records().empty());
    EXPECT_THROW(device.authenticate("admin", "admin"), std::bad_alloc);
    EXPECT_TRUE(device.changePassword("admin", "correct horse", "correct horse").saveFailed);
    EXPECT_TRUE(device.change(setMicGain(3)).saveFailed);
    EXPECT_FALSE(device.isClosed());
    failing_calls::fail(failing_calls::Call::none);
    EXPECT_TRUE(device.authenticate("admin", "admin"));
    EXPECT_TRUE(isTidy());
}

TEST_F(StoredState, OfANewPhoneLetsNothingInButTheFactoryPassword) {
    const char* const attempts[][2] = {{"", ""}, {"admin", ""}, {"", "admin"}, {"admin", "$y$"}};
    for (const auto& attempt : attempts) {
        writeTextFile(folder.file("reset"), "");
        Device device(files);
        EXPECT_FALSE(device.authenticate(attempt[0], attempt[1])) << attempt[0];
        EXPECT_TRUE(device.authenticate("admin", "admin"));
    }
}

TEST_F(StoredState, OfANewPhoneIsHashedOnceForAllWhoSignInAtOnce) {
    Device device(files);
    std::atomic<int> done{0};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] { done += device.authenticate("admin", "admin"); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(done, 4);
    EXPECT_EQ(textOfFile(folder.file("password.1")).substr(0, 2), "1\n") << "saved once";
}

// Otherwise whoever has one phone's hash could try passwords for all of them at once.
TEST_F(StoredState, HasASaltOfItsOwnOnEachNewPhone) {
    std::vector<std::string> hashes;
    for (int phone = 0; phone < 2; ++phone) {
        writeTextFile(folder.file("reset"), "");
        Device device(files);
        ASSERT_TRUE(device.authenticate("admin", "admin"));
        hashes.push_back(device.state()->settings.web.passwordHash);
    }
    EXPECT_NE(hashes[0].substr(0, hashes[0].rfind('$')), hashes[1].substr(0, hashes[1].rfind('$')));
}

TEST_F(StoredState, OfTheFormerOwnerIsGoneWhenANewPhoneStarts) {
    {
        Device device(files);
        device.changePassword("admin", "correct horse", "correct horse");
        device.change([](State& state) {
            state.settings.accounts[0].secret = "sesame";
            return state.directory.add({"Friend", "1"});
        });
        device.change(setMicGain(3));
    }
    writeTextFile(folder.file("reset"), "");
    Device device(files);
    EXPECT_EQ(savedText().find("sesame"), std::string::npos);
    EXPECT_EQ(savedText().find("Friend"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(changes));
    EXPECT_FALSE(device.authenticate("admin", "correct horse"));
    EXPECT_TRUE(device.authenticate("admin", "admin"));
    EXPECT_FALSE(Device(files).authenticate("admin", "correct horse"));
}

// The attack: the factory password comes back with the next start.
TEST_F(StoredState, KeepsTheOwnersPasswordIfTheFactoryPasswordCouldNotBeSaved) {
    {
        Device device(files);
        failing_calls::fail(failing_calls::Call::rename);
        EXPECT_TRUE(device.authenticate("admin", "admin"));
        failing_calls::fail(failing_calls::Call::none);
        EXPECT_TRUE(device.changePassword("admin", "correct horse", "correct horse").done());
    }
    EXPECT_TRUE(isTidy());
    EXPECT_TRUE(Device(files).authenticate("admin", "correct horse"));
    EXPECT_FALSE(Device(files).authenticate("admin", "admin"));
}

TEST_F(StoredState, KeepsThePasswordIfOneFileIsLost) {
    {
        Device device(files);
        device.changePassword("admin", "correct horse", "correct horse");
    }
    for (const char* name : {"password.1", "password.2"}) {
        const std::string whole = textOfFile(folder.file(name));
        writeTextFile(folder.file(name), whole.substr(1));
        {
            Device device(files);
            EXPECT_TRUE(device.authenticate("admin", "correct horse")) << name;
        }
        EXPECT_EQ(textOfFile(folder.file(name)), whole) << "repaired";
        std::filesystem::remove(folder.file(name));
        EXPECT_TRUE(Device(files).authenticate("admin", "correct horse")) << name;
    }
}

TEST_F(StoredState, UsesTheNewerOfTwoPasswords) {
    { Device device(files); }
    for (const char* older : {"password.1", "password.2"}) {
        const std::string before = textOfFile(folder.file(older));
        const std::string password = std::string("password of ") + older;
        {
            Device device(files);
            ASSERT_TRUE(device
                            .changePassword(older == std::string("password.1")
                                                ? "admin"
                                                : "password of password.1",
                                            password, password)
                            .done());
        }
        writeTextFile(folder.file(older), before);
        EXPECT_TRUE(Device(files).authenticate("admin", password)) << older;
    }
}

TEST_F(StoredState, TakesThePasswordOfAnEarlierVersion) {
    std::string earlier;
    std::string hash;
    {
        Device device(files);
        device.changePassword("admin", "correct horse", "correct horse");
        hash = device.state()->settings.web.passwordHash;
        earlier = savedText();
    }
    earlier.replace(earlier.find("</access>"), 0,
                    "<user>admin</user><passwordHash>" + hash +
                        "</passwordHash><factoryPassword></factoryPassword>");
    writeTextFile(files.state, earlier);
    std::filesystem::remove(folder.file("password.1"));
    std::filesystem::remove(folder.file("password.2"));
    for (int start = 0; start < 2; ++start) {
        Device device(files);
        EXPECT_TRUE(device.authenticate("admin", "correct horse"));
        EXPECT_TRUE(device.change(setMicGain(start + 1)).done());
        EXPECT_EQ(textOfFile(files.state).find("passwordHash"), std::string::npos);
    }
    EXPECT_TRUE(isTidy());
}

TEST_F(StoredState, IsCleanedUpAfterAnInterruptedSave) {
    { Device(files).change(setMicGain(3)); }
    writeTextFile(files.state + ".new", "half a fi");
    writeTextFile(changes + ".new", "half a fi");
    writeTextFile(folder.file("password.1.new"), "half a fi");
    writeTextFile(folder.file("password.2.new"), "half a fi");
    Device device(files);
    EXPECT_EQ(micGain(device), 3);
    EXPECT_TRUE(isTidy());
}

TEST_F(StoredState, IsCompleteWheneverTheProcessIsKilled) {
    Device(files).preparePassword();
    int moved = 0;
    unsigned random = 4711;
    for (int round = 0; round < 60; ++round) {
        const int changesFirst = round % 2;
        int progress[2];
        ASSERT_EQ(pipe(progress), 0);
        const pid_t child = fork();
        if (child == 0) {
            // In every state written, the two values match.
            Device device(files);
            for (int i = 0;; ++i) {
                if (i == changesFirst)
                    write(progress[1], "x", 1);
                device.change([i](State& state) {
                    state.settings.network.vlan = i % 1000 + 1;
                    state.settings.network.hostname = "phone-" + std::to_string(i % 1000 + 1);
                    return Errors();
                });
            }
        }
        char begun = 0;
        EXPECT_EQ(read(progress[0], &begun, 1), 1);
        random = random * 1103515245u + 12345u;
        usleep(random / 65536 % 20000);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        close(progress[0]);
        close(progress[1]);

        recorded_log::clear();
        Device device(files);
        const Network network = device.state()->settings.network;
        EXPECT_FALSE(logged("error", ""));
        EXPECT_TRUE(isTidy());
        EXPECT_EQ(device.state()->directory.contacts().size(), 2u);
        if (network.vlan != 0) {
            EXPECT_EQ(network.hostname, "phone-" + std::to_string(network.vlan));
            ++moved;
        }
    }
    EXPECT_GE(moved, 30) << "the children were killed before they did anything";
}

TEST_F(StoredState, AuthenticatesByNameAndPassword) {
    Device device(files);
    const char* const attempts[][2] = {{"", ""},           {"admin", ""},       {"", "admin"},
                                       {"admin", "Admin"}, {"Admin", "admin"},  {"adminn", "admin"},
                                       {"admi", "admin"},  {"admin", "adminn"}, {"x", "y"}};
    for (const auto& attempt : attempts) {
        EXPECT_FALSE(device.authenticate(attempt[0], attempt[1]))
            << attempt[0] << " / " << attempt[1];
    }
}

TEST_F(StoredState, AuthenticatesUnknownUsersInTheSameTime) {
    Device device(files);
    const auto cost = [&device](const char* name) {
        const std::clock_t begin = std::clock();
        for (int i = 0; i < 5; ++i) {
            device.authenticate(name, "wrong");
        }
        return static_cast<double>(std::clock() - begin);
    };
    const double known = cost("admin");
    const double unknown = cost("nobody");
    EXPECT_GT(unknown, known / 3);
    EXPECT_LT(unknown, known * 3);
}

TEST_F(StoredState, ReportsErrorsInANewPassword) {
    Device device(files);
    const std::string old = "garden gate";
    ASSERT_TRUE(device.changePassword("", old, old).done());
    std::string emojis;
    for (int i = 0; i < 128; ++i) {
        emojis += "\xF0\x9F\x98\x80";
    }
    const std::string good = "longer than eight";
    const struct {
        std::string oldPassword;
        std::string newPassword;
        std::string repeat;
        const char* errors;
    } cases[] = {
        {"wrong", good, good, "oldPassword: wrongPassword"},
        {"", good, good, "oldPassword: wrongPassword"},
        {"admin", good, good, "oldPassword: wrongPassword"},
        {old, "", "", "newPassword: required"},
        {old, "1234567", "1234567", "newPassword: tooShort 8"},
        {old, std::string(129, 'x'), "", "newPassword: tooLong 128"},
        {old, emojis, emojis, "newPassword: tooLong 127"},
        {old, good + "\n", good + "\n", "newPassword: badCharacters"},
        {old, good + "\xFF", good + "\xFF", "newPassword: notUtf8"},
        {old, "Password2026!", "Password2026!", "newPassword: tooCommon"},
        {old, old, old, "newPassword: same"},
        {old, good, good + "x", "repeat: mismatch"},
        {old, good, "", "repeat: mismatch"},
        {good, good, good, "oldPassword: wrongPassword, newPassword: same"},
        {"wrong", "short", "x", "oldPassword: wrongPassword, newPassword: tooShort 8"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(
            textOf(device.changePassword(test.oldPassword, test.newPassword, test.repeat).errors),
            test.errors);
    }
    EXPECT_TRUE(device.authenticate("admin", old));
}

TEST_F(StoredState, AsksForNoFormerPasswordOnlyWhileItIsTheFactoryOne) {
    Device device(files);
    const std::string good = "longer than eight";
    const std::string other = "another one";
    EXPECT_EQ(textOf(device.changePassword("", "admin", "admin").errors),
              "newPassword: tooShort 8");
    EXPECT_EQ(textOf(device.changePassword("", good, other).errors), "repeat: mismatch");
    EXPECT_TRUE(device.authenticate("admin", "admin"));
    EXPECT_TRUE(device.state()->settings.web.factoryPassword);
    EXPECT_TRUE(device.changePassword("", good, good).done());
    EXPECT_FALSE(device.state()->settings.web.factoryPassword);
    EXPECT_EQ(textOf(device.changePassword("", other, other).errors), "oldPassword: wrongPassword");
    EXPECT_TRUE(device.factoryReset().done());
    EXPECT_TRUE(device.changePassword("", other, other).done());
    EXPECT_TRUE(device.authenticate("admin", other));
}

TEST_F(StoredState, ChangesThePassword) {
    const std::string longest = std::string(127, 'x') + "y";
    {
        Device device(files);
        ASSERT_TRUE(device.changePassword("admin", longest, longest).done());
    }
    Device device(files);
    EXPECT_FALSE(device.authenticate("admin", "admin"));
    EXPECT_TRUE(device.authenticate("admin", longest));
    EXPECT_FALSE(device.state()->settings.web.factoryPassword);
}

TEST_F(StoredState, AllowsOneOfSeveralSimultaneousPasswordChanges) {
    Device device(files);
    std::atomic<int> done{0};
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&device, &done, i] {
            const std::string password = "new password " + std::to_string(i);
            const Outcome outcome = device.changePassword("admin", password, password);
            done += outcome.done();
            EXPECT_EQ(textOf(outcome.errors), outcome.done() ? "" : "oldPassword: wrongPassword");
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(done, 1);
}

TEST_F(StoredState, IsResetToTheFactorySettings) {
    Device device(files);
    device.changePassword("admin", "new password", "new password");
    device.change([](State& state) {
        state.settings.audio.micGain = 3;
        state.directory.remove("Ann");
        return keepLocalCopy(state);
    });
    device.change([](State& state) {
        state.settings.accounts[0].secret = "sesame";
        return Errors();
    });
    ASSERT_NE(savedText().find("sesame"), std::string::npos);
    ASSERT_TRUE(device.factoryReset().done());
    EXPECT_EQ(micGain(device), 0);
    EXPECT_NE(device.state()->directory.find("Ann"), nullptr);
    EXPECT_TRUE(device.authenticate("admin", "admin"));
    EXPECT_EQ(device.state()->localCopy, "");
    EXPECT_EQ(savedText().find("sesame"), std::string::npos);
}

TEST_F(StoredState, GivesEachReaderAConsistentSnapshot) {
    Device device(files);
    std::atomic<bool> stop{false};
    std::atomic<int> torn{0};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            while (!stop) {
                const auto state = device.state();
                const auto& audio = state->settings.audio;
                torn += audio.micGain != 0 &&
                        state->directory.find("Gain " + std::to_string(audio.micGain)) == nullptr;
            }
        });
    }
    std::vector<std::thread> writers;
    writers.reserve(2);
    std::atomic<int> sum{0};
    for (int i = 0; i < 2; ++i) {
        writers.emplace_back([&] {
            for (int n = 0; n < 50; ++n) {
                const Outcome outcome = device.change([](State& state) {
                    const int old = state.settings.audio.micGain;
                    state.settings.audio.micGain = old % 6 + 1;
                    state.directory.remove("Gain " + std::to_string(old));
                    state.settings.network.vlan += 1;
                    return state.directory.add({"Gain " + std::to_string(old % 6 + 1), "1"});
                });
                sum += outcome.done();
            }
        });
    }
    for (std::thread& writer : writers) {
        writer.join();
    }
    stop = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(sum, 100);
    EXPECT_EQ(device.state()->settings.network.vlan, 100) << "a change was lost";
}
