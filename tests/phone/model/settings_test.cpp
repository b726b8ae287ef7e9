#include "error_texts.h"
#include "model/server_url.h"
#include "model/settings.h"

#include <gtest/gtest.h>

using namespace phone;

namespace {

// A value that replaces one of a valid form, and the errors expected.
struct Entry {
    const char* field;
    std::string value;
    const char* errors;
};

std::string times(std::size_t count, const std::string& text) {
    std::string result;
    while (count-- > 0) {
        result += text;
    }
    return result;
}

const std::string kUmlaut = "\xC3\xA4";
const std::string kEmoji = "\xF0\x9F\x98\x80";

template <typename Part>
void expectErrors(const Part& good, const std::vector<Entry>& entries) {
    for (const Entry& entry : entries) {
        SCOPED_TRACE(std::string(entry.field) + " = \"" + entry.value + "\"");
        Values values = valuesOf(good);
        values[entry.field] = entry.value;
        Part part = good;
        EXPECT_EQ(textOf(readValues(values, part)), entry.errors);
    }
}

Account goodAccount() {
    Account account = factorySettings().accounts[0];
    account.secret = "kept";
    return account;
}

Network fixedNetwork() {
    Network network;
    network.mode = "static";
    network.address = "192.0.2.17";
    network.netmask = "255.255.255.0";
    network.gateway = "192.0.2.1";
    network.dns1 = "198.51.100.1";
    return network;
}

} // namespace

TEST(AccountSettings, ReportErrorsInEachField) {
    expectErrors(goodAccount(), {
                                    {"enabled", "1", ""},
                                    {"enabled", "0", ""},
                                    {"enabled", "", ""},
                                    {"enabled", "yes", "enabled: badChoice"},
                                    {"label", "", "label: required"},
                                    {"label", " \t ", "label: required"},
                                    {"label", "x", ""},
                                    {"label", times(20, kUmlaut), ""},
                                    {"label", times(20, kEmoji), ""},
                                    {"label", times(21, kUmlaut), "label: tooLong 20"},
                                    {"label", "a\nb", "label: badCharacters"},
                                    {"label", std::string("a\0b", 3), "label: badCharacters"},
                                    {"label", "a\x7F", "label: badCharacters"},
                                    {"label", "a\xC2\x85z", "label: badCharacters"},
                                    {"label", "\xC3", "label: notUtf8"},
                                    {"label", "\x80", "label: notUtf8"},
                                    {"label", "\xC0\xAF", "label: notUtf8"},
                                    {"label", "\xE0\x80\xAF", "label: notUtf8"},
                                    {"label", "\xED\xA0\x80", "label: notUtf8"},
                                    {"label", "\xF4\x90\x80\x80", "label: notUtf8"},
                                    {"label", "\xFF", "label: notUtf8"},
                                    {"displayName", "", ""},
                                    {"displayName", times(40, "x"), ""},
                                    {"displayName", times(41, "x"), "displayName: tooLong 40"},
                                    {"userName", "", "userName: required"},
                                    {"userName", times(40, "x"), ""},
                                    {"userName", times(41, "x"), "userName: tooLong 40"},
                                    {"userName", "a b", "userName: badCharacters"},
                                    {"userName", "a\tb", "userName: badCharacters"},
                                    {"secret", "", ""},
                                    {"secret", times(64, kUmlaut), ""},
                                    {"secret", times(65, "x"), "secret: tooLong 64"},
                                    {"secret", "a\rb", "secret: badCharacters"},
                                    {"secret", "\xC3", "secret: notUtf8"},
                                    {"server", "", "server: required"},
                                    {"server", "sip.example.com", ""},
                                    {"server", "localhost", ""},
                                    {"server", "192.0.2.1", ""},
                                    {"server", "2001:db8::1", ""},
                                    {"server", "3com.example", ""},
                                    {"server", times(63, "x") + ".example", ""},
                                    {"server", times(64, "x") + ".example", "server: badHost"},
                                    {"server", times(126, "x.") + "x", ""},
                                    {"server", times(127, "x."), "server: tooLong 253"},
                                    {"server", "sip..example", "server: badHost"},
                                    {"server", ".example", "server: badHost"},
                                    {"server", "example.", "server: badHost"},
                                    {"server", "-a.example", "server: badHost"},
                                    {"server", "a-.example", "server: badHost"},
                                    {"server", "a_b.example", "server: badHost"},
                                    {"server", "a b", "server: badHost"},
                                    {"server", "192.0.2.256", "server: badHost"},
                                    {"server", "192.0.2", "server: badHost"},
                                    {"server", kUmlaut + ".example", "server: badHost"},
                                    {"port", "", "port: required"},
                                    {"port", "0", "port: tooSmall 1"},
                                    {"port", "1", ""},
                                    {"port", "65535", ""},
                                    {"port", " 5061 ", ""},
                                    {"port", "65536", "port: tooLarge 65535"},
                                    {"port", "-1", "port: tooSmall 1"},
                                    {"port", "99999999999999999999999", "port: tooLarge 65535"},
                                    {"port", "-99999999999999999999999", "port: tooSmall 1"},
                                    {"port", "5060x", "port: notANumber"},
                                    {"port", "50 60", "port: notANumber"},
                                    {"port", "0x10", "port: notANumber"},
                                    {"port", "1.5", "port: notANumber"},
                                    {"port", "-", "port: notANumber"},
                                    {"transport", "udp", ""},
                                    {"transport", "tcp", ""},
                                    {"transport", "tls", ""},
                                    {"transport", "TLS", "transport: badChoice"},
                                    {"transport", "", "transport: required"},
                                    {"expiry", "59", "expiry: tooSmall 60"},
                                    {"expiry", "60", ""},
                                    {"expiry", "86400", ""},
                                    {"expiry", "86401", "expiry: tooLarge 86400"},
                                });
}

TEST(AccountSettings, NeedNoUserAndServerWhileDisabled) {
    Values values = valuesOf(goodAccount());
    values["enabled"] = values["userName"] = values["server"] = "";
    Account account = goodAccount();
    EXPECT_EQ(textOf(readValues(values, account)), "");
    values["server"] = "a b";
    EXPECT_EQ(textOf(readValues(values, account)), "server: badHost");
}

TEST(AccountSettings, ReportEveryErrorAndChangeNothing) {
    Account account = goodAccount();
    const Values values{{"enabled", "1"}, {"label", "New"}, {"port", "0"}, {"expiry", "60"}};
    EXPECT_EQ(textOf(readValues(values, account)),
              "userName: required, server: required, port: tooSmall 1, transport: required");
    EXPECT_EQ(account.label, "Line 1");
    EXPECT_EQ(account.expiry, 3600);
}

TEST(AccountSettings, AcceptTheFormValues) {
    Account account = goodAccount();
    const Values values{{"label", " Desk "},       {"displayName", "Ann"}, {"userName", "ann"},
                        {"server", "192.0.2.1"},   {"port", "5061"},       {"transport", "tls"},
                        {"secret", " two words "}, {"expiry", "60"}};
    ASSERT_EQ(textOf(readValues(values, account)), "");
    EXPECT_FALSE(account.enabled);
    EXPECT_EQ(account.label, "Desk");
    EXPECT_EQ(account.displayName, "Ann");
    EXPECT_EQ(account.userName, "ann");
    EXPECT_EQ(account.secret, " two words ");
    EXPECT_EQ(account.server, "192.0.2.1");
    EXPECT_EQ(account.port, 5061);
    EXPECT_EQ(account.transport, "tls");
    EXPECT_EQ(account.expiry, 60);
}

TEST(AccountSettings, KeepTheirSecretAndNeverShowIt) {
    Account account = goodAccount();
    const Values values = valuesOf(account);
    EXPECT_EQ(valueOf(values, "secret"), "");
    ASSERT_EQ(textOf(readValues(values, account)), "");
    EXPECT_EQ(account.secret, "kept");
}

TEST(NetworkSettings, ReportErrorsInEachField) {
    const std::vector<Entry> entries = {
        {"mode", "", "mode: required"},
        {"mode", "auto", "mode: badChoice"},
        {"address", "", "address: required"},
        {"address", "192.0.2.0", "address: reserved"},
        {"address", "192.0.2.255", "address: reserved"},
        {"address", "192.0.2.254", ""},
        {"address", "0.0.0.1", "address: reserved"},
        {"address", "127.0.0.1", "address: reserved"},
        {"address", "224.0.0.1", "address: reserved"},
        {"address", "223.255.255.1", "gateway: notInNetwork"},
        {"address", "192.0.2", "address: badAddress"},
        {"address", "192.0.2.256", "address: badAddress"},
        {"address", "192.0.2.017", "address: badAddress"},
        {"address", "2001:db8::1", "address: badAddress"},
        {"address", "phone", "address: badAddress"},
        {"netmask", "", "netmask: required"},
        {"netmask", "255.0.255.0", "netmask: badMask"},
        {"netmask", "0.0.0.0", "netmask: badMask"},
        {"netmask", "255.255.255.254", "netmask: badMask"},
        {"netmask", "255.255.255.255", "netmask: badMask"},
        {"netmask", "24", "netmask: badMask"},
        {"netmask", "255.255.255.224", ""},
        {"netmask", "255.255.255.252", "gateway: notInNetwork"},
        {"netmask", "128.0.0.0", ""},
        {"gateway", "", "gateway: required"},
        {"gateway", "192.0.3.1", "gateway: notInNetwork"},
        {"gateway", "192.0.2.0", "gateway: reserved"},
        {"gateway", "192.0.2.255", "gateway: reserved"},
        {"gateway", "192.0.2.17", "gateway: reserved"},
        {"gateway", "x", "gateway: badAddress"},
        {"dns1", "", "dns1: required"},
        {"dns1", "1.2.3.4.5", "dns1: badAddress"},
        {"dns2", "", ""},
        {"dns2", "203.0.113.1", ""},
        {"dns2", "255.255.255.255", "dns2: reserved"},
        {"hostname", "", "hostname: required"},
        {"hostname", times(63, "x"), ""},
        {"hostname", times(64, "x"), "hostname: tooLong 63"},
        {"hostname", "3phones", ""},
        {"hostname", "-phone", "hostname: badHost"},
        {"hostname", "phone-", "hostname: badHost"},
        {"hostname", "desk.phone", "hostname: badHost"},
        {"hostname", kUmlaut, "hostname: badHost"},
        {"vlan", "", ""},
        {"vlan", " ", ""},
        {"vlan", "0", "vlan: tooSmall 1"},
        {"vlan", "1", ""},
        {"vlan", "4094", ""},
        {"vlan", "4095", "vlan: tooLarge 4094"},
        {"vlan", "x", "vlan: notANumber"},
    };
    expectErrors(fixedNetwork(), entries);
}

TEST(NetworkSettings, NeedNoAddressesWithDhcpButRejectInvalidOnes) {
    expectErrors(Network(), {{"address", "", ""},
                             {"address", "192.0.2.17", ""},
                             {"address", "x", "address: badAddress"},
                             {"netmask", "1.2.3.4", "netmask: badMask"},
                             {"gateway", "192.0.2.1", ""}});
}

TEST(NetworkSettings, AcceptTheFormValues) {
    Network network;
    Values values = valuesOf(fixedNetwork());
    values["vlan"] = "7";
    values["hostname"] = "desk";
    values["dns2"] = "203.0.113.1";
    ASSERT_EQ(textOf(readValues(values, network)), "");
    EXPECT_EQ(valuesOf(network), values);
    EXPECT_EQ(network.vlan, 7);
}

TEST(AudioSettings, ReportErrorsInEachField) {
    std::vector<Entry> entries = {
        {"ringtone", "classic", ""},
        {"ringtone", "soft", ""},
        {"ringtone", "bell", ""},
        {"ringtone", "pulse", ""},
        {"ringtone", "disco", "ringtone: badChoice"},
        {"ringVolume", "-1", "ringVolume: tooSmall 0"},
        {"ringVolume", "11", "ringVolume: tooLarge 10"},
        {"speakerVolume", "-1", "speakerVolume: tooSmall 0"},
        {"speakerVolume", "11", "speakerVolume: tooLarge 10"},
        {"handsetVolume", "-1", "handsetVolume: tooSmall 0"},
        {"handsetVolume", "11", "handsetVolume: tooLarge 10"},
        {"micGain", "-7", "micGain: tooSmall -6"},
        {"micGain", "-6", ""},
        {"micGain", "+6", ""},
        {"micGain", "7", "micGain: tooLarge 6"},
        {"echo", "on", "echo: badChoice"},
        {"codec", "opus", ""},
        {"codec", "g722", ""},
        {"codec", "pcma", ""},
        {"codec", "pcmu", ""},
        {"codec", "mp3", "codec: badChoice"},
    };
    for (const char* field : {"ringVolume", "speakerVolume", "handsetVolume"}) {
        entries.push_back({field, "0", ""});
        entries.push_back({field, "10", ""});
    }
    expectErrors(Audio(), entries);
}

TEST(AudioSettings, AcceptTheFormValues) {
    Audio audio;
    const Values values{{"ringtone", "soft"},   {"ringVolume", "1"}, {"speakerVolume", "2"},
                        {"handsetVolume", "3"}, {"micGain", "-4"},   {"echo", ""},
                        {"codec", "pcma"}};
    ASSERT_EQ(textOf(readValues(values, audio)), "");
    EXPECT_EQ(valuesOf(audio), values);
}

TEST(ProvisioningSettings, ReportWhatIsNoServer) {
    const std::string longest = "http://a/" + times(246, "x");
    expectErrors(Provisioning{}, {
                                     {"server", "", ""},
                                     {"server", "http://a", ""},
                                     {"server", "https://provisioning.example.com/phones/", ""},
                                     {"server", "tftp://192.0.2.5:69/a.cfg", ""},
                                     {"server", "https://[2001:db8::5]:8443/", ""},
                                     {"server", "https://a:1/~b;c=1,$MAC/%41%2f", ""},
                                     {"server", "https://a:65535", ""},
                                     {"server", longest, ""},
                                     {"server", longest + "x", "server: tooLong 255"},
                                     {"server", "a.example.com", "server: badUrl"},
                                     {"server", "ftp://a", "server: badUrl"},
                                     {"server", "javascript://a", "server: badUrl"},
                                     {"server", "://a", "server: badUrl"},
                                     {"server", "http:a", "server: badUrl"},
                                     {"server", "http://", "server: badUrl"},
                                     {"server", "http:///a", "server: badUrl"},
                                     {"server", "http://-a", "server: badUrl"},
                                     {"server", "http://a_b", "server: badUrl"},
                                     {"server", "http://192.0.2.256", "server: badUrl"},
                                     {"server", "http://a:", "server: badUrl"},
                                     {"server", "http://a:0", "server: badUrl"},
                                     {"server", "http://a:65536", "server: badUrl"},
                                     {"server", "http://a:000080", "server: badUrl"},
                                     {"server", "http://a:+1", "server: badUrl"},
                                     {"server", "http://2001:db8::5/", "server: badUrl"},
                                     {"server", "http://[2001:db8::5", "server: badUrl"},
                                     {"server", "http://[2001:db8::5]a", "server: badUrl"},
                                     {"server", "http://[192.0.2.5]", "server: badUrl"},
                                     {"server", "http://[a]", "server: badUrl"},
                                     {"server", "http://[]", "server: badUrl"},
                                     {"server", "http://me@a", "server: badUrl"},
                                     {"server", "http://me:secret@a/", "server: badUrl"},
                                     {"server", "http://a/me@b", "server: badUrl"},
                                     {"server", "http://a/?token=1", "server: badUrl"},
                                     {"server", "http://a?token=1", "server: badUrl"},
                                     {"server", "http://a/#b", "server: badUrl"},
                                     {"server", "http://a/b c", "server: badUrl"},
                                     {"server", "http://a/%4", "server: badUrl"},
                                     {"server", "http://a/%4g", "server: badUrl"},
                                     {"server", "http://a/\\b", "server: badUrl"},
                                     {"server", "http://a/" + kUmlaut, "server: badUrl"},
                                     {"server", "http://a/\nb", "server: badCharacters"},
                                     {"server", "http://a/\xFF", "server: notUtf8"},
                                 });
}

TEST(ProvisioningSettings, KeepTheServerInItsCommonForm) {
    Provisioning provisioning;
    EXPECT_TRUE(
        readValues({{"server", " HTTPS://Host.Example.COM:443/Path%2f "}}, provisioning).empty());
    EXPECT_EQ(provisioning.server, "https://host.example.com:443/Path%2f");
    EXPECT_TRUE(readValues({{"server", " "}}, provisioning).empty());
    EXPECT_EQ(provisioning.server, "");
}

TEST(ServerUrls, LoseWhatMayBeAPassword) {
    const char* const cases[][2] = {{"http://me:secret@a/b", "http://a/b"},
                                    {"HTTP://secret@a", "HTTP://a"},
                                    {"me:secret@a/b", "a/b"},
                                    {"http://me:s/e?c#r@et@a", "http://a"},
                                    {"secret://me@a", "a"},
                                    {"me:http://secret@a", "a"},
                                    {"@", ""},
                                    {"http://@", "http://"},
                                    {"http://a/b", "http://a/b"},
                                    {"", ""}};
    for (const auto& [text, safe] : cases) {
        EXPECT_EQ(withoutCredentials(text), safe) << text;
    }
}

TEST(WebAccessSettings, ReportErrorsInEachField) {
    std::string sixteen;
    for (int i = 1; i <= 16; ++i) {
        sixteen += "192.0.2." + std::to_string(i) + "\r\n";
    }
    expectErrors(
        WebAccess(),
        {{"idleSeconds", "9", "idleSeconds: tooSmall 10"},
         {"idleSeconds", "10", ""},
         {"idleSeconds", "3600", ""},
         {"idleSeconds", "3601", "idleSeconds: tooLarge 3600"},
         {"remoteAddresses", "", ""},
         {"remoteAddresses", sixteen, ""},
         {"remoteAddresses", sixteen + "\r\n\r\n", ""},
         {"remoteAddresses", sixteen + "192.0.2.17", "remoteAddresses: tooMany 16"},
         {"remoteAddresses", "192.0.2.1\nphone", "remoteAddresses: badAddress"},
         {"remoteAddresses", "192.0.2.1/24", "remoteAddresses: badAddress"},
         {"remoteAddresses", "192.0.2.1 192.0.2.2", "remoteAddresses: badAddress"},
         {"remoteAddresses", std::string("192.0.2.1\0x", 11), "remoteAddresses: badAddress"},
         {"remoteAddresses", "::1\n0:0::1", "remoteAddresses: duplicate"},
         {"hostNames", "phone.example\r\nhall", ""},
         {"hostNames", "phone example", "hostNames: badHost"},
         {"hostNames", "phone:8080", "hostNames: badHost"},
         {"hostNames", "hall\nHALL", "hostNames: duplicate"},
         {"hostNames", "a\nb\nc\nd\ne\nf\ng\nh\ni\nj\nk\nl\nm\nn\no\np\nq",
          "hostNames: tooMany 16"}});
}

TEST(WebAccessSettings, ShortenAddresses) {
    WebAccess web;
    web.passwordHash = "kept";
    const Values values{{"idleSeconds", "60"}, {"remoteAddresses", " 192.0.2.1 \r\n2001:DB8:0::1"}};
    ASSERT_EQ(textOf(readValues(values, web)), "");
    EXPECT_EQ(web.remoteAddresses, (std::vector<std::string>{"192.0.2.1", "2001:db8::1"}));
    EXPECT_EQ(web.idleSeconds, 60);
    EXPECT_EQ(web.passwordHash, "kept");
    EXPECT_EQ(valueOf(valuesOf(web), "remoteAddresses"), "192.0.2.1\n2001:db8::1");
}

TEST(WebAccessSettings, KeepHostNamesInLowerCase) {
    WebAccess web;
    const Values values{{"idleSeconds", "60"}, {"hostNames", " Phone.Example \r\nHALL\n"}};
    ASSERT_EQ(textOf(readValues(values, web)), "");
    EXPECT_EQ(web.hostNames, (std::vector<std::string>{"phone.example", "hall"}));
    EXPECT_EQ(valueOf(valuesOf(web), "hostNames"), "phone.example\nhall");
}

TEST(HostNamesOfThePhone, AreItsOwnAndTheAdditionalOnes) {
    Settings settings = factorySettings();
    settings.network.hostname = "Desk-7";
    settings.web.hostNames = {"phone.example"};
    for (const char* name : {"desk-7", "desk-7.local", "phone.example"}) {
        EXPECT_TRUE(isHostName(name, settings)) << name;
    }
    for (const char* name : {"", "desk", "desk-7.example", "example", "desk-7.local.example"}) {
        EXPECT_FALSE(isHostName(name, settings)) << name;
    }
}

TEST(FactorySettings, PassTheirOwnChecks) {
    Settings settings = factorySettings();
    for (Account& account : settings.accounts) {
        EXPECT_EQ(textOf(readValues(valuesOf(account), account)), "");
    }
    EXPECT_EQ(textOf(readValues(valuesOf(settings.network), settings.network)), "");
    EXPECT_EQ(textOf(readValues(valuesOf(settings.audio), settings.audio)), "");
    EXPECT_EQ(textOf(readValues(valuesOf(settings.web), settings.web)), "");
    EXPECT_EQ(settings.accounts[1].userName, "1002");
    EXPECT_EQ(settings.accounts[1].server, "sip.example.com");
    EXPECT_FALSE(settings.accounts[2].enabled);
}

TEST(FieldLists, MatchTheFormValues) {
    const Settings settings = factorySettings();
    const auto expectFields = [](const std::vector<const char*>& fields, const Values& values) {
        EXPECT_EQ(fields.size(), values.size());
        for (const char* field : fields) {
            EXPECT_EQ(values.count(field), 1u) << field;
        }
    };
    expectFields(kAccountFields, valuesOf(settings.accounts[0]));
    expectFields(kNetworkFields, valuesOf(settings.network));
    expectFields(kAudioFields, valuesOf(settings.audio));
    expectFields(kProvisioningFields, valuesOf(settings.provisioning));
    expectFields(kWebAccessFields, valuesOf(settings.web));
}
