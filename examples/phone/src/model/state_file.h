// The state as the text of a file.
#ifndef MODEL_STATE_FILE_H
#define MODEL_STATE_FILE_H

#include "model/device.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace phone {

// More than the largest state takes: a full directory of names that are all escapes is the most of
// it.
constexpr std::size_t kMaxStateBytes = 2 * 1024 * 1024;

std::string stateText(const State& state);

// The state that the text was made of; nothing when anything is wrong with it: all of it is checked
// as what people enter is.
std::optional<State> readState(std::string_view text);

} // namespace phone

#endif
