#include "libraries.h"

#include <cstdint>

#include <nlohmann/json.hpp>

using nlohmann::ordered_json;

long readTask(const char* text, std::size_t size) {
    const auto isShallow = [](int depth, ordered_json::parse_event_t, ordered_json&) {
        return depth <= static_cast<int>(kMaxDepth);
    };
    try {
        const ordered_json task = ordered_json::parse(text, text + size, isShallow);
        task.at("title").get_ref<const std::string&>();
        return task.at("priority").get<long>();
    } catch (const nlohmann::json::exception&) {
        return -1;
    }
}

std::size_t writeTasks(std::size_t count) {
    ordered_json tasks = ordered_json::array();
    for (std::size_t i = 0; i < count; ++i) {
        tasks.push_back({{"title", "Call the \"front desk\""}, {"priority", i}, {"done", false}});
    }
    const ordered_json root{{"tasks", std::move(tasks)}, {"count", count}};
    return root.dump().size();
}
