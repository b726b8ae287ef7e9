#include "model/state_file.h"

#include "model/configuration.h"
#include "model/field_reader.h"
#include "model/password.h"
#include "model/settings_xml.h"

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

// Reads what the configuration omits. Earlier versions stored the password here.
bool readAccess(const pugi::xml_node& access, Settings& settings) {
    pugi::xml_node secret = access.child("secret");
    for (Account& account : settings.accounts) {
        account.secret = textOf(secret);
        if (!secret || checkText("secret", account.secret, 0, 64)) {
            return false;
        }
        secret = secret.next_sibling("secret");
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
        Contact contact{textOf(element.child("name")), textOf(element.child("number"))};
        if (!directory.add(std::move(contact)).empty()) {
            return false;
        }
    }
    return true;
}

} // namespace

std::string stateText(const State& state) {
    XmlWriter writer;
    writer.open("state");
    writeSettings(writer, state.settings);
    writeAccess(writer, state.settings);
    writer.element("localCopy", state.localCopy);
    for (const Contact& contact : state.directory.contacts()) {
        writer.open("contact");
        writer.element("name", contact.name);
        writer.element("number", contact.number);
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

} // namespace phone
