// What the phone keeps when it is switched off.
#ifndef MODEL_STATE_H
#define MODEL_STATE_H

#include "model/directory.h"
#include "model/settings.h"

#include <string>

namespace phone {

// A new member is also compared in isSameButForSettings(), and stored in stateText().
struct State {
    Settings settings;
    Directory directory;
    std::string localCopy; // a configuration as XML, see configuration.h; empty without a copy
};

// Returns whether the states differ in nothing but their settings.
bool isSameButForSettings(const State& left, const State& right);

} // namespace phone

#endif
