// The lasting state as the text of a file.
#ifndef MODEL_STATE_FILE_H
#define MODEL_STATE_FILE_H

#include "model/state.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace phone {

// Larger than any state: the worst case is a full directory whose names consist of escapes.
constexpr std::size_t kMaxStateBytes = 2 * 1024 * 1024;

// Returns the text of all but the user's name and password.
std::string stateText(const State& state);

// Returns the state that `text` was made from, or nothing if any part of it is invalid. All values
// are checked like form values. The password's hash is empty unless an earlier version has written
// the text.
std::optional<State> readState(std::string_view text);

// Returns the settings as they are in stateText().
std::string settingsText(const Settings& settings);

// Returns the values of `settings` that are others in `base`, which are those in the state file
// with this checksum.
std::string changesText(unsigned long checksum, const Settings& base, const Settings& settings);

enum class ChangesRead { done, ofAnotherState, damaged };

// Sets those of `settings` that `text` contains, unless it was made for a state file with another
// checksum, or any part of it is invalid: then sets nothing.
ChangesRead readChanges(std::string_view text, unsigned long checksum, Settings& settings);

} // namespace phone

#endif
