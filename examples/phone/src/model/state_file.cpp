#include "model/state_file.h"

#include "model/configuration.h"
#include "model/field_reader.h"
#include "model/password.h"
#include "model/settings_xml.h"

#include <algorithm>
#include <cstring>

namespace phone {
namespace {

// Writes what the configuration omits, except the password, which PasswordStore keeps.
void writeAccess(XmlWriter& writer, const Settings& settings) {
    writer.open("access");
    for (const Account& account : settings.accounts) {
        writer.element("secret", account.secret);
    }
    writer.close("access");
}

bool readSecrets(const pugi::xml_node& access, Settings& settings) {
    pugi::xml_node secret = access.child("secret");
    for (Account& account : settings.accounts) {
        account.secret = textOf(secret);
        if (!secret || checkText("secret", account.secret, 0, 64)) {
            return false;
        }
        secret = secret.next_sibling("secret");
    }
    return true;
}

// Reads what the configuration omits. Earlier versions stored the password here.
bool readAccess(const pugi::xml_node& access, Settings& settings) {
    if (!readSecrets(access, settings)) {
        return false;
    }
    if (const pugi::xml_node hash = access.child("passwordHash")) {
        WebAccess& web = settings.web;
        web.user = textOf(access.child("user"));
        web.passwordHash = textOf(hash);
        web.factoryPassword = !textOf(access.child("factoryPassword")).empty();
        return !web.user.empty() && isPasswordHash(web.passwordHash);
    }
    return true;
}

bool readContacts(const pugi::xml_node& root, Directory& directory) {
    for (const pugi::xml_node& element : root.children("contact")) {
        Contact contact;
        for (const ContactField& field : kContactFields) {
            contact.*field.text = textOf(element.child(field.name));
        }
        if (!directory.add(std::move(contact)).empty()) {
            return false;
        }
    }
    return true;
}

bool haveSameAccounts(const Settings& left, const Settings& right) {
    return std::equal(left.accounts.begin(), left.accounts.end(), right.accounts.begin(),
                      [](const Account& one, const Account& other) {
                          return valuesOf(one) == valuesOf(other) && one.secret == other.secret;
                      });
}

} // namespace

bool isSameButForSettings(const State& left, const State& right) {
    return left.localCopy == right.localCopy &&
           left.directory.contacts() == right.directory.contacts();
}

std::string stateText(const State& state) {
    XmlWriter writer;
    writer.open("state");
    writeSettings(writer, state.settings);
    writeAccess(writer, state.settings);
    writer.element("localCopy", state.localCopy);
    for (const Contact& contact : state.directory.contacts()) {
        writer.open("contact");
        for (const ContactField& field : kContactFields) {
            const CompactText& text = contact.*field.text;
            if (!text.empty()) {
                writer.element(field.name, text);
            }
        }
        writer.close("contact");
    }
    writer.close("state");
    return writer.text();
}

std::optional<State> readState(std::string_view text) {
    pugi::xml_document document;
    if (!parseXml(text, document).empty()) {
        return std::nullopt;
    }
    const pugi::xml_node root = document.document_element();
    State state;
    state.settings = factorySettings();
    state.localCopy = textOf(root.child("localCopy"));
    const bool good = std::strcmp(root.name(), "state") == 0 &&
                      readSettings(root.child("configuration"), state.settings).empty() &&
                      readAccess(root.child("access"), state.settings) &&
                      state.localCopy.size() <= kMaxConfigurationBytes &&
                      readContacts(root, state.directory);
    return good ? std::optional<State>(std::move(state)) : std::nullopt;
}

std::string settingsText(const Settings& settings) {
    XmlWriter writer;
    writeSettings(writer, settings);
    writeAccess(writer, settings);
    return writer.text();
}

std::string changesText(unsigned long checksum, const Settings& base, const Settings& settings) {
    XmlWriter writer;
    writer.open("changes");
    writer.element("checksumOfState", std::to_string(checksum));
    writeSettings(writer, settings, &base);
    // Reading another name of an account clears its secret, so write those that stay, too.
    if (!haveSameAccounts(base, settings)) {
        writeAccess(writer, settings);
    }
    writer.close("changes");
    return writer.text();
}

ChangesRead readChanges(std::string_view text, unsigned long checksum, Settings& settings) {
    pugi::xml_document document;
    if (!parseXml(text, document).empty()) {
        return ChangesRead::damaged;
    }
    const pugi::xml_node root = document.document_element();
    const pugi::xml_node made = root.child("checksumOfState");
    if (std::strcmp(root.name(), "changes") != 0 || !made) {
        return ChangesRead::damaged;
    }
    if (textOf(made) != std::to_string(checksum)) {
        return ChangesRead::ofAnotherState;
    }
    Settings changed = settings;
    const pugi::xml_node access = root.child("access");
    if (!readSettings(root.child("configuration"), changed).empty() ||
        (access && !readSecrets(access, changed))) {
        return ChangesRead::damaged;
    }
    settings = std::move(changed);
    return ChangesRead::done;
}

} // namespace phone
