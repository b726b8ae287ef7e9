#include "model/device.h"

#include "kit/secrets.h"
#include "model/atomic_file.h"
#include "model/common_passwords.h"
#include "model/contacts_csv.h"
#include "model/field_reader.h"
#include "model/journal.h"
#include "model/password.h"

#include <cstdio>
#include <new>
#include <unistd.h>
#include <utility>

namespace phone {
namespace {

constexpr const char* kFactoryUser = "admin";
constexpr const char* kFactoryPassword = "admin";
constexpr std::size_t kMinPassword = 8; // characters
constexpr std::size_t kMaxPassword = 128;

// Checks a new password by itself.
std::optional<FieldError> checkNewPassword(const std::string& password, const std::string& old) {
    if (auto error = checkText("newPassword", password, kMinPassword, kMaxPassword)) {
        return error;
    }
    if (password.size() > kMaxPasswordBytes) {
        // Characters may take four bytes each, so the limit in characters is a quarter.
        return FieldError{"newPassword", ErrorCode::tooLong, kMaxPasswordBytes / 4};
    }
    if (password == old) {
        return FieldError{"newPassword", ErrorCode::same, std::nullopt};
    }
    if (isCommonPassword(password)) {
        return FieldError{"newPassword", ErrorCode::tooCommon, std::nullopt};
    }
    return std::nullopt;
}

// Returns the path of another file in the folder of the state file.
std::string besideState(const std::string& state, const char* name) {
    return state.substr(0, state.rfind('/') + 1) + name;
}

Credentials credentialsOf(const State& state) {
    const WebAccess& web = state.settings.web;
    return {web.user, web.passwordHash, web.factoryPassword};
}

void setCredentials(State& state, Credentials credentials) {
    WebAccess& web = state.settings.web;
    web.user = std::move(credentials.user);
    web.passwordHash = std::move(credentials.hash);
    web.factoryPassword = credentials.isFactoryPassword;
}

} // namespace

Device::Device(Files files)
    : m_files(std::move(files)), m_resetFile(besideState(m_files.state, "reset")),
      m_store(m_files.state), m_passwords(besideState(m_files.state, "password")),
      m_hasResetFile(access(m_resetFile.c_str(), F_OK) == 0) {
    if (m_hasResetFile) {
        startAsNew();
        return;
    }
    std::unique_ptr<State> state = m_store.load();
    const bool isLoaded = state != nullptr;
    if (!isLoaded) {
        state = std::make_unique<State>(factoryState());
    }
    loadPassword(*state);
    std::shared_ptr<const State> loaded = std::move(state);
    if (!isLoaded) {
        m_store.save(*loaded, nullptr);
    }
    m_state = std::move(loaded);
}

// Replaces what the former owner has saved at once, all but the password.
void Device::startAsNew() {
    m_passwords.load(); // their number continues
    auto state = std::make_shared<const State>(factoryState());
    m_store.save(*state, nullptr);
    m_state = std::move(state);
    m_isNew = true;
}

void Device::preparePassword() {
    if (m_isNew) {
        const std::lock_guard<std::mutex> lock(m_changing);
        hashFactoryPassword();
    }
}

void Device::hashFactoryPassword() {
    if (!m_isNew) {
        return;
    }
    auto state = std::make_shared<State>(*m_state);
    setCredentials(*state, {kFactoryUser, hashPassword(kFactoryPassword), true});
    if (!saveAndPublish(state)) {
        if (state->settings.web.passwordHash.empty()) {
            return;
        }
        publish(std::move(state));
    }
    m_isNew = false;
}

void Device::loadPassword(State& state) {
    if (auto stored = m_passwords.load()) {
        setCredentials(state, std::move(*stored));
    } else if (!state.settings.web.passwordHash.empty()) {
        m_passwords.save(credentialsOf(state)); // from the state file of an earlier version
    } else {
        Journal::getInstance()->error("There is no password: nobody can sign in until the phone is "
                                      "reset at the device");
    }
}

State Device::factoryState() const {
    State state;
    state.settings = factorySettings();
    const std::optional<std::string> contacts = readFile(m_files.factoryContacts, kMaxCsvBytes);
    if (contacts) {
        applyImport(planImport(*contacts, state.directory), state.directory);
    } else {
        Journal::getInstance()->warn("No factory contacts in %s", m_files.factoryContacts.c_str());
    }
    return state;
}

std::shared_ptr<const State> Device::state() const {
    const std::lock_guard<std::mutex> lock(m_publishing);
    return m_state;
}

bool Device::saveAndPublish(std::shared_ptr<const State> state) {
    // Without a hash nobody could sign in again to correct it.
    if (!isPasswordHash(state->settings.web.passwordHash)) {
        Journal::getInstance()->error("Cannot hash the password");
        return false;
    }
    if (!save(*state)) {
        return false;
    }
    publish(std::move(state));
    if (m_hasResetFile) {
        m_hasResetFile = std::remove(m_resetFile.c_str()) != 0;
        if (m_hasResetFile) {
            Journal::getInstance()->error(
                "Cannot remove %s, so the phone will start as a new one again",
                m_resetFile.c_str());
        }
    }
    return true;
}

void Device::publish(std::shared_ptr<const State> state) {
    const std::lock_guard<std::mutex> lock(m_publishing);
    m_state.swap(state);
}

bool Device::save(const State& state) {
    const auto stored = m_passwords.stored();
    const Credentials wanted = credentialsOf(state);
    const bool isOther = !stored || !(*stored == wanted);
    // A new password changes its own files only, so that no failure can come between.
    const bool isAll = isOther && m_store.isSaved(state, m_state.get());
    if (!m_passwords.save(wanted)) {
        return false;
    }
    if (isAll || m_store.save(state, m_state.get())) {
        return true;
    }
    if (stored) {
        m_passwords.save(*stored);
    }
    return false;
}

Outcome Device::change(const Edit& edit) {
    const std::lock_guard<std::mutex> lock(m_changing);
    hashFactoryPassword();
    if (m_isNew) {
        return {{}, true};
    }
    auto changed = std::make_shared<State>(*state());
    Errors errors = edit(*changed);
    if (!errors.empty()) {
        return {std::move(errors), false};
    }
    return {{}, !saveAndPublish(std::move(changed))};
}

bool Device::authenticate(std::string_view name, std::string_view password) {
    preparePassword();
    if (m_isNew) {
        throw std::bad_alloc();
    }
    const std::shared_ptr<const State> now = state();
    const bool passwordFits = verifyPassword(password, now->settings.web.passwordHash);
    const bool nameFits = kit::equalSecrets(name, now->settings.web.user);
    return nameFits && passwordFits;
}

Outcome Device::changePassword(const std::string& oldPassword, const std::string& newPassword,
                               const std::string& repeat) {
    preparePassword();
    if (m_isNew) {
        return {{}, true};
    }
    const auto before = state();
    const std::string oldHash = before->settings.web.passwordHash;
    Errors errors;
    if (!before->settings.web.factoryPassword && !verifyPassword(oldPassword, oldHash)) {
        errors.push_back({"oldPassword", ErrorCode::wrongPassword, std::nullopt});
    }
    if (auto error = checkNewPassword(newPassword, oldPassword)) {
        errors.push_back(*error);
    } else if (repeat != newPassword) {
        errors.push_back({"repeat", ErrorCode::mismatch, std::nullopt});
    }
    if (!errors.empty()) {
        return {std::move(errors), false};
    }
    const std::string newHash = hashPassword(newPassword);
    return change([&](State& state) -> Errors {
        if (state.settings.web.passwordHash != oldHash) {
            return {{"oldPassword", ErrorCode::wrongPassword, std::nullopt}};
        }
        state.settings.web.passwordHash = newHash;
        state.settings.web.factoryPassword = false;
        return {};
    });
}

Outcome Device::factoryReset() {
    State factory = factoryState();
    setCredentials(factory, {kFactoryUser, hashPassword(kFactoryPassword), true});
    return change([&](State& state) -> Errors {
        state = std::move(factory);
        return {};
    });
}

} // namespace phone
