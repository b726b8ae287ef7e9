#include "kit_tasks.h"

#include "kit/json_body.h"

long readTask(const char* text, std::size_t size) {
    const kit::JsonBody task = kit::parseJson({text, size});
    return task ? priorityOf(*task) : -1;
}
