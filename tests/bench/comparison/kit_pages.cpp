// The three pages with the kit.
#include <kit/actions.h>
#include <kit/json_body.h>
#include <kit/upload.h>

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t kMaxText = 100;  // characters of an item
constexpr std::size_t kMaxItems = 100; // of a list
constexpr std::size_t kMaxUpload = 4 * 1024 * 1024;

// The to-do list of one visitor.
struct List {
    std::mutex lock;
    std::vector<std::string> items; // guarded by the lock
};

class TodoPage final : public kit::ActionPage {
public:
    TodoPage() {
        show(&TodoPage::showList);
        on("add", &TodoPage::add);
    }

private:
    void showList(kit::Request& request, kit::Response& response) {
        answerList(request, response, kit::Variables());
    }

    void add(kit::Request& request, kit::Response& response) {
        kit::Form form(request);
        const auto text = form.text("text", 1, kMaxText);
        if (text && !append(*m_lists.findOrCreate(request.createSession()), *text)) {
            form.reject("text", "does not fit: the list is full");
        }
        if (!form.isValid()) {
            response.status(422);
            answerList(request, response, form.fill(kit::Variables()));
            return;
        }
        response.seeOther("/servlet?p=todo");
    }

    static bool append(List& list, std::string_view text) {
        const std::lock_guard<std::mutex> guard(list.lock);
        if (list.items.size() >= kMaxItems) {
            return false;
        }
        list.items.emplace_back(text);
        return true;
    }

    void answerList(kit::Request& request, kit::Response& response, kit::Variables variables) {
        HttpSession* session = request.session();
        if (const auto list = session ? m_lists.find(*session) : nullptr) {
            const std::lock_guard<std::mutex> guard(list->lock);
            variables.rows("items", list->items, [](const std::string& item) {
                return kit::Variables().set("item", item);
            });
        }
        variables.set("token", kit::formToken(request, response));
        response.show("todo.html", std::move(variables));
    }

    kit::SessionData<List> m_lists{"list"};
};

class SumPage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        const kit::JsonBody body = kit::readJson(request);
        if (!body) {
            body.refuse(response);
            return;
        }
        const kit::Json& numbers = (*body)["numbers"];
        double sum = 0;
        for (const kit::Json& one : numbers) {
            const auto number = one.number<double>(-1e300, 1e300);
            if (!number) {
                response.status(400).json({{"error", "not a number"}});
                return;
            }
            sum += *number;
        }
        if (!numbers.isArray()) {
            response.status(400).json({{"error", "numbers is missing"}});
            return;
        }
        response.json({{"count", numbers.size()}, {"sum", sum}});
    }
};

class UploadPage final : public kit::Page {
    void answer(kit::Request& request, kit::Response& response) override {
        const char* folder = std::getenv("UPLOAD_FOLDER");
        const std::string path = std::string(folder ? folder : "/phone/data") + "/upload";
        if (!kit::saveUpload(request, "file", path, kMaxUpload)) {
            response.status(422).json({{"error", "incomplete or too large"}});
            return;
        }
        response.json({{"bytes", std::filesystem::file_size(path)}});
    }
};

} // namespace

KIT_SERVLET(createTodoPage, TodoPage)
KIT_SERVLET(createSumPage, SumPage)
KIT_SERVLET(createUploadPage, UploadPage)
