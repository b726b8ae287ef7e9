// Lengths of time as people say them.
#ifndef DURATION_H
#define DURATION_H

#include "kit/variables.h"

#include <chrono>

namespace phone {

// Returns the variables of duration.html and ago.html: "days", "hours" and "minutes", each only if
// it is not 0, and only the largest two units. The duration must not be negative.
kit::Variables durationVariables(std::chrono::seconds duration);

} // namespace phone

#endif
