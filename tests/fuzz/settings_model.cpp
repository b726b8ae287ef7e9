#include "settings_model.h"

#include "fuzz.h"

namespace fuzz {

namespace {

using Texts = std::set<std::string>;

const std::map<std::string, Texts> kFields = {
    {"account",
     {"enabled", "label", "displayName", "userName", "server", "port", "transport", "expiry"}},
    {"network", {"mode", "address", "netmask", "gateway", "dns1", "dns2", "hostname", "vlan"}},
    {"audio",
     {"ringtone", "ringVolume", "speakerVolume", "handsetVolume", "micGain", "echo", "codec"}},
    {"web", {"idleSeconds", "remoteAddresses", "hostNames"}}};

const std::map<std::string, Texts> kChoices = {{"ringtone", {"classic", "soft", "bell", "pulse"}},
                                               {"codec", {"opus", "g722", "pcma", "pcmu"}},
                                               {"echo", {"", "0", "1"}}};

const std::map<std::string, std::pair<int, int>> kRanges = {{"ringVolume", {0, 10}},
                                                            {"speakerVolume", {0, 10}},
                                                            {"handsetVolume", {0, 10}},
                                                            {"micGain", {-6, 6}}};

bool startsWith(const std::string& text, const std::string& part) {
    return text.substr(0, part.size()) == part;
}

// Returns the text with all but small letters and digits as numbers of characters.
std::string escaped(const std::string& text) {
    std::string result;
    for (const char byte : text) {
        const bool isPlain = (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9');
        result += isPlain ? std::string(1, byte)
                          : "&#" + std::to_string(static_cast<unsigned char>(byte)) + ";";
    }
    return result;
}

bool hasSign(const std::string& text) {
    return startsWith(text, "-") || startsWith(text, "+");
}

std::string errorOfNumber(const std::string& text, int least, int most) {
    const std::string digits = hasSign(text) ? text.substr(1) : text;
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos)
        return "notANumber";
    const double number = std::strtod(text.c_str(), nullptr); // of any length
    return number < least ? "tooSmall" : number > most ? "tooLarge" : "";
}

// Returns what is wrong with the value of an audio setting, or an empty text.
std::string errorOfAudio(const std::string& field, const std::string& value) {
    const std::string text = trimmed(value);
    if (text.empty() && field != "echo")
        return "required";
    if (const auto range = kRanges.find(field); range != kRanges.end())
        return errorOfNumber(text, range->second.first, range->second.second);
    return kChoices.at(field).count(text) != 0 ? "" : "badChoice";
}

// Adds the errors in the names of the part's fields, and returns the values of the others.
std::map<std::string, std::string> valuesIn(const SettingsPart& part, const std::string& path,
                                            std::multiset<std::string>& errors) {
    std::map<std::string, std::string> values;
    for (const auto& [name, value] : part.fields) {
        if (kFields.at(part.name).count(name) == 0)
            errors.insert(path + "/" + name + " unknownElement");
        else if (!values.emplace(name, value).second)
            errors.insert(path + "/" + name + " duplicate");
    }
    return values;
}

} // namespace

std::string documentOf(const SettingsParts& parts) {
    std::string text = "<?xml version='1.0'?><configuration>";
    for (const SettingsPart& part : parts) {
        text += "<" + part.name + ">";
        for (const auto& [name, value] : part.fields)
            text += "<" + name + ">" + escaped(value) + "</" + name + ">";
        text += "</" + part.name + ">";
    }
    return text + "</configuration>";
}

bool isModelled(const std::string& field, const std::string& code) {
    const bool isName = code == "unknownElement" || code == "duplicate" || code == "tooMany";
    return startsWith(field, "audio") || (isName && !startsWith(field, "web/"));
}

std::multiset<std::string> errorsIn(const SettingsParts& parts,
                                    std::map<std::string, std::string>& audio) {
    constexpr int kAccounts = 6;
    std::multiset<std::string> errors;
    Texts seen;
    int accounts = 0;
    for (const SettingsPart& part : parts) {
        const bool isAccount = part.name == "account";
        if (isAccount && accounts == kAccounts) {
            errors.insert("account tooMany");
        } else if (!isAccount && !seen.insert(part.name).second) {
            errors.insert(part.name + " duplicate");
        } else if (kFields.count(part.name) == 0) {
            errors.insert(part.name + " unknownElement");
        } else if (part.name != "web") {
            accounts += isAccount ? 1 : 0;
            const std::string number = "[" + std::to_string(accounts) + "]";
            const auto values = valuesIn(part, part.name + (isAccount ? number : ""), errors);
            for (const auto& [field, value] : values)
                if (part.name == "audio")
                    audio[field] = value;
        }
    }
    for (const auto& [field, value] : audio)
        if (const std::string error = errorOfAudio(field, value); !error.empty())
            errors.insert("audio/" + field + " " + error);
    return errors;
}

bool isSameValue(const std::string& one, const std::string& other) {
    const auto normal = [](const std::string& value) {
        const std::string text = trimmed(value);
        const bool isNumber = !text.empty() && errorOfNumber(text, -6, 10).empty();
        const int number = isNumber ? std::stoi(text) : 0;
        return text.empty() || isNumber ? std::to_string(number) : text; // no tick is 0
    };
    return normal(one) == normal(other);
}

} // namespace fuzz
