// A JSON endpoint: GET returns the tasks, POST adds one.
#ifndef TASK_LIST_H
#define TASK_LIST_H

#include <kit/json_body.h>
#include <kit/plugin.h>

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

struct Task {
    std::string title;
    int priority;
};

inline kit::Json toJson(const Task& task) {
    return {{"title", task.title}, {"priority", task.priority}};
}

class TaskListPage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        if (request.isPost()) {
            return add(request, response);
        }
        std::lock_guard<std::mutex> guard(m_lock);
        response.json({{"tasks", m_tasks}, {"count", m_tasks.size()}});
    }

    void add(kit::Request& request, kit::Response& response) {
        const kit::JsonBody body = kit::readJson(request);
        if (!body) {
            return body.refuse(response);
        }
        const auto title = (*body)["title"].text(1, kMaxTitle);
        const auto priority = (*body)["priority"].number(1, 5);
        if (!title || !priority) {
            response.status(422).json({{"title", kit::describe(title.problem())},
                                       {"priority", kit::describe(priority.problem())}});
            return;
        }
        const Task task{std::string(*title), *priority};
        std::lock_guard<std::mutex> guard(m_lock);
        if (m_tasks.size() == kMaxTasks) {
            response.status(409).json({{"error", "the list is full"}});
            return;
        }
        m_tasks.push_back(task);
        response.status(201).json(task);
    }

    static constexpr std::size_t kMaxTasks = 100;
    static constexpr std::size_t kMaxTitle = 80;

    std::mutex m_lock; // requests run at the same time
    std::vector<Task> m_tasks;
};

#endif
