// Imports settings from arbitrary bytes, and from generated documents whose errors are known. A
// document is read as a whole or changes nothing, and what is exported afterwards is read again.
#include "fuzz.h"
#include "settings_model.h"
#include "utf8_model.h"

#include "model/configuration.h"

#include <algorithm>
#include <set>

namespace {

using fuzz::require;
using phone::Errors;
using phone::Settings;

constexpr const char* kSecret = "sesame";

Settings someSettings() {
    Settings settings = phone::factorySettings();
    settings.web.passwordHash = "$y$hash";
    for (phone::Account& account : settings.accounts)
        account.secret = kSecret;
    return settings;
}

// Returns all settings as text.
std::string textOf(const Settings& settings) {
    std::string text = configurationText(settings);
    for (const phone::Account& account : settings.accounts)
        text += account.secret + "\n";
    return text + settings.web.user + settings.web.passwordHash;
}

// Requires that a secret is not sent to another server, and that nothing else is lost.
void requireSecrets(const Settings& before, const Settings& after) {
    require(before.web.user == after.web.user && before.web.passwordHash == after.web.passwordHash,
            "no document changes who may sign in");
    for (std::size_t i = 0; i < after.accounts.size(); ++i) {
        const phone::Account& was = before.accounts[i];
        const phone::Account& is = after.accounts[i];
        const bool isSame = was.userName == is.userName && was.server == is.server;
        require(is.secret == (isSame ? was.secret : ""), "a secret stays with its server");
    }
}

bool isBetween(long number, long least, long most) {
    return number >= least && number <= most;
}

bool areValid(const Settings& settings) {
    const auto isAccountValid = [](const phone::Account& account) {
        const bool isSetUp = !account.userName.empty() && !account.server.empty();
        return (isSetUp || !account.enabled) && isBetween(account.port, 1, 65535) &&
               isBetween(account.expiry, 60, 86400) &&
               std::set<std::string>{"udp", "tcp", "tls"}.count(account.transport) == 1 &&
               !account.label.empty() && account.label.size() <= 4 * 20;
    };
    const phone::Audio& audio = settings.audio;
    return std::all_of(settings.accounts.begin(), settings.accounts.end(), isAccountValid) &&
           std::set<std::string>{"dhcp", "static"}.count(settings.network.mode) == 1 &&
           isBetween(settings.network.vlan, 0, 4094) && isBetween(audio.ringVolume, 0, 10) &&
           isBetween(audio.speakerVolume, 0, 10) && isBetween(audio.handsetVolume, 0, 10) &&
           isBetween(audio.micGain, -6, 6) && isBetween(settings.web.idleSeconds, 10, 3600) &&
           settings.web.remoteAddresses.size() <= phone::WebAccess::kMaxRemoteAddresses;
}

// Imports the document into `settings` and requires what holds for any of them.
Errors read(const std::string& document, Settings& settings) {
    const Settings before = settings;
    const Errors errors = readConfiguration(document, settings);
    require(errors.size() <= phone::kMaxConfigurationErrors, "the errors are limited");
    if (!errors.empty()) {
        require(textOf(settings) == textOf(before), "a wrong document changes nothing");
        return errors;
    }
    require(document.size() <= phone::kMaxConfigurationBytes && fuzz::isUtf8Text(document) &&
                document.find('\0') == std::string::npos,
            "what is read is a small text in UTF-8");
    require(areValid(settings), "what is read is valid");
    requireSecrets(before, settings);
    Settings again = settings;
    require(readConfiguration(configurationText(settings), again).empty() &&
                textOf(again) == textOf(settings),
            "what is exported is read again");
    return errors;
}

// Keeps the letters of a name, so that the document is XML.
std::string elementName(const std::string& text) {
    std::string name;
    for (const char byte : text)
        if ((byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z'))
            name += byte;
    return name.empty() ? "x" : name.substr(0, 32);
}

std::string printableAscii(const std::string& text) {
    std::string result;
    for (const char byte : text)
        if (byte >= ' ' && byte <= '~')
            result += byte;
    return result;
}

fuzz::SettingsParts partsIn(fuzz::Input& input) {
    fuzz::SettingsParts parts;
    while (!input.isEmpty()) {
        const std::string text = input.line();
        fuzz::Input line(text);
        const std::string first = line.upTo(" ");
        if (!first.empty()) {
            parts.push_back({elementName(first), {}});
        } else if (!parts.empty()) {
            const std::string name = elementName(line.upTo(" "));
            parts.back().fields.emplace_back(name, printableAscii(line.rest()));
        }
    }
    return parts;
}

void requireModelled(const fuzz::SettingsParts& parts) {
    Settings settings = someSettings();
    auto audio = valuesOf(settings.audio);
    const std::multiset<std::string> expected = errorsIn(parts, audio);
    const Errors errors = read(documentOf(parts), settings);
    const bool isComplete = errors.size() < phone::kMaxConfigurationErrors;
    if (!isComplete || (errors.size() == 1 && errors[0].field == "config"))
        return; // too many errors, or too large
    std::multiset<std::string> found;
    for (const phone::FieldError& error : errors)
        if (fuzz::isModelled(error.field, nameOf(error.code)))
            found.insert(error.field + " " + nameOf(error.code));
    require(found == expected, "the errors are those of the model");
    for (const auto& [field, value] : valuesOf(settings.audio))
        require(!errors.empty() || fuzz::isSameValue(value, audio[field]),
                "what is read is what the document says");
}

} // namespace

// After a "+", lines: a name begins a part; a blank, a name, a blank and a value are one of its
// fields. Otherwise a document, with a byte 1 for 4 KiB.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    if (size > 0 && *data == '+') {
        input.byte();
        requireModelled(partsIn(input));
    } else {
        Settings settings = someSettings();
        read(fuzz::stretched(input.rest()), settings);
    }
    return 0;
}
