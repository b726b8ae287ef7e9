#include "libraries.h"

#include <cjson/cJSON.h>

#include <cstdlib>
#include <cstring>

// cJSON accepts a depth of 1,000, and a task is not deeper than that.
long readTask(const char* text, std::size_t size) {
    cJSON* task = cJSON_ParseWithLength(text, size);
    const cJSON* title = cJSON_GetObjectItemCaseSensitive(task, "title");
    const cJSON* priority = cJSON_GetObjectItemCaseSensitive(task, "priority");
    const bool fine = cJSON_IsString(title) && cJSON_IsNumber(priority);
    const long result = fine ? static_cast<long>(priority->valuedouble) : -1;
    cJSON_Delete(task);
    return result;
}

std::size_t writeTasks(std::size_t count) {
    cJSON* root = cJSON_CreateObject();
    cJSON* tasks = cJSON_AddArrayToObject(root, "tasks");
    for (std::size_t i = 0; i < count; ++i) {
        cJSON* task = cJSON_CreateObject();
        cJSON_AddStringToObject(task, "title", "Call the \"front desk\"");
        cJSON_AddNumberToObject(task, "priority", static_cast<double>(i));
        cJSON_AddBoolToObject(task, "done", 0);
        cJSON_AddItemToArray(tasks, task);
    }
    cJSON_AddNumberToObject(root, "count", static_cast<double>(count));
    char* text = cJSON_PrintUnformatted(root);
    const std::size_t size = std::strlen(text);
    std::free(text);
    cJSON_Delete(root);
    return size;
}
