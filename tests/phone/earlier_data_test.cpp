// A phone whose files come from an earlier version: data/1.0.0/ contains what version 1.0.0 wrote.
// They stay as they are; a later format gets a folder of its own.
#include "phone_test.h"

#include "model/configuration.h"
#include "model/state_file.h"

#include <algorithm>
#include <filesystem>
#include <regex>

using kit::testing::file;
namespace recorded_log = kit::testing::recorded_log;

namespace {

constexpr const char* kPasswordThen = "garden gate 1.0";

std::string contents(const char* name) {
    return textOfFile(std::string(EARLIER_DATA) + "/1.0.0/" + name);
}

// Returns the settings in state.xml, which were entered by hand before the file was kept.
phone::Settings settingsThen() {
    phone::Settings settings = phone::factorySettings();
    settings.accounts[0] = {true,
                            "Reception",
                            "J\xC3\xB6rg & S\xC3\xB6hne <HQ>",
                            "4711",
                            " s3cret <&>\"' ",
                            "pbx.example.com",
                            5061,
                            "tls",
                            600};
    settings.accounts[1].enabled = false;
    settings.accounts[1].label = "Workshop";
    settings.accounts[1].secret = "second";
    settings.accounts[5] = {
        true, "\xE6\x80\xBB\xE6\x9C\xBA", "", "6", "  ", "192.0.2.60", 5060, "tcp", 86400};
    settings.network = {"static",     "192.0.2.10",    "255.255.255.0", "192.0.2.1",
                        "192.0.2.53", "198.51.100.53", "reception",     42};
    settings.audio = {"pulse", 10, 0, 7, -6, false, "opus"};
    settings.web.idleSeconds = 1200;
    settings.web.remoteAddresses = {"192.0.2.7", "2001:db8::7"};
    settings.web.hostNames = {"phone.example.com", "reception.example.com"};
    return settings;
}

// Returns those with what changes.xml changes.
phone::Settings settingsThenChanged() {
    phone::Settings settings = settingsThen();
    settings.audio.speakerVolume = 9;
    settings.accounts[1].userName = "1012";
    settings.web.hostNames.clear();
    return settings;
}

class EarlierData : public PhoneFixture {
protected:
    void start(const std::vector<const char*>& names) {
        container.reset();
        for (const auto& entry : std::filesystem::directory_iterator(folder.file("phone"))) {
            std::filesystem::remove(entry.path());
        }
        for (const char* name : names) {
            writeTextFile(folder.file("phone/") + name, contents(name));
        }
        restart();
    }

    void expectAll(const phone::Settings& settings) const {
        const auto state = saved();
        EXPECT_EQ(phone::settingsText(state->settings), phone::settingsText(settings));
        EXPECT_EQ(state->localCopy.find("<ringtone>classic<"), std::string::npos);
        EXPECT_NE(state->localCopy.find("<ringtone>bell<"), std::string::npos);
        EXPECT_EQ(state->directory.contacts().size(), 4u);
        const std::pair<const char*, const char*> contacts[] = {
            {"aaron", "(030) 1234"},
            {"Ben", "1002"},
            {"Zo\xC3\xAB \"<&>\"", "+1 202 555-0100"},
            {"\xE7\x8E\x8B\xE8\x8A\xB3", "*21#0#"}};
        for (const auto& [name, number] : contacts) {
            const phone::Contact* contact = state->directory.find(name);
            ASSERT_NE(contact, nullptr) << name;
            EXPECT_EQ(contact->number, number);
        }
    }

    static void expectNothingWrong() {
        for (const auto& record : recorded_log::records()) {
            EXPECT_TRUE(record.call == "info" || record.call == "debug") << record.text;
        }
    }
};

} // namespace

TEST_F(EarlierData, AreAllThere) {
    start({"state.xml", "password.1", "password.2"});
    Visitor me(*container);
    ASSERT_EQ(me.signIn(kPasswordThen).location(), "/servlet?p=status");
    expectAll(settingsThen());
    EXPECT_EQ(me.page("network").field("hostname"), "reception");
    EXPECT_EQ(me.page("accounts&acc=5").field("server"), "192.0.2.60");
    EXPECT_NE(me.page("contacts").text().find("+1 202 555-0100"), std::string::npos);
    EXPECT_EQ(Visitor(*container).signIn(kFactoryPassword).status, 403);
    // The start writes nothing.
    EXPECT_EQ(savedText(), contents("state.xml") + contents("password.1") + contents("password.2"));
}

TEST_F(EarlierData, AreAllThereWithTheSettingsChangedLast) {
    start({"state.xml", "changes.xml", "password.1", "password.2"});
    ASSERT_EQ(Visitor(*container).signIn(kPasswordThen).location(), "/servlet?p=status");
    expectAll(settingsThenChanged());
    expectNothingWrong();
}

TEST_F(EarlierData, StayWhenASettingIsSaved) {
    for (const bool hadChanges : {false, true}) {
        start(hadChanges ? std::vector<const char*>{"state.xml", "changes.xml", "password.1"}
                         : std::vector<const char*>{"state.xml", "password.2"});
        phone::Settings settings = hadChanges ? settingsThenChanged() : settingsThen();
        Visitor me(*container);
        me.signIn(kPasswordThen);
        settings.audio = {"soft", 1, 2, 3, 4, true, "pcma"};
        const Answer answer = me.submit("audio", {{"ringtone", "soft"},
                                                  {"ringVolume", "1"},
                                                  {"speakerVolume", "2"},
                                                  {"handsetVolume", "3"},
                                                  {"micGain", "4"},
                                                  {"echo", "1"},
                                                  {"codec", "pcma"}});
        EXPECT_EQ(answer.status, 303);
        expectAll(settings);
        restart();
        EXPECT_EQ(Visitor(*container).signIn(kPasswordThen).status, 303);
        expectAll(settings);
    }
}

TEST_F(EarlierData, StayWhenAContactIsSaved) {
    start({"state.xml", "changes.xml", "password.1", "password.2"});
    Visitor me(*container);
    me.signIn(kPasswordThen);
    me.submit("contacts&q=add", {{"name", "Dora"}, {"number", "400"}});
    restart();
    Visitor again(*container);
    again.signIn(kPasswordThen);
    EXPECT_EQ(phone::settingsText(saved()->settings), phone::settingsText(settingsThenChanged()));
    EXPECT_NE(saved()->directory.find("Dora"), nullptr);
    EXPECT_EQ(saved()->directory.contacts().size(), 5u);
}

TEST_F(EarlierData, ContainABackupThatCanBeImported) {
    Visitor me(*container);
    me.signIn();
    EXPECT_EQ(me.upload("settings-config&q=import",
                        file("config", "configuration.xml", contents("configuration.xml")),
                        kConfirmed)
                  .status,
              303);
    EXPECT_EQ(phone::configurationText(saved()->settings),
              phone::configurationText(settingsThen()));
}

TEST_F(EarlierData, ContainAConfigurationWhosePagesAllAnswer) {
    std::string configuration = contents("servlet.xml");
    const std::string path = "/phone/www/WEB-INFO/lib/libphone.so";
    ASSERT_NE(configuration.find(path), std::string::npos);
    configuration.replace(configuration.find(path), path.size(), PHONE_TEST_LIBRARY);
    writeTextFile(folder.file("servlet.xml"), configuration);
    container.reset();
    container = std::make_unique<kit::testing::Container>(folder.file("servlet.xml"));
    Visitor me(*container);
    ASSERT_EQ(me.signIn().location(), "/servlet?p=status");

    const std::regex servlet("<servlet id=\"([^\"]+)\"");
    const auto begin = std::sregex_iterator(configuration.begin(), configuration.end(), servlet);
    int pages = 0;
    for (auto match = begin; match != std::sregex_iterator(); ++match) {
        const Answer answer = me.page((*match)[1]);
        EXPECT_TRUE(answer.status == 200 || answer.status == 303) << (*match)[1];
        EXPECT_EQ(answer.body.find("404 - Not Found"), std::string::npos) << (*match)[1];
        ++pages;
    }
    EXPECT_EQ(pages, 15);
}
