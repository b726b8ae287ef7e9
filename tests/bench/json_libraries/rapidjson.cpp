#include "libraries.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

using rapidjson::Value;

long readTask(const char* text, std::size_t size) {
    rapidjson::Document task;
    task.Parse<rapidjson::kParseIterativeFlag | rapidjson::kParseValidateEncodingFlag>(text, size);
    if (task.HasParseError() || !task.IsObject()) {
        return -1;
    }
    const auto title = task.FindMember("title");
    const auto priority = task.FindMember("priority");
    const bool fine = title != task.MemberEnd() && title->value.IsString() &&
                      priority != task.MemberEnd() && priority->value.IsInt64();
    return fine ? static_cast<long>(priority->value.GetInt64()) : -1;
}

std::size_t writeTasks(std::size_t count) {
    rapidjson::Document root(rapidjson::kObjectType);
    auto& allocator = root.GetAllocator();
    Value tasks(rapidjson::kArrayType);
    for (std::size_t i = 0; i < count; ++i) {
        Value task(rapidjson::kObjectType);
        task.AddMember("title", "Call the \"front desk\"", allocator);
        task.AddMember("priority", static_cast<std::uint64_t>(i), allocator);
        task.AddMember("done", false, allocator);
        tasks.PushBack(task, allocator);
    }
    root.AddMember("tasks", tasks, allocator);
    root.AddMember("count", static_cast<std::uint64_t>(count), allocator);
    rapidjson::StringBuffer text;
    rapidjson::Writer<rapidjson::StringBuffer> writer(text);
    root.Accept(writer);
    return text.GetSize();
}
