// A page whose script exchanges JSON with it: q=tasks returns the tasks, and adds one by POST.

#include <kit/json_body.h>
#include <kit/plugin.h>

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

namespace {

constexpr std::size_t kMaxTasks = 100;
constexpr std::size_t kMaxTitleLength = 80;

struct Task {
    std::string title;
    int priority;
};

kit::Json toJson(const Task& task) {
    return {{"title", task.title}, {"priority", task.priority}};
}

class SamplePage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        if (request.parameter("q") != "tasks") {
            response.show("sample.html", {});
        } else if (request.isPost()) {
            add(request, response);
        } else {
            response.json({{"tasks", tasks()}});
        }
    }

    // A page of another site cannot send JSON in its visitor's name without the browser's asking
    // first, so no token is needed. Check here who sends it once users sign in.
    void add(kit::Request& request, kit::Response& response) {
        const kit::JsonBody body = kit::readJson(request);
        if (!body) {
            return body.refuse(response);
        }
        const auto title = (*body)["title"].text(1, kMaxTitleLength);
        const auto priority = (*body)["priority"].number(1, 5);
        if (!title || !priority) {
            const char* wrong = title ? "priority" : "title";
            const auto problem = title ? priority.problem() : title.problem();
            response.status(422).json(
                {{"error", std::string("The ") + wrong + " " + kit::describe(problem) + "."}});
            return;
        }
        const Task task{std::string(*title), *priority};
        if (!append(task)) {
            response.status(409).json({{"error", "The list is full."}});
            return;
        }
        response.status(201).json(task);
    }

    // Returns a copy, so that no lock is held while a slow client reads it.
    std::vector<Task> tasks() {
        const std::lock_guard<std::mutex> guard(m_lock);
        return m_tasks;
    }

    // Returns false if the list is full.
    bool append(const Task& task) {
        const std::lock_guard<std::mutex> guard(m_lock);
        if (m_tasks.size() == kMaxTasks) {
            return false;
        }
        m_tasks.push_back(task);
        return true;
    }

    std::mutex m_lock; // requests run at the same time
    std::vector<Task> m_tasks;
};

} // namespace

// The name that servlet.xml uses.
KIT_SERVLET(createSamplePage, SamplePage)
