// The encrypted backup of the phone: all settings, the accounts' secrets and the contacts.
//
// It omits the user and the password of the pages: an old backup must not bring back a password
// that was changed because others knew it, and a lost file must not help to guess the password. It
// omits the local copy, which restoreBackup() replaces.
#ifndef MODEL_BACKUP_H
#define MODEL_BACKUP_H

#include "model/field_error.h"
#include "model/sealed_text.h"
#include "model/state.h"
#include "model/state_file.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace phone {

// More than for the password of the pages: whoever has the file can guess without any wait, and on
// faster machines than the phone.
constexpr std::size_t kMinPassphrase = 12; // characters
constexpr std::size_t kMaxPassphrase = 128;

constexpr std::size_t kMaxBackupBytes = kMaxStateBytes + kSealBytes;

// Returns what is wrong with a passphrase for a new backup: the fields "passphrase" (required,
// tooShort, tooLong, notUtf8, badCharacters, tooCommon) and "repeat" (mismatch).
Errors checkPassphrase(std::string_view passphrase, std::string_view repeat);

// Returns the backup as a file. See seal() for its costs and what it throws.
std::string backupOf(State state, std::string_view passphrase);

// Returns the state in the backup, checked like form values, without user and password; or an error
// for the field "config": tooLarge, wrongPassphrase (or a damaged file, which looks the same),
// or otherVersion. `file` must pass isSealed(). See unseal() for its costs and what it throws.
Errors readBackup(std::string_view file, std::string_view passphrase, State& backup);

// Replaces all of `state` but the user and the password. The previous configuration becomes the
// local copy.
void restoreBackup(State backup, State& state);

} // namespace phone

#endif
