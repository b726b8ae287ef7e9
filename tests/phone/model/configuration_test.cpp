#include "error_texts.h"
#include "model/configuration.h"

#include <gtest/gtest.h>

using namespace phone;

namespace {

Settings someSettings() {
    Settings settings = factorySettings();
    settings.accounts[0].label = "A & B <\"C\">";
    settings.accounts[0].secret = "sesame";
    settings.accounts[1].secret = "other";
    settings.network.vlan = 12;
    settings.audio.echo = false;
    settings.provisioning.server = "https://provisioning.example.com/a&b";
    settings.web.passwordHash = "$y$hash";
    settings.web.remoteAddresses = {"192.0.2.1", "2001:db8::1"};
    return settings;
}

std::string errorsOf(const std::string& text) {
    Settings settings = someSettings();
    const std::string before = configurationText(settings);
    const std::string errors = textOf(readConfiguration(text, settings));
    if (!errors.empty()) {
        EXPECT_EQ(configurationText(settings), before) << "changed, though refused: " << text;
    }
    return errors;
}

std::string inConfiguration(const std::string& parts) {
    return "<configuration>" + parts + "</configuration>";
}

} // namespace

TEST(Configuration, RoundTrips) {
    const std::string text = configurationText(someSettings());
    Settings settings = factorySettings();
    ASSERT_EQ(textOf(readConfiguration(text, settings)), "");
    EXPECT_EQ(configurationText(settings), text);
    EXPECT_EQ(settings.accounts[0].label, "A & B <\"C\">");
    EXPECT_FALSE(settings.audio.echo);
    EXPECT_EQ(settings.provisioning.server, "https://provisioning.example.com/a&b");
    EXPECT_EQ(settings.web.remoteAddresses.size(), 2u);
    EXPECT_LT(text.size(), kMaxConfigurationBytes / 10);
}

TEST(Configuration, ContainsNoSecrets) {
    const std::string text = configurationText(someSettings());
    for (const char* secret : {"sesame", "other", "$y$hash", "passwordHash", "secret"}) {
        EXPECT_EQ(text.find(secret), std::string::npos) << secret;
    }
}

TEST(Configuration, KeepsSettingsThatTheFileOmits) {
    Settings settings = someSettings();
    ASSERT_EQ(textOf(readConfiguration(inConfiguration("<audio><micGain> 3\n</micGain></audio>"),
                                       settings)),
              "");
    EXPECT_EQ(settings.audio.micGain, 3);
    EXPECT_FALSE(settings.audio.echo);
    EXPECT_EQ(settings.network.vlan, 12);
    EXPECT_EQ(settings.accounts[0].secret, "sesame");
    EXPECT_EQ(settings.web.passwordHash, "$y$hash");
}

TEST(Configuration, ClearsTheSecretIfUserOrServerChanges) {
    for (const char* change : {"<server>evil.example</server>", "<userName>1009</userName>"}) {
        Settings settings = someSettings();
        ASSERT_EQ(textOf(readConfiguration(
                      inConfiguration("<account>" + std::string(change) + "</account>"), settings)),
                  "");
        EXPECT_EQ(settings.accounts[0].secret, "");
        EXPECT_EQ(settings.accounts[1].secret, "other");
    }
    Settings settings = someSettings();
    ASSERT_EQ(textOf(readConfiguration(inConfiguration("<account><port>5070</port></account>"),
                                       settings)),
              "");
    EXPECT_EQ(settings.accounts[0].secret, "sesame");
}

TEST(Configuration, ReportsErrorsAndChangesNothing) {
    const std::string account = "<account></account>";
    const struct {
        std::string text;
        const char* errors;
    } cases[] = {
        {"", "config: notXml"},
        {"name,number", "config: notXml"},
        {"<configuration>", "config: notXml"},
        {"<configuration/><more/>", ""},
        {"<settings/>", "settings: unknownElement"},
        {"\xFF<configuration/>", "config: notUtf8"},
        {std::string("<configuration/>\0", 17), "config: notXml"},
        {"<!DOCTYPE x [<!ENTITY a \"b\">]><configuration/>", "config: notXml"},
        {inConfiguration("<network><vlan>&a;</vlan></network>"), "network/vlan: notANumber"},
        {inConfiguration("<camera/>"), "camera: unknownElement"},
        {inConfiguration("<audio/><audio/>"), "audio: duplicate"},
        {inConfiguration("<audio><bass>1</bass></audio>"), "audio/bass: unknownElement"},
        {inConfiguration("<audio><echo/><echo/></audio>"), "audio/echo: duplicate"},
        {inConfiguration("<account><secret>x</secret></account>"),
         "account[1]/secret: unknownElement"},
        {inConfiguration("<provisioning><server>http://me:secret@a</server></provisioning>"),
         "provisioning/server: badUrl"},
        {inConfiguration("<web><passwordHash>x</passwordHash></web>"),
         "web/passwordHash: unknownElement"},
        {inConfiguration(account + "<account><port>0</port><expiry>x</expiry></account>"),
         "account[2]/port: tooSmall 1, account[2]/expiry: notANumber"},
        {inConfiguration("<audio><micGain>3</micGain></audio><network><mode>x</mode></network>"),
         "network/mode: badChoice"},
        {inConfiguration("<audio><codec><b>opus</b></codec></audio>"), "audio/codec: required"},
        {inConfiguration(account + account + account + account + account + account + account),
         "account: tooMany 6"},
        {std::string(kMaxConfigurationBytes + 1, ' '), "config: tooLarge 65536"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(errorsOf(test.text), test.errors) << test.text.substr(0, 200);
    }
}

TEST(Configuration, LimitsTheNumberOfErrors) {
    std::string parts;
    for (int i = 0; i < 5000; ++i) {
        parts += "<x" + std::to_string(i) + "/>";
    }
    Settings settings;
    EXPECT_EQ(readConfiguration(inConfiguration(parts), settings).size(), kMaxConfigurationErrors);
    EXPECT_EQ(readConfiguration(inConfiguration("<audio>" + parts + "</audio>"), settings).size(),
              kMaxConfigurationErrors);
}

TEST(LocalCopy, RestoresTheSettings) {
    State state;
    state.settings = someSettings();
    EXPECT_EQ(textOf(restoreLocalCopy(state)), "config: required");
    EXPECT_EQ(textOf(keepLocalCopy(state)), "");
    state.settings.audio.micGain = 5;
    EXPECT_EQ(textOf(restoreLocalCopy(state)), "");
    EXPECT_EQ(state.settings.audio.micGain, 0);
    EXPECT_EQ(state.settings.accounts[0].secret, "sesame");
    EXPECT_EQ(textOf(removeLocalCopy(state)), "");
    EXPECT_EQ(textOf(restoreLocalCopy(state)), "config: required");
}
