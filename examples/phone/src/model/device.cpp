#include "model/device.h"

#include "kit/secrets.h"
#include "model/atomic_file.h"
#include "model/contacts_csv.h"
#include "model/field_reader.h"
#include "model/password.h"
#include "model/state_file.h"
#include "web_debug.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace phone {
namespace {

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
    return std::nullopt;
}

// Renames a damaged file so that it can be examined.
void renameDamaged(const std::string& path) {
    const std::string aside = path + ".damaged";
    std::rename(path.c_str(), aside.c_str());
    WebDebug::getInstance()->error("%s is damaged: renamed to %s; using factory settings",
                                   path.c_str(), aside.c_str());
}

} // namespace

Device::Device(Files files) : m_files(std::move(files)) {
    clearReplacement(m_files.state);
    m_state = load();
    if (m_state == nullptr) {
        auto factory = std::make_shared<const State>(factoryState());
        m_state = factory;
        saveAndPublish(std::move(factory));
    }
}

std::shared_ptr<const State> Device::load() const {
    const std::optional<std::string> text = readFile(m_files.state, kMaxStateBytes);
    if (!text && errno == ENOENT) {
        return nullptr;
    }
    if (!text && errno != EFBIG) {
        // The file may be valid: it must not be replaced by the factory password.
        throw std::runtime_error("Cannot read " + m_files.state + ": " + std::strerror(errno));
    }
    std::optional<State> state = text ? readState(*text) : std::nullopt;
    if (!state) {
        renameDamaged(m_files.state);
        return nullptr;
    }
    return std::make_shared<const State>(std::move(*state));
}

State Device::factoryState() const {
    State state;
    state.settings = factorySettings();
    state.settings.web.passwordHash = hashPassword(kFactoryPassword);
    const std::optional<std::string> contacts = readFile(m_files.factoryContacts, kMaxCsvBytes);
    if (contacts) {
        applyImport(planImport(*contacts, state.directory), state.directory);
    } else {
        WebDebug::getInstance()->warn("No factory contacts in %s", m_files.factoryContacts.c_str());
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
        WebDebug::getInstance()->error("Cannot hash the password");
        return false;
    }
    if (!replaceFile(m_files.state, stateText(*state))) {
        return false;
    }
    const std::lock_guard<std::mutex> lock(m_publishing);
    m_state.swap(state);
    return true;
}

Outcome Device::change(const Edit& edit) {
    const std::lock_guard<std::mutex> lock(m_changing);
    auto changed = std::make_shared<State>(*state());
    Errors errors = edit(*changed);
    if (!errors.empty()) {
        return {std::move(errors), false};
    }
    return {{}, !saveAndPublish(std::move(changed))};
}

bool Device::authenticate(std::string_view name, std::string_view password) const {
    const std::shared_ptr<const State> now = state();
    const bool passwordFits = verifyPassword(password, now->settings.web.passwordHash);
    const bool nameFits = kit::equalSecrets(name, now->settings.web.user);
    return nameFits && passwordFits;
}

Outcome Device::changePassword(const std::string& oldPassword, const std::string& newPassword,
                               const std::string& repeat) {
    const std::string oldHash = state()->settings.web.passwordHash;
    Errors errors;
    if (!verifyPassword(oldPassword, oldHash)) {
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
    return change([&](State& state) -> Errors {
        state = std::move(factory);
        return {};
    });
}

} // namespace phone
