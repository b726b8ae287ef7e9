#include "model/backup.h"

#include "model/common_passwords.h"
#include "model/configuration.h"
#include "model/field_reader.h"

#include <cassert>
#include <utility>

namespace phone {

Errors checkPassphrase(std::string_view passphrase, std::string_view repeat) {
    if (auto error = checkText("passphrase", passphrase, kMinPassphrase, kMaxPassphrase)) {
        return {std::move(*error)};
    }
    if (isCommonPassword(passphrase)) {
        return {{"passphrase", ErrorCode::tooCommon, std::nullopt}};
    }
    if (repeat != passphrase) {
        return {{"repeat", ErrorCode::mismatch, std::nullopt}};
    }
    return {};
}

std::string backupOf(State state, std::string_view passphrase) {
    state.localCopy.clear();
    return seal(stateText(state), passphrase);
}

Errors readBackup(std::string_view file, std::string_view passphrase, State& backup) {
    assert(isSealed(file) && "`file` must pass isSealed()");
    if (file.size() > kMaxBackupBytes) {
        return {{"config", ErrorCode::tooLarge, kMaxBackupBytes}};
    }
    const Unsealed unsealed = unseal(file, passphrase);
    if (unsealed.fault == SealFault::notOpened) {
        return {{"config", ErrorCode::wrongPassphrase, std::nullopt}};
    }
    auto state = unsealed.fault == SealFault::none ? readState(unsealed.text) : std::nullopt;
    if (!state) {
        return {{"config", ErrorCode::otherVersion, std::nullopt}};
    }
    backup = std::move(*state);
    return {};
}

void restoreBackup(State backup, State& state) {
    backup.localCopy = configurationText(state.settings);
    backup.settings.web.user = state.settings.web.user;
    backup.settings.web.passwordHash = state.settings.web.passwordHash;
    backup.settings.web.factoryPassword = state.settings.web.factoryPassword;
    state = std::move(backup);
}

} // namespace phone
