#include "duration.h"

#include <cassert>

namespace phone {

kit::Variables durationVariables(std::chrono::seconds duration) {
    assert(duration.count() >= 0 && "the duration must not be negative");
    const auto minutes = duration.count() / 60;
    const auto days = minutes / (24 * 60);
    const auto hours = minutes / 60 % 24;
    kit::Variables variables;
    if (days > 0) {
        variables.set("days", days);
    }
    if (hours > 0) {
        variables.set("hours", hours);
    }
    if (days == 0 && minutes % 60 > 0) {
        variables.set("minutes", minutes % 60);
    }
    return variables;
}

} // namespace phone
