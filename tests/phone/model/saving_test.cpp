// Saving the phone's state while system calls fail, memory runs out or the process is killed, at
// every possible moment.
#include "counted_memory.h"
#include "disk_calls.h"
#include "model/atomic_file.h"
#include "model/device.h"

#include "temporary_folder.h"

#include <kit/testing/recorded_log.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <gtest/gtest.h>

#include <new>
#include <pugixml.hpp>
#include <stdexcept>
#include <string>
#include <utility>

using namespace phone;
using disk_calls::Calls;
using kit::testing::recorded_log::records;

namespace {

constexpr int kOldGain = 2;
constexpr int kNewGain = 5;

class Saving : public ::testing::Test {
protected:
    Saving() {
        writeTextFile(files.factoryContacts, "name,number\nAnn,1001\n");
        writeTextFile(folder.file("reset"), "");
        Device device(files);
        EXPECT_TRUE(setGain(device, kOldGain).done());
        old = savedTexts();
    }

    // The state file and the changed settings.
    using Texts = std::pair<std::string, std::string>;
    Texts savedTexts() const { return {textOfFile(files.state), textOfFile(changes)}; }
    void putOldState() {
        writeTextFile(files.state, old.first);
        writeTextFile(changes, old.second);
    }

    static Outcome setGain(Device& device, int gain) {
        return device.change([gain](State& state) {
            state.settings.audio.micGain = gain;
            return Errors();
        });
    }
    static int gainOf(const Device& device) { return device.state()->settings.audio.micGain; }
    int savedGain() const { return gainOf(Device(files)); }

    // The old state is saved before it, the new one after it.
    static int placeOfRename(const Calls& calls) {
        return static_cast<int>(std::find(calls.begin(), calls.end(), "renameat") - calls.begin()) +
               1;
    }

    void expectOldState() const {
        EXPECT_TRUE(savedTexts() == old);
        expectNothingLeftBehind();
    }
    void expectNothingLeftBehind() const {
        for (const std::string& name : folder.names()) {
            EXPECT_EQ(name.find(".new"), std::string::npos) << name;
            EXPECT_EQ(name.find(".damaged"), std::string::npos) << name;
        }
        EXPECT_LE(folder.names().size(), 5u)
            << "the state, its changes, two times the password and the factory contacts";
    }

    TemporaryFolder folder;
    const Device::Files files{folder.file("phone.xml"), folder.file("factory.csv")};
    const std::string changes = folder.file("changes.xml");
    Texts old;
};

// A change that is saved as a setting, and one that replaces the state file.
enum class Change { ofASetting, ofMore };

class SavingAnyChange : public Saving, public ::testing::WithParamInterface<Change> {
protected:
    static Outcome make(Device& device, int gain) {
        return device.change([gain](State& state) {
            state.settings.audio.micGain = gain;
            if (GetParam() == Change::ofMore) {
                state.localCopy = copyOf(gain);
            }
            return Errors();
        });
    }
    static std::string copyOf(int gain) { return "copy " + std::to_string(gain); }

    static void expectGain(const Device& device, int gain) {
        EXPECT_EQ(gainOf(device), gain);
        if (GetParam() == Change::ofMore) {
            EXPECT_EQ(device.state()->localCopy, gain == kOldGain ? "" : copyOf(gain));
        }
    }

    Calls callsOfAChange() {
        Device device(files);
        Calls calls = disk_calls::of([&] { EXPECT_TRUE(make(device, kNewGain).done()); });
        putOldState();
        return calls;
    }
};

INSTANTIATE_TEST_SUITE_P(, SavingAnyChange, ::testing::Values(Change::ofASetting, Change::ofMore),
                         [](const auto& change) {
                             return change.param == Change::ofASetting ? "OfASetting" : "OfMore";
                         });

} // namespace

TEST_P(SavingAnyChange, MakesTheseSystemCalls) {
    Calls expected{"unlink",   "openat", "write", "fsync", "close",
                   "renameat", "open",   "fsync", "close"};
    if (GetParam() == Change::ofMore) {
        expected.emplace_back("unlink"); // the changes that now stand in the state file
    }
    EXPECT_EQ(callsOfAChange(), expected);
}

TEST_P(SavingAnyChange, ChangesNothingOrAllIfASystemCallFails) {
    const Calls all = callsOfAChange();
    for (const int error : {ENOSPC, EIO, EDQUOT, EROFS, EMFILE, ENOMEM}) {
        for (int number = 1; number <= static_cast<int>(all.size()); ++number) {
            const std::string call = all[static_cast<std::size_t>(number) - 1];
            SCOPED_TRACE(call + ", call " + std::to_string(number) + ", error " +
                         std::to_string(error));
            Device device(files);
            Outcome outcome;
            disk_calls::withFailure(number, error, [&] { outcome = make(device, kNewGain); });
            // Once the data was synced, a failure of close(2) does not matter.
            const bool done = number > placeOfRename(all) || call == "close" || call == "unlink";
            EXPECT_EQ(outcome.done(), done);
            expectGain(device, done ? kNewGain : kOldGain);
            EXPECT_EQ(savedTexts() == old, !done);
            expectNothingLeftBehind();
            expectGain(Device(files), gainOf(device));
            EXPECT_TRUE(make(device, kNewGain + 1).done()) << "the next change succeeds";
            expectGain(Device(files), kNewGain + 1);
            putOldState();
        }
    }
}

TEST_P(SavingAnyChange, KeepsTheOldOrTheNewStateIfKilled) {
    const Calls all = callsOfAChange();
    for (int number = 1; number <= static_cast<int>(all.size()); ++number) {
        SCOPED_TRACE(all[static_cast<std::size_t>(number) - 1] + ", call " +
                     std::to_string(number));
        Device device(files);
        ASSERT_TRUE(disk_calls::killedAt(number, [&] { make(device, kNewGain); }));
        kit::testing::recorded_log::clear();
        expectGain(Device(files), number > placeOfRename(all) ? kNewGain : kOldGain);
        for (const auto& record : records()) {
            EXPECT_EQ(record.call, "info") << record.text;
        }
        expectNothingLeftBehind();
        putOldState();
    }
}

// The first start saves the factory settings.
TEST_F(Saving, StartsAgainAfterBeingKilledAtTheFirstStart) {
    const auto start = [this] { Device(files).authenticate("admin", "admin"); };
    const auto makeNew = [this] {
        for (const char* name : {"phone.xml", "changes.xml", "password.1", "password.2"}) {
            std::filesystem::remove(folder.file(name));
        }
        writeTextFile(folder.file("reset"), "");
    };
    makeNew();
    const Calls all = disk_calls::of(start);
    for (int number = 1; number <= static_cast<int>(all.size()); ++number) {
        SCOPED_TRACE(all[static_cast<std::size_t>(number) - 1] + ", call " +
                     std::to_string(number));
        makeNew();
        ASSERT_TRUE(disk_calls::killedAt(number, start));
        Device device(files);
        EXPECT_TRUE(device.authenticate("admin", "admin"));
        EXPECT_EQ(device.state()->directory.contacts().size(), 1u);
        EXPECT_NE(textOfFile(files.state), "");
        expectNothingLeftBehind();
    }
}

// The file may be valid: it must not be replaced by the factory password.
TEST_F(Saving, KeepsAStateThatCannotBeReadAtAStart) {
    for (const int error : {EIO, EMFILE, ENFILE, ENOMEM, EACCES}) {
        const int opened = 2; // the first call removes what a killed process may have left
        const auto start = [this] { EXPECT_THROW(Device{files}, std::runtime_error); };
        EXPECT_EQ(disk_calls::withFailure(opened, error, start), (Calls{"unlink", "open"}));
        expectOldState();
    }
    EXPECT_EQ(savedGain(), kOldGain);

    std::filesystem::remove(files.state);
    std::filesystem::create_directory(files.state); // can be opened, but not read
    EXPECT_THROW(Device{files}, std::runtime_error);
    expectNothingLeftBehind();
}

TEST_F(Saving, KeepsTheStateWithoutMemoryAtAStart) {
    int failures = 0;
    for (bool started = false; !started; ++failures) {
        counted_memory::failAfter(failures);
        try {
            Device device(files);
            started = true;
            EXPECT_EQ(gainOf(device), kOldGain);
        } catch (const std::bad_alloc&) {
        }
        counted_memory::cancelFailure();
        expectOldState();
    }
    EXPECT_GT(failures, 10);
}

TEST_F(Saving, KeepsTheStateWithoutMemoryForTheParser) {
    static int left = 0;
    const auto allocate = [](std::size_t size) { return left-- > 0 ? std::malloc(size) : nullptr; };
    const auto allocateBefore = pugi::get_memory_allocation_function();
    const auto releaseBefore = pugi::get_memory_deallocation_function();
    int failures = 0;
    for (bool started = false; !started; ++failures) {
        left = failures;
        pugi::set_memory_management_functions(allocate, std::free);
        try {
            Device device(files);
            started = true;
            EXPECT_EQ(gainOf(device), kOldGain);
        } catch (const std::bad_alloc&) {
        }
        pugi::set_memory_management_functions(allocateBefore, releaseBefore);
        expectOldState();
    }
    EXPECT_GT(failures, 1);
}

// The state in memory is the one on the disk.
TEST_P(SavingAnyChange, ChangesNothingOrAllWithoutMemory) {
    int failures = 0;
    for (bool changed = false; !changed; ++failures) {
        Device device(files);
        counted_memory::failAfter(failures);
        try {
            changed = make(device, kNewGain).done();
        } catch (const std::bad_alloc&) {
        }
        counted_memory::cancelFailure();
        SCOPED_TRACE(failures);
        expectGain(device, changed ? kNewGain : kOldGain);
        expectNothingLeftBehind();
        expectGain(Device(files), gainOf(device));
    }
    EXPECT_GT(failures, 10);
}

// An earlier password must not count because the newer one cannot be read at the moment.
TEST_F(Saving, DoesNotStartWhileAPasswordCannotBeRead) {
    { EXPECT_TRUE(Device(files).changePassword("admin", "correct horse", "correct horse").done()); }
    const auto start = [this] { EXPECT_THROW(Device{files}, std::runtime_error); };
    const Calls all = disk_calls::of([this] { Device device(files); });
    for (int number = 1; number <= static_cast<int>(all.size()); ++number) {
        if (all[static_cast<std::size_t>(number) - 1] == "open") {
            disk_calls::withFailure(number, EMFILE, start);
        }
    }
    EXPECT_TRUE(Device(files).authenticate("admin", "correct horse"));
}

TEST_F(Saving, KeepsTheOldOrTheNewPasswordIfKilled) {
    const auto change = [](Device& device, const char* from, const char* to) {
        return device.changePassword(from, to, to).done();
    };
    {
        Device device(files);
        ASSERT_TRUE(change(device, "admin", "old password"));
    }
    int number = 1;
    bool isChanged = false;
    for (bool wasKilled = true; wasKilled; ++number) {
        SCOPED_TRACE(number);
        {
            Device device(files);
            wasKilled = disk_calls::killedAt(
                number, [&] { change(device, "old password", "new password"); });
        }
        Device device(files);
        isChanged = device.authenticate("admin", "new password");
        EXPECT_NE(device.authenticate("admin", "old password"), isChanged);
        expectNothingLeftBehind();
        if (isChanged) {
            ASSERT_TRUE(change(device, "new password", "old password"));
        }
    }
    EXPECT_TRUE(isChanged) << "the last time nothing was killed";
    EXPECT_GT(number, 18) << "each of the two files takes nine calls";
}

// Each change replaces the older file first. Otherwise the file that could not be written would
// keep the factory password.
TEST_F(Saving, LosesTheLastPasswordAtMostIfOneFileCannotBeWrittenAndTheOtherIsDamaged) {
    constexpr int kCallsForOneFile = 9;
    {
        Device device(files);
        for (const auto& [from, to] : {std::pair("admin", "first password"),
                                       std::pair("first password", "second password")}) {
            bool isDone = false;
            disk_calls::withFailuresFrom(kCallsForOneFile + 1, ENOSPC, [&, from = from, to = to] {
                isDone = device.changePassword(from, to, to).done();
            });
            ASSERT_TRUE(isDone) << to;
        }
    }
    const auto numberIn = [this](const char* name) {
        return std::stoul(textOfFile(folder.file(name)));
    };
    ASSERT_NE(numberIn("password.1"), numberIn("password.2")) << "one of them was not written";
    const bool isFirstNewer = numberIn("password.1") > numberIn("password.2");
    writeTextFile(folder.file(isFirstNewer ? "password.1" : "password.2"), "damaged");
    Device device(files);
    EXPECT_TRUE(device.authenticate("admin", "first password"));
    EXPECT_FALSE(device.authenticate("admin", "admin"));
}

TEST_F(Saving, KeepsOrChangesThePasswordIfASystemCallFails) {
    std::string present = "admin";
    for (int number = 1; number <= 30; ++number) {
        SCOPED_TRACE(number);
        const std::string wanted = "quiet harbour " + std::to_string(number);
        {
            Device device(files);
            bool done = false;
            disk_calls::withFailuresFrom(number, ENOSPC, [&] {
                done = device.changePassword(present, wanted, wanted).done();
            });
            present = done ? wanted : present;
            EXPECT_TRUE(device.authenticate("admin", present));
        }
        EXPECT_TRUE(Device(files).authenticate("admin", present));
        EXPECT_EQ(savedGain(), kOldGain);
    }
    EXPECT_EQ(present, "quiet harbour 30");
}
