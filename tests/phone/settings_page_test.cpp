// The pages "network" and "audio".
#include "phone_test.h"

namespace {

const Fields kStatic{{"mode", "static"},           {"address", "192.168.1.20"},
                     {"netmask", "255.255.255.0"}, {"gateway", "192.168.1.1"},
                     {"dns1", "192.168.1.2"},      {"dns2", ""},
                     {"hostname", "hall-phone"},   {"vlan", "4094"}};
const Fields kAudio{{"ringtone", "pulse"},  {"ringVolume", "0"}, {"speakerVolume", "10"},
                    {"handsetVolume", "7"}, {"micGain", "-6"},   {"echo", "1"},
                    {"codec", "pcmu"}};

Fields with(Fields fields, const char* name, const std::string& value) {
    for (auto& [field, present] : fields) {
        present = field == name ? value : present;
    }
    return fields;
}

struct Wrong {
    const char* field;
    const char* value;
    const char* message;
};

class SettingsPages : public SignedInFixture {
protected:
    void expectRefused(const char* page, const Fields& good, const Wrong& wrong) {
        const std::string before = savedText();
        const Answer answer = me.submit(page, with(good, wrong.field, wrong.value));
        EXPECT_EQ(answer.status, 422) << wrong.field << " = " << wrong.value;
        EXPECT_EQ(answer.error(wrong.field), wrong.message) << wrong.field << " = " << wrong.value;
        EXPECT_EQ(answer.alert(), "One field needs attention. Nothing was saved.") << wrong.field;
        EXPECT_EQ(savedText(), before);
    }

    void expectSaved(const char* page, const Fields& fields) {
        const Answer answer = me.submit(page, fields);
        EXPECT_EQ(answer.status, 303);
        EXPECT_EQ(answer.location(), "/servlet?p=" + std::string(page));
        const Answer shown = me.send(get(answer.location()));
        EXPECT_EQ(shown.done(), "Saved.");
        for (const auto& [name, value] : fields) {
            EXPECT_EQ(shown.field(name), value) << name;
        }
        EXPECT_EQ(me.page(page).done(), "") << "shown only after saving";
    }

    void expectFailureShown(const char* page, const Fields& fields, const char* field) {
        const auto former = me.page(page).field(field);
        breakTheDisk();
        const Answer answer = me.submit(page, fields);
        EXPECT_EQ(answer.status, 500);
        EXPECT_EQ(
            answer.alert(),
            "The change could not be saved. The previous settings and contacts are still in use.");
        EXPECT_NE(answer.field(field), former);
        EXPECT_EQ(me.page(page).field(field), former);
    }
};

} // namespace

TEST_F(SettingsPages, ShowTheNetworkSettings) {
    const Answer page = me.page("network");
    EXPECT_EQ(page.title(), "Network");
    EXPECT_EQ(page.field("mode"), "dhcp");
    EXPECT_EQ(page.field("address"), "");
    EXPECT_EQ(page.field("hostname"), "desk-phone");
    EXPECT_EQ(page.field("vlan"), "");
}

TEST_F(SettingsPages, SaveTheNetworkSettings) {
    expectSaved("network", kStatic);
    EXPECT_EQ(saved()->settings.network.gateway, "192.168.1.1");
    EXPECT_EQ(saved()->settings.network.vlan, 4094);
    restart();
    Visitor again(*container);
    again.signIn();
    EXPECT_EQ(again.page("network").field("address"), "192.168.1.20");
}

// The attack: a link makes the phone say that it did something.
TEST_F(SettingsPages, SayNothingThatTheAddressSays) {
    for (const char* address :
         {"network&saved=1", "network&flash=saved", "audio&result=saved", "audio&flash=saved"}) {
        EXPECT_EQ(me.page(address).done(), "") << address;
    }
}

TEST_F(SettingsPages, ShowErrorsInTheNetworkForm) {
    const Wrong cases[] = {
        {"address", "", "Please fill in this field."},
        {"address", "192.168.1.256", "Enter an IP address, for example 192.168.1.20."},
        {"address", "192.168.1.0", "This address is reserved and cannot be used here."},
        {"address", "192.168.1.255", "This address is reserved and cannot be used here."},
        {"netmask", "255.0.255.0", "Enter a subnet mask, for example 255.255.255.0."},
        {"gateway", "10.0.0.1", "This address is outside the phone's network."},
        {"gateway", "192.168.1.20", "This address is reserved and cannot be used here."},
        {"dns1", "", "Please fill in this field."},
        {"dns2", "<b>", "Enter an IP address, for example 192.168.1.20."},
        {"hostname", "", "Please fill in this field."},
        {"hostname", "two words", "Enter a valid host name."},
        {"vlan", "0", "Enter a value of at least 1."},
        {"vlan", "4095", "Enter a value of at most 4094."},
    };
    for (const Wrong& wrong : cases) {
        expectRefused("network", kStatic, wrong);
    }
    const Answer answer = me.submit("network", with(kStatic, "mode", "pigeon"));
    EXPECT_EQ(answer.status, 422);
    EXPECT_EQ(answer.error("mode"), "Choose one of the listed options.");
}

TEST_F(SettingsPages, ReportThatSavingTheNetworkFailed) {
    expectFailureShown("network", kStatic, "hostname");
}

TEST_F(SettingsPages, SaveTheAudioSettings) {
    expectSaved("audio", kAudio);
    expectSaved("audio", with(with(kAudio, "ringtone", "soft"), "codec", "opus"));
    EXPECT_EQ(saved()->settings.audio.micGain, -6);
    Fields withoutBox = kAudio;
    withoutBox.erase(withoutBox.begin() + 5);
    me.submit("audio", withoutBox);
    EXPECT_EQ(me.page("audio").field("echo"), "");
}

TEST_F(SettingsPages, ShowErrorsInTheAudioForm) {
    const Wrong cases[] = {
        {"ringtone", "drum", "Choose one of the listed options."},
        {"ringVolume", "-1", "Enter a value of at least 0."},
        {"speakerVolume", "11", "Enter a value of at most 10."},
        {"handsetVolume", "loud", "Enter a whole number."},
        {"micGain", "7", "Enter a value of at most 6."},
        {"micGain", "-7", "Enter a value of at least -6."},
        {"codec", "", "Please fill in this field."},
    };
    for (const Wrong& wrong : cases) {
        expectRefused("audio", kAudio, wrong);
    }
}

TEST_F(SettingsPages, ReportThatSavingTheAudioFailed) {
    expectFailureShown("audio", kAudio, "ringtone");
}
