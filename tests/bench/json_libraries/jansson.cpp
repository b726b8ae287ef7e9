#include "libraries.h"

#include <jansson.h>

#include <cstdlib>
#include <cstring>

// Jansson accepts a depth of 2,048.
long readTask(const char* text, std::size_t size) {
    json_error_t error;
    json_t* task = json_loadb(text, size, JSON_REJECT_DUPLICATES, &error);
    const json_t* title = json_object_get(task, "title");
    const json_t* priority = json_object_get(task, "priority");
    const bool fine = json_is_string(title) && json_is_integer(priority);
    const long result = fine ? static_cast<long>(json_integer_value(priority)) : -1;
    json_decref(task);
    return result;
}

std::size_t writeTasks(std::size_t count) {
    json_t* root = json_object();
    json_t* tasks = json_array();
    for (std::size_t i = 0; i < count; ++i) {
        json_t* task = json_object();
        json_object_set_new(task, "title", json_string("Call the \"front desk\""));
        json_object_set_new(task, "priority", json_integer(static_cast<json_int_t>(i)));
        json_object_set_new(task, "done", json_false());
        json_array_append_new(tasks, task);
    }
    json_object_set_new(root, "tasks", tasks);
    json_object_set_new(root, "count", json_integer(static_cast<json_int_t>(count)));
    char* text = json_dumps(root, JSON_COMPACT);
    const std::size_t size = std::strlen(text);
    std::free(text);
    json_decref(root);
    return size;
}
