// What the kit's values do, whatever parser builds them.
#ifndef KIT_TASKS_H
#define KIT_TASKS_H

#include "libraries.h"

#include "kit/json.h"

inline long priorityOf(const kit::Json& task) {
    constexpr long kMax = 1000;
    return task["title"].text(1, 80) ? task["priority"].number<long>(0, kMax).valueOr(-1) : -1;
}

std::size_t writeTasks(std::size_t count) {
    kit::Json tasks = kit::Json::array();
    for (std::size_t i = 0; i < count; ++i) {
        tasks.append({{"title", "Call the \"front desk\""}, {"priority", i}, {"done", false}});
    }
    return kit::Json({{"tasks", std::move(tasks)}, {"count", count}}).serialized().size();
}

#endif
