#include "model/network_trial.h"
#include "temporary_folder.h"

#include <kit/testing/recorded_log.h>

#include <gtest/gtest.h>

#include <memory>

using namespace phone;
using std::chrono::seconds;

namespace {

// A phone at the fixed address 10.0.0.5.
class NetworkChange : public testing::Test {
protected:
    NetworkChange() {
        writeTextFile(folder.file("reset"), "");
        device = std::make_unique<Device>(Device::Files{folder.file("state.xml"), ""});
        device->change([](State& state) { return moveTo(state, "10.0.0.5"); });
        startDaemon();
    }

    static Errors moveTo(State& state, const std::string& address) {
        return readValues({{"mode", "static"},
                           {"address", address},
                           {"netmask", "255.255.255.0"},
                           {"gateway", "10.0.0.1"},
                           {"dns1", "10.0.0.2"},
                           {"hostname", "desk"}},
                          state.settings.network);
    }

    void startDaemon() {
        trial.reset();
        trial = std::make_unique<NetworkTrial>(*device, folder.file("trial.xml"),
                                               [this] { return now; });
    }

    Outcome changeTo(const std::string& address) {
        return trial->change([&](State& state) { return moveTo(state, address); });
    }

    void wait(int time) {
        now += seconds(time);
        trial->settle();
    }

    std::string address() const { return device->state()->settings.network.address; }
    bool isStored() const {
        const auto names = folder.names();
        return std::find(names.begin(), names.end(), "trial.xml") != names.end();
    }

    TemporaryFolder folder;
    seconds now{1000};
    std::unique_ptr<Device> device;
    std::unique_ptr<NetworkTrial> trial;
};

} // namespace

TEST_F(NetworkChange, UndoesAChangeThatIsNotConfirmedInTime) {
    EXPECT_TRUE(changeTo("10.0.0.6").done());
    ASSERT_TRUE(trial->running());
    EXPECT_EQ(trial->running()->address, "10.0.0.6");
    EXPECT_EQ(trial->running()->remaining, seconds(120));
    wait(119);
    EXPECT_EQ(address(), "10.0.0.6");
    EXPECT_EQ(trial->running()->remaining, seconds(1));
    wait(1);
    EXPECT_EQ(address(), "10.0.0.5");
    EXPECT_FALSE(trial->running());
    EXPECT_EQ(trial->undoneAddress(), "10.0.0.6");
    EXPECT_FALSE(isStored());
}

TEST_F(NetworkChange, KeepsAChangeThatIsConfirmedFromTheNewAddress) {
    EXPECT_FALSE(trial->confirm("10.0.0.5")) << "nothing is on trial";
    changeTo("10.0.0.6");
    EXPECT_FALSE(trial->confirm("10.0.0.5"));
    EXPECT_FALSE(trial->confirm(""));
    EXPECT_FALSE(trial->confirm("desk"));
    EXPECT_TRUE(trial->running());
    EXPECT_TRUE(trial->confirm("10.0.0.6"));
    EXPECT_FALSE(trial->running());
    wait(1000);
    EXPECT_EQ(address(), "10.0.0.6");
    EXPECT_EQ(trial->undoneAddress(), "");
    EXPECT_FALSE(isStored());
}

TEST_F(NetworkChange, AppliesToWhatDecidesHowThePhoneIsReached) {
    const auto starts = [&](const auto& set) {
        trial->change([&](State& state) {
            set(state.settings.network);
            return Errors();
        });
        const bool isRunning = trial->running().has_value();
        trial->undo();
        return isRunning;
    };
    EXPECT_TRUE(starts([](Network& network) { network.mode = "dhcp"; }));
    EXPECT_TRUE(starts([](Network& network) { network.netmask = "255.255.0.0"; }));
    EXPECT_TRUE(starts([](Network& network) { network.gateway = "10.0.0.9"; }));
    EXPECT_TRUE(starts([](Network& network) { network.vlan = 7; }));
    EXPECT_FALSE(starts([](Network& network) { network.hostname = "hall"; }));
    EXPECT_FALSE(starts([](Network& network) { network.dns1 = "10.0.0.3"; }));
    EXPECT_EQ(address(), "10.0.0.5");
}

TEST_F(NetworkChange, GoesBackToTheLastConfirmedSettings) {
    changeTo("10.0.0.6");
    wait(100);
    changeTo("10.0.0.7");
    EXPECT_EQ(trial->running()->remaining, seconds(120)) << "another address, another trial";
    wait(100);
    trial->change([](State& state) {
        state.settings.network.hostname = "hall";
        return Errors();
    });
    EXPECT_EQ(trial->running()->remaining, seconds(20)) << "the same address";
    wait(20);
    EXPECT_EQ(address(), "10.0.0.5");
}

TEST_F(NetworkChange, EndsWhenThePreviousAddressIsRestored) {
    changeTo("10.0.0.6");
    changeTo("10.0.0.5");
    EXPECT_FALSE(trial->running());
    EXPECT_FALSE(isStored());
}

TEST_F(NetworkChange, UndoesAChangeAtOnce) {
    EXPECT_TRUE(trial->undo().done()) << "nothing is on trial";
    changeTo("10.0.0.6");
    EXPECT_TRUE(trial->undo().done());
    EXPECT_EQ(address(), "10.0.0.5");
    EXPECT_FALSE(trial->running());
    EXPECT_EQ(trial->undoneAddress(), "") << "the user knows";
}

TEST_F(NetworkChange, DoesNotStartForARefusedChange) {
    EXPECT_FALSE(changeTo("10.0.0.0").done());
    EXPECT_FALSE(trial->running());
    EXPECT_FALSE(isStored());
}

TEST_F(NetworkChange, SurvivesARestartOfTheDaemon) {
    changeTo("10.0.0.6");
    now += seconds(60);
    startDaemon();
    ASSERT_TRUE(trial->running());
    EXPECT_EQ(trial->running()->remaining, seconds(60));
    wait(60);
    EXPECT_EQ(address(), "10.0.0.5");
}

TEST_F(NetworkChange, UndoesAtTheStartWhatWasNotConfirmedInTime) {
    changeTo("10.0.0.6");
    now += seconds(500);
    startDaemon();
    EXPECT_EQ(address(), "10.0.0.5");
    changeTo("10.0.0.6");
    now = seconds(20);
    startDaemon();
    EXPECT_EQ(address(), "10.0.0.5") << "the device was switched off and on";
}

TEST_F(NetworkChange, DoesNotUndoAReset) {
    changeTo("10.0.0.6");
    writeTextFile(folder.file("reset"), "");
    device = std::make_unique<Device>(Device::Files{folder.file("state.xml"), ""});
    startDaemon();
    EXPECT_FALSE(trial->running());
    EXPECT_FALSE(isStored());
    wait(1000);
    EXPECT_EQ(device->state()->settings.network.mode, "dhcp");
}

TEST_F(NetworkChange, IgnoresADamagedFile) {
    for (const char* text : {"", "<a/>", "<networkTrial><begun>x</begun></networkTrial>"}) {
        writeTextFile(folder.file("trial.xml"), text);
        startDaemon();
        EXPECT_FALSE(trial->running()) << text;
        EXPECT_EQ(address(), "10.0.0.5") << text;
    }
}

TEST_F(NetworkChange, RefusesAChangeThatItCouldNotUndo) {
    trial = std::make_unique<NetworkTrial>(*device, folder.file("missing/trial.xml"),
                                           [this] { return now; });
    EXPECT_TRUE(changeTo("10.0.0.6").saveFailed);
    EXPECT_EQ(address(), "10.0.0.5");
    EXPECT_FALSE(trial->running());
}
