#include "model/settings.h"

#include "base/ascii.h"
#include "model/field_reader.h"
#include "model/server_url.h"
#include "model/trimmed.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdint>
#include <netinet/in.h>
#include <optional>

namespace phone {
namespace {

std::string box(bool ticked) {
    return ticked ? "1" : "";
}

// Returns an IPv4 address in host byte order.
std::optional<std::uint32_t> ipv4(const std::string& text) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return std::nullopt;
    }
    return ntohl(address.s_addr);
}

bool isHostAddress(std::uint32_t address) {
    const std::uint32_t first = address >> 24;
    return first != 0 && first != 127 && first < 224;
}

// Returns whether the mask is one bits followed by zero bits and leaves room for hosts.
bool isMask(std::uint32_t mask) {
    const std::uint32_t hostBits = ~mask;
    return (hostBits & (hostBits + 1)) == 0 && hostBits >= 3 && mask != 0;
}

// Reads the form fields that contain IPv4 addresses.
class AddressReader {
public:
    AddressReader(FieldReader& fields, bool required) : m_fields(fields), m_required(required) {}

    // Returns nothing if the field is empty or invalid.
    std::optional<std::uint32_t> read(const char* field, std::string& text, bool optional = false) {
        const auto address = readAny(field, text, optional, ErrorCode::badAddress);
        if (address && !isHostAddress(*address)) {
            m_fields.fail(field, ErrorCode::reserved);
            return std::nullopt;
        }
        return address;
    }

    std::optional<std::uint32_t> readMask(const char* field, std::string& text) {
        const auto mask = readAny(field, text, false, ErrorCode::badMask);
        if (mask && !isMask(*mask)) {
            m_fields.fail(field, ErrorCode::badMask);
            return std::nullopt;
        }
        return mask;
    }

private:
    std::optional<std::uint32_t> readAny(const char* field, std::string& text, bool optional,
                                         ErrorCode bad) {
        text = m_fields.text(field, m_required && !optional ? 1 : 0, kMaxHost);
        if (text.empty() || m_fields.failed(field)) {
            return std::nullopt;
        }
        const auto address = ipv4(text);
        if (!address) {
            m_fields.fail(field, bad);
        }
        return address;
    }

    FieldReader& m_fields;
    const bool m_required;
};

bool isEdgeOf(std::uint32_t address, std::uint32_t mask) {
    return (address & ~mask) == 0 || (address | mask) == UINT32_MAX;
}

void readAddresses(FieldReader& fields, Network& network) {
    const bool fixed = network.mode == "static";
    AddressReader reader(fields, fixed);
    const auto address = reader.read("address", network.address);
    const auto mask = reader.readMask("netmask", network.netmask);
    const auto gateway = reader.read("gateway", network.gateway);
    reader.read("dns1", network.dns1);
    reader.read("dns2", network.dns2, true);
    if (!fixed || !address || !mask) {
        return;
    }
    if (isEdgeOf(*address, *mask)) {
        fields.fail("address", ErrorCode::reserved);
    }
    if (!gateway) {
        return;
    }
    if ((*gateway & *mask) != (*address & *mask)) {
        fields.fail("gateway", ErrorCode::notInNetwork);
    } else if (isEdgeOf(*gateway, *mask) || *gateway == *address) {
        fields.fail("gateway", ErrorCode::reserved);
    }
}

std::string takeTrimmedLine(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string line(trimmed(text.substr(0, end)));
    text.remove_prefix(std::min(end + 1, text.size()));
    return line;
}

// Reads a list with one entry on each line. `normalized(line)` returns the entry as it is stored,
// empty if it is invalid.
template <typename Normalize>
std::vector<std::string> readLines(FieldReader& fields, const Values& values, const char* field,
                                   std::size_t most, ErrorCode bad, Normalize normalized) {
    const std::string value = valueOf(values, field);
    std::string_view text = value;
    std::vector<std::string> entries;
    while (!text.empty() && !fields.failed(field)) {
        const std::string line = takeTrimmedLine(text);
        if (line.empty()) {
            continue;
        }
        std::string entry = normalized(line);
        if (entry.empty()) {
            fields.fail(field, bad);
        } else if (std::find(entries.begin(), entries.end(), entry) != entries.end()) {
            fields.fail(field, ErrorCode::duplicate);
        } else if (entries.size() == most) {
            fields.fail(field, ErrorCode::tooMany, most);
        } else {
            entries.push_back(std::move(entry));
        }
    }
    return entries;
}

std::string inLowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), base::asciiLower);
    return text;
}

std::string normalizedHost(const std::string& text) {
    return isHost(text) ? inLowerCase(text) : std::string();
}

std::string joinedLines(const std::vector<std::string>& entries) {
    std::string text;
    for (const std::string& entry : entries) {
        text += (text.empty() ? "" : "\n") + entry;
    }
    return text;
}

template <typename Part>
Errors setIfValid(const FieldReader& fields, Part part, Part& target) {
    if (fields.errors().empty()) {
        target = std::move(part);
    }
    return fields.errors();
}

} // namespace

const std::vector<const char*> kAccountFields{"enabled",  "label",     "displayName",
                                              "userName", "secret",    "server",
                                              "port",     "transport", "expiry"};
const std::vector<const char*> kNetworkFields{"mode", "address", "netmask",  "gateway",
                                              "dns1", "dns2",    "hostname", "vlan"};
const std::vector<const char*> kAudioFields{
    "ringtone", "ringVolume", "speakerVolume", "handsetVolume", "micGain", "echo", "codec"};
const std::vector<const char*> kProvisioningFields{"server"};
const std::vector<const char*> kWebAccessFields{"idleSeconds", "remoteAddresses", "hostNames"};

Settings factorySettings() {
    Settings settings;
    for (std::size_t i = 0; i < kAccounts; ++i) {
        settings.accounts[i].label = "Line " + std::to_string(i + 1);
    }
    for (std::size_t i = 0; i < 2; ++i) {
        Account& account = settings.accounts[i];
        account.enabled = true;
        account.userName = std::to_string(1001 + i);
        account.displayName = "Extension " + account.userName;
        account.server = "sip.example.com";
    }
    return settings;
}

bool isHostName(const std::string& name, const Settings& settings) {
    const std::string own = inLowerCase(settings.network.hostname);
    const auto& names = settings.web.hostNames;
    return name == own || name == own + ".local" ||
           std::find(names.begin(), names.end(), name) != names.end();
}

std::string valueOf(const Values& values, const char* name) {
    const auto found = values.find(name);
    return found != values.end() ? found->second : std::string();
}

Values valuesOf(const Account& account) {
    return {{"enabled", box(account.enabled)},
            {"label", account.label},
            {"displayName", account.displayName},
            {"userName", account.userName},
            {"secret", ""},
            {"server", account.server},
            {"port", std::to_string(account.port)},
            {"transport", account.transport},
            {"expiry", std::to_string(account.expiry)}};
}

Values valuesOf(const Network& network) {
    return {{"mode", network.mode},
            {"address", network.address},
            {"netmask", network.netmask},
            {"gateway", network.gateway},
            {"dns1", network.dns1},
            {"dns2", network.dns2},
            {"hostname", network.hostname},
            {"vlan", network.vlan != 0 ? std::to_string(network.vlan) : ""}};
}

Values valuesOf(const Audio& audio) {
    return {{"ringtone", audio.ringtone},
            {"ringVolume", std::to_string(audio.ringVolume)},
            {"speakerVolume", std::to_string(audio.speakerVolume)},
            {"handsetVolume", std::to_string(audio.handsetVolume)},
            {"micGain", std::to_string(audio.micGain)},
            {"echo", box(audio.echo)},
            {"codec", audio.codec}};
}

Values valuesOf(const Provisioning& provisioning) {
    return {{"server", provisioning.server}};
}

Values valuesOf(const WebAccess& web) {
    return {{"idleSeconds", std::to_string(web.idleSeconds)},
            {"remoteAddresses", joinedLines(web.remoteAddresses)},
            {"hostNames", joinedLines(web.hostNames)}};
}

Errors readValues(const Values& values, Account& account) {
    FieldReader fields(values);
    Account read;
    read.enabled = fields.box("enabled");
    read.label = fields.text("label", 1, 20);
    read.displayName = fields.text("displayName", 0, 40);
    read.userName = fields.text("userName", read.enabled ? 1 : 0, 40);
    if (read.userName.find(' ') != std::string::npos) {
        fields.fail("userName", ErrorCode::badCharacters);
    }
    read.secret = fields.secret("secret", 64);
    read.server = fields.text("server", read.enabled ? 1 : 0, kMaxHost);
    const bool isSame = read.userName == account.userName && read.server == account.server;
    if (read.secret.empty() && isSame) {
        read.secret = account.secret;
    }
    if (!read.server.empty() && !isHost(read.server)) {
        fields.fail("server", ErrorCode::badHost);
    }
    read.port = fields.number("port", 1, 65535);
    read.transport = fields.choice("transport", {"udp", "tcp", "tls"});
    read.expiry = fields.number("expiry", 60, 86400);
    return setIfValid(fields, std::move(read), account);
}

Errors readValues(const Values& values, Network& network) {
    FieldReader fields(values);
    Network read;
    read.mode = fields.choice("mode", {"dhcp", "static"});
    readAddresses(fields, read);
    read.hostname = fields.text("hostname", 1, 63);
    if (!isHostLabel(read.hostname)) {
        fields.fail("hostname", ErrorCode::badHost);
    }
    read.vlan = trimmed(valueOf(values, "vlan")).empty() ? 0 : fields.number("vlan", 1, 4094);
    return setIfValid(fields, std::move(read), network);
}

Errors readValues(const Values& values, Audio& audio) {
    FieldReader fields(values);
    Audio read;
    read.ringtone = fields.choice("ringtone", {"classic", "soft", "bell", "pulse"});
    read.ringVolume = fields.number("ringVolume", 0, 10);
    read.speakerVolume = fields.number("speakerVolume", 0, 10);
    read.handsetVolume = fields.number("handsetVolume", 0, 10);
    read.micGain = fields.number("micGain", -6, 6);
    read.echo = fields.box("echo");
    read.codec = fields.choice("codec", {"opus", "g722", "pcma", "pcmu"});
    return setIfValid(fields, std::move(read), audio);
}

Errors readValues(const Values& values, Provisioning& provisioning) {
    FieldReader fields(values);
    const std::string server = fields.text("server", 0, kMaxServerUrl);
    Provisioning read{canonicalServerUrl(server)};
    if (!server.empty() && read.server.empty()) {
        fields.fail("server", ErrorCode::badUrl);
    }
    return setIfValid(fields, std::move(read), provisioning);
}

Errors readValues(const Values& values, WebAccess& web) {
    FieldReader fields(values);
    WebAccess read = web;
    read.idleSeconds = fields.number("idleSeconds", 10, 3600);
    read.remoteAddresses =
        readLines(fields, values, "remoteAddresses", WebAccess::kMaxRemoteAddresses,
                  ErrorCode::badAddress, canonicalAddress);
    read.hostNames = readLines(fields, values, "hostNames", WebAccess::kMaxHostNames,
                               ErrorCode::badHost, normalizedHost);
    return setIfValid(fields, std::move(read), web);
}

} // namespace phone
