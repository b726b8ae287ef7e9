#include "model/settings_xml.h"

#include "kit/text.h"

#include "model/configuration.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <set>

namespace phone {
namespace {

// Maximum bytes shown of the name of an unknown element.
constexpr std::size_t kMaxName = 64;

constexpr const char* kSecretField = "secret";

// Omits the values that are those of `base`, which may be null.
template <typename Part>
void writePart(XmlWriter& writer, const char* name, const std::vector<const char*>& fields,
               const Part& part, const Part* base) {
    const Values values = valuesOf(part);
    const Values known = base != nullptr ? valuesOf(*base) : Values();
    writer.open(name);
    for (const char* field : fields) {
        const auto value = values.find(field);
        const auto old = known.find(field);
        const bool isKnown = old != known.end() && old->second == value->second;
        if (!isKnown && std::strcmp(field, kSecretField) != 0) {
            writer.element(field, value->second);
        }
    }
    writer.close(name);
}

bool isElement(const pugi::xml_node& node) {
    return node.type() == pugi::node_element;
}

std::string nameIn(const pugi::xml_node& node) {
    return std::string(kit::shortened(node.name(), kMaxName));
}

// Reads the parts one by one and collects their errors.
class SettingsReader {
public:
    explicit SettingsReader(const Settings& present) : m_settings(present) {}

    void read(const pugi::xml_node& part);
    const Errors& errors() const { return m_errors; }
    bool full() const { return m_errors.size() >= kMaxConfigurationErrors; }
    Settings& settings() { return m_settings; }

private:
    void readAccount(const pugi::xml_node& part);
    template <typename Part>
    void readPart(const pugi::xml_node& part, const std::string& path,
                  const std::vector<const char*>& fields, Part& target);
    Values readFields(const pugi::xml_node& part, const std::string& path,
                      const std::vector<const char*>& fields, Values values);
    void fail(std::string field, ErrorCode code, std::optional<long> limit = std::nullopt) {
        if (!full()) {
            m_errors.push_back({std::move(field), code, limit});
        }
    }

    Settings m_settings;
    std::size_t m_accounts = 0;
    std::set<std::string> m_seen;
    Errors m_errors;
};

Values SettingsReader::readFields(const pugi::xml_node& part, const std::string& path,
                                  const std::vector<const char*>& fields, Values values) {
    std::set<std::string> seen;
    for (const pugi::xml_node& element : part.children()) {
        if (!isElement(element)) {
            continue;
        }
        const std::string name = nameIn(element);
        const auto failHere = [&](ErrorCode code) {
            fail(std::string(path).append("/").append(name), code);
        };
        const bool known =
            name != kSecretField && std::find(fields.begin(), fields.end(), name) != fields.end();
        if (!known) {
            failHere(ErrorCode::unknownElement);
        } else if (!seen.insert(name).second) {
            failHere(ErrorCode::duplicate);
        } else {
            values[name] = textOf(element);
        }
    }
    return values;
}

template <typename Part>
void SettingsReader::readPart(const pugi::xml_node& part, const std::string& path,
                              const std::vector<const char*>& fields, Part& target) {
    const Values values = readFields(part, path, fields, valuesOf(target));
    for (FieldError& error : readValues(values, target)) {
        fail(path + "/" + error.field, error.code, error.limit);
    }
}

void SettingsReader::readAccount(const pugi::xml_node& part) {
    if (m_accounts == kAccounts) {
        fail("account", ErrorCode::tooMany, kAccounts);
        return;
    }
    Account& account = m_settings.accounts[m_accounts];
    ++m_accounts;
    const Account old = account;
    readPart(part, "account[" + std::to_string(m_accounts) + "]", kAccountFields, account);
    if (account.userName != old.userName || account.server != old.server) {
        account.secret.clear();
    }
}

void SettingsReader::read(const pugi::xml_node& part) {
    const std::string name = nameIn(part);
    if (name == "account") {
        readAccount(part);
    } else if (!m_seen.insert(name).second) {
        fail(name, ErrorCode::duplicate);
    } else if (name == "network") {
        readPart(part, name, kNetworkFields, m_settings.network);
    } else if (name == "audio") {
        readPart(part, name, kAudioFields, m_settings.audio);
    } else if (name == "provisioning") {
        readPart(part, name, kProvisioningFields, m_settings.provisioning);
    } else if (name == "web") {
        readPart(part, name, kWebAccessFields, m_settings.web);
    } else {
        fail(name, ErrorCode::unknownElement);
    }
}

} // namespace

Errors parseXml(std::string_view text, pugi::xml_document& document) {
    const auto failure = [](ErrorCode code) { return Errors{{"config", code, std::nullopt}}; };
    if (!kit::isUtf8(text)) {
        return failure(ErrorCode::notUtf8);
    }
    // Keep texts of white space: a secret may consist of it. parse_doctype only reports a document
    // type declaration; its entities are never expanded.
    const unsigned options =
        pugi::parse_default | pugi::parse_ws_pcdata_single | pugi::parse_doctype;
    pugi::xml_parse_result whole; // not parsed yet, which is an error
    if (text.find('\0') == std::string_view::npos) {
        whole = document.load_buffer(text.data(), text.size(), options, pugi::encoding_utf8);
    }
    if (whole.status == pugi::status_out_of_memory) {
        throw std::bad_alloc();
    }
    for (const pugi::xml_node& node : document.children()) {
        if (node.type() == pugi::node_doctype) {
            return failure(ErrorCode::notXml);
        }
    }
    return whole ? Errors() : failure(ErrorCode::notXml);
}

std::string textOf(const pugi::xml_node& element) {
    std::string text;
    for (const pugi::xml_node& node : element.children()) {
        text += node.value();
    }
    return text;
}

void writeSettings(XmlWriter& writer, const Settings& settings, const Settings* base) {
    writer.open("configuration");
    for (std::size_t i = 0; i < kAccounts; ++i) {
        writePart(writer, "account", kAccountFields, settings.accounts[i],
                  base != nullptr ? &base->accounts[i] : nullptr);
    }
    writePart(writer, "network", kNetworkFields, settings.network,
              base != nullptr ? &base->network : nullptr);
    writePart(writer, "audio", kAudioFields, settings.audio,
              base != nullptr ? &base->audio : nullptr);
    writePart(writer, "provisioning", kProvisioningFields, settings.provisioning,
              base != nullptr ? &base->provisioning : nullptr);
    writePart(writer, "web", kWebAccessFields, settings.web,
              base != nullptr ? &base->web : nullptr);
    writer.close("configuration");
}

Errors readSettings(const pugi::xml_node& configuration, Settings& settings) {
    if (std::strcmp(configuration.name(), "configuration") != 0) {
        return {{nameIn(configuration), ErrorCode::unknownElement, std::nullopt}};
    }
    SettingsReader reader(settings);
    for (const pugi::xml_node& part : configuration.children()) {
        if (isElement(part) && !reader.full()) {
            reader.read(part);
        }
    }
    if (reader.errors().empty()) {
        settings = std::move(reader.settings());
    }
    return reader.errors();
}

} // namespace phone
