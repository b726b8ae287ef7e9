// The two files of the state: what a saved setting costs, and which of the files counts.
#include "damaged_text.h"
#include "disk_calls.h"
#include "model/device.h"
#include "model/state_file.h"

#include "temporary_folder.h"

#include <kit/testing/recorded_log.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using namespace phone;
using disk_calls::Calls;
namespace recorded_log = kit::testing::recorded_log;

namespace {

// One write, and two flushes: of the file and of its folder.
const Calls kSmallSave{"unlink",   "openat", "write", "fsync", "close",
                       "renameat", "open",   "fsync", "close"};

constexpr std::uintmax_t kTwoSectors = 1024;

class StoredSettings : public ::testing::Test {
protected:
    StoredSettings() {
        writeTextFile(files.factoryContacts, "name,number\nAnn,1001\n");
        writeTextFile(folder.file("reset"), "");
        { EXPECT_TRUE(Device(files).authenticate("admin", "admin")); }
        recorded_log::clear();
    }

    template <typename Set>
    static Outcome change(Device& device, Set set) {
        return device.change([&set](State& state) {
            set(state.settings);
            return Errors();
        });
    }
    static Outcome setGain(Device& device, int gain) {
        return change(device, [gain](Settings& settings) { settings.audio.micGain = gain; });
    }
    // Replaces the state file.
    static Outcome keepCopy(Device& device, const std::string& copy) {
        return device.change([&copy](State& state) {
            state.localCopy = copy;
            return Errors();
        });
    }
    static int gainOf(const Device& device) { return device.state()->settings.audio.micGain; }
    static std::string textOf(const Device& device) {
        return settingsText(device.state()->settings);
    }

    bool hasChanges() const { return std::filesystem::exists(changes); }

    // Expects that a change of settings is saved by one small file.
    template <typename Set>
    void expectSmallSave(Device& device, Set set) {
        const std::string before = textOfFile(files.state);
        const Calls calls = disk_calls::of([&] { EXPECT_TRUE(change(device, set).done()); });
        EXPECT_EQ(calls, kSmallSave);
        ASSERT_TRUE(hasChanges());
        EXPECT_LE(std::filesystem::file_size(changes), kTwoSectors);
        EXPECT_TRUE(textOfFile(files.state) == before);
        EXPECT_EQ(textOf(Device(files)), textOf(device));
    }

    static bool logged(const std::string& call, const std::string& part) {
        const auto records = recorded_log::records();
        return std::any_of(records.begin(), records.end(), [&](const auto& record) {
            return record.call == call && record.text.find(part) != std::string::npos;
        });
    }

    TemporaryFolder folder;
    const Device::Files files{folder.file("phone.xml"), folder.file("factory.csv")};
    const std::string changes = folder.file("changes.xml");
};

// Fills everything with texts that are as long as they may be.
void fill(State& state) {
    for (std::size_t i = 0; i < Directory::kMaxContacts; ++i) {
        std::string name = std::to_string(i);
        name.resize(64, '&');
        state.directory.put({name, "1001"});
    }
    for (Account& account : state.settings.accounts) {
        account.enabled = true;
        account.label = std::string(20, '&');
        account.displayName = std::string(40, '&');
        account.userName = std::string(40, '&');
        account.secret = std::string(64, '&');
        account.server = "sip.example.com";
    }
}

} // namespace

TEST_F(StoredSettings, AreSavedInTwoSectorsAndTwoFlushes) {
    Device device(files);
    ASSERT_TRUE(device
                    .change([](State& state) {
                        fill(state);
                        return Errors();
                    })
                    .done());
    ASSERT_GT(std::filesystem::file_size(files.state), 500000u);
    expectSmallSave(device, [](Settings& settings) { settings.audio.speakerVolume = 10; });
    expectSmallSave(device, [](Settings& settings) { settings.audio.micGain = -6; });
    expectSmallSave(device, [](Settings& settings) { settings.network.hostname = "hall"; });
    expectSmallSave(device, [](Settings& settings) { settings.web.idleSeconds = 60; });
    expectSmallSave(device, [](Settings& settings) { settings.audio = Audio(); });
}

// However full the file is.
TEST_F(StoredSettings, AlwaysHaveRoomForThoseOfTheAudioPage) {
    Device device(files);
    const Audio longest{"classic", 10, 10, 10, -6, false, "opus"};
    std::size_t largest = 0;
    for (std::size_t number = 1; number <= WebAccess::kMaxHostNames; ++number) {
        for (int length = 1; length < 60; length += 29) {
            SCOPED_TRACE(std::to_string(number) + " names, the last of " + std::to_string(length));
            ASSERT_TRUE(change(device, [&](Settings& settings) {
                            settings.audio = {"soft", 0, 0, 0, 0, true, "g722"};
                            settings.web.hostNames.resize(number);
                            settings.web.hostNames.back() =
                                std::string(static_cast<std::size_t>(length), 'a') +
                                std::to_string(number);
                        }).done());
            expectSmallSave(device, [&](Settings& settings) { settings.audio = longest; });
            largest = std::max(largest, textOfFile(changes).size());
        }
    }
    EXPECT_GT(largest, kTwoSectors - 150) << "no file was nearly full";
}

TEST_F(StoredSettings, MoveToTheStateFileWhenThereIsNoRoomLeft) {
    Device device(files);
    ASSERT_TRUE(setGain(device, 3).done());
    ASSERT_TRUE(hasChanges());
    ASSERT_TRUE(change(device, [](Settings& settings) {
                    settings.accounts[0].displayName = std::string(40, '&');
                    settings.accounts[0].userName = std::string(40, '&');
                    settings.accounts[0].secret = std::string(64, '&');
                }).done());
    EXPECT_FALSE(hasChanges());
    EXPECT_NE(textOfFile(files.state).find("<micGain>3<"), std::string::npos);
    EXPECT_EQ(textOf(Device(files)), textOf(device));
    expectSmallSave(device, [](Settings& settings) { settings.audio.micGain = 4; });
}

TEST_F(StoredSettings, MoveToTheStateFileWithAnyOtherChange) {
    Device device(files);
    ASSERT_TRUE(setGain(device, 3).done());
    ASSERT_TRUE(device.change([](State& state) {
                          return state.directory.add({"Ben", "1002"});
                      })
                    .done());
    EXPECT_FALSE(hasChanges());
    EXPECT_EQ(gainOf(Device(files)), 3);
    EXPECT_NE(Device(files).state()->directory.find("Ben"), nullptr);
}

// One by one, then all at once, then back.
TEST_F(StoredSettings, AreAllKept) {
    Device device(files);
    const Settings factory = device.state()->settings;
    const std::function<void(Settings&)> sets[] = {
        [](Settings& all) { all.accounts[0].enabled = false; },
        [](Settings& all) { all.accounts[1].label = "\xE7\x8E\x8B <&>"; },
        [](Settings& all) { all.accounts[2].secret = "  "; },
        [](Settings& all) { all.accounts[3].userName = "a"; },
        [](Settings& all) { all.accounts[5].transport = "tls"; },
        [](Settings& all) {
            all.network = {"static",    "192.0.2.10", "255.255.255.0", "192.0.2.1",
                           "192.0.2.2", "",           "hall",          7};
        },
        [](Settings& all) { all.network.vlan = 0; },
        [](Settings& all) { all.audio = {"bell", 0, 1, 2, -3, false, "pcmu"}; },
        [](Settings& all) { all.audio.echo = true; },
        [](Settings& all) {
            all.web.remoteAddresses = {"192.0.2.7", "2001:db8::7"};
        },
        [](Settings& all) { all.web.remoteAddresses.clear(); },
        [](Settings& all) {
            all.web.hostNames = {"a.example", "b.example"};
        },
    };
    for (const auto& set : sets) {
        ASSERT_TRUE(change(device, set).done());
        EXPECT_EQ(textOf(Device(files)), textOf(device));
    }
    ASSERT_TRUE(change(device, [&](Settings& all) {
                    const std::string hash = all.web.passwordHash;
                    all = factory;
                    all.web.passwordHash = hash;
                }).done());
    EXPECT_EQ(textOf(Device(files)), settingsText(factory));
}

// Reading another user name clears the secret of the former user.
TEST_F(StoredSettings, KeepASecretThatIsTheSameForAnotherUser) {
    Device device(files);
    ASSERT_TRUE(change(device, [](Settings& all) { all.accounts[0].secret = "sesame"; }).done());
    ASSERT_TRUE(keepCopy(device, "copy").done());
    expectSmallSave(device, [](Settings& all) { all.accounts[0].userName = "another"; });
    EXPECT_EQ(Device(files).state()->settings.accounts[0].secret, "sesame");
}

// Its state file has everything, and there is no other file.
TEST_F(StoredSettings, OfAnEarlierVersionAreKeptIfKilledAtTheFirstStartOrSave) {
    const std::string before = textOfFile(files.state);
    bool wasKilled = true;
    int number = 1;
    for (; wasKilled; ++number) {
        SCOPED_TRACE(number);
        std::filesystem::remove(changes);
        wasKilled = disk_calls::killedAt(number, [this] {
            Device device(files);
            setGain(device, 3);
        });
        Device device(files);
        EXPECT_TRUE(gainOf(device) == 0 || gainOf(device) == 3);
        EXPECT_EQ(device.state()->directory.contacts().size(), 1u);
        EXPECT_TRUE(textOfFile(files.state) == before);
    }
    EXPECT_EQ(gainOf(Device(files)), 3);
    EXPECT_GT(number, static_cast<int>(kSmallSave.size())) << "no start and save was interrupted";
}

TEST_F(StoredSettings, AreRemovedIfTheyBelongToAnEarlierStateFile) {
    {
        Device device(files);
        ASSERT_TRUE(setGain(device, 3).done());
        const std::string earlier = textOfFile(changes);
        ASSERT_TRUE(keepCopy(device, "copy").done());
        ASSERT_TRUE(setGain(device, 4).done());
        ASSERT_TRUE(keepCopy(device, "").done());
        writeTextFile(changes, earlier);
    }
    EXPECT_EQ(gainOf(Device(files)), 4);
    EXPECT_FALSE(hasChanges());
    EXPECT_TRUE(logged("info", "changes.xml"));
}

// The attack: whoever resets the phone at the device hands on the account of its former owner.
TEST_F(StoredSettings, DoNotComeBackAfterAResetAtTheDevice) {
    const auto reset = [this] { Device(files).authenticate("admin", "admin"); };
    const auto makeUsed = [this] {
        Device device(files);
        ASSERT_TRUE(setGain(device, 3).done());
        writeTextFile(folder.file("reset"), "");
    };
    makeUsed();
    const std::string factory = textOfFile(files.state);
    const Calls all = disk_calls::of(reset);
    EXPECT_EQ(textOfFile(files.state), factory) << "to which the changes would belong again";
    EXPECT_EQ(gainOf(Device(files)), 0);
    for (int number = 1; number <= static_cast<int>(all.size()); ++number) {
        SCOPED_TRACE(number);
        makeUsed();
        ASSERT_TRUE(disk_calls::killedAt(number, reset));
        EXPECT_EQ(gainOf(Device(files)), 0);
        EXPECT_EQ(gainOf(Device(files)), 0);
    }
}

TEST_F(StoredSettings, DoNotComeBackAfterTheStateFileWasDamagedOrLost) {
    const auto start = [this] { Device device(files); };
    for (const bool isLost : {false, true}) {
        bool wasKilled = true;
        for (int number = 1; wasKilled; ++number) {
            SCOPED_TRACE(std::to_string(number) + (isLost ? ", lost" : ", damaged"));
            {
                Device device(files);
                ASSERT_TRUE(setGain(device, 3).done());
            }
            ASSERT_TRUE(hasChanges());
            if (isLost) {
                std::filesystem::remove(files.state);
            } else {
                writeTextFile(files.state, "garbage");
            }
            wasKilled = disk_calls::killedAt(number, start);
            EXPECT_EQ(gainOf(Device(files)), 0);
            EXPECT_EQ(gainOf(Device(files)), 0);
        }
    }
}

TEST_F(StoredSettings, AreThoseOfTheStateFileIfTheChangesAreDamaged) {
    std::string good;
    {
        Device device(files);
        ASSERT_TRUE(setGain(device, 2).done());
        ASSERT_TRUE(keepCopy(device, "copy").done());
        ASSERT_TRUE(change(device, [](Settings& all) {
                        all.accounts[0].secret = "sesame";
                        all.audio.micGain = 3;
                    }).done());
        good = textOfFile(changes);
    }
    const auto damages = damagesOf(good, {
                                             {"<micGain>3<", "<micGain>33<"},
                                             {"<changes>", "<change>"},
                                             {"checksumOfState", "checksum"},
                                             {"<secret></secret>", ""},
                                             {"<configuration>", "<configuration><camera/>"},
                                         });
    for (const std::string& damage : damages) {
        SCOPED_TRACE(damage.substr(0, 60));
        recorded_log::clear();
        writeTextFile(changes, damage);
        Device device(files);
        EXPECT_EQ(gainOf(device), 2);
        EXPECT_EQ(device.state()->settings.accounts[0].secret, "");
        EXPECT_EQ(device.state()->localCopy, "copy");
        EXPECT_TRUE(device.authenticate("admin", "admin"));
        EXPECT_TRUE(textOfFile(changes + ".damaged") == damage);
        EXPECT_FALSE(hasChanges());
        EXPECT_TRUE(logged("error", "damaged"));
    }
}

// The file may be valid: its settings must not be lost.
TEST_F(StoredSettings, AreKeptIfTheyCannotBeReadAtAStart) {
    { ASSERT_TRUE(setGain(*std::make_unique<Device>(files), 3).done()); }
    const std::string text = textOfFile(changes);
    const auto start = [this] { Device device(files); };
    const Calls all = disk_calls::of(start);
    const auto second = std::find(std::find(all.begin(), all.end(), "open") + 1, all.end(), "open");
    const int opened = static_cast<int>(second - all.begin()) + 1;
    for (const int error : {EIO, EMFILE, ENFILE, ENOMEM, EACCES}) {
        disk_calls::withFailure(opened, error, [&] { EXPECT_THROW(start(), std::runtime_error); });
        EXPECT_EQ(textOfFile(changes), text);
    }
    EXPECT_EQ(gainOf(Device(files)), 3);
}
