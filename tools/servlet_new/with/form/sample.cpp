// A to-do list for each visitor: a form with actions and tokens, errors beside their fields, and
// messages that are shown once.

#include <kit/actions.h>
#include <kit/flash.h>

#include <algorithm>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr std::size_t kMaxItems = 20;
constexpr std::size_t kMaxLength = 60;

// The list of one session. Has a lock, because requests of one session may run at the same time.
class ToDoList {
public:
    struct Item {
        long id;
        std::string text;
    };

    std::vector<Item> items() const {
        std::lock_guard<std::mutex> guard(m_lock);
        return m_items;
    }
    // Returns false if the list is full.
    bool add(std::string_view text) {
        std::lock_guard<std::mutex> guard(m_lock);
        if (m_items.size() == kMaxItems) {
            return false;
        }
        m_items.push_back({m_nextId++, std::string(text)});
        return true;
    }
    void remove(long id) {
        std::lock_guard<std::mutex> guard(m_lock);
        m_items.erase(std::remove_if(m_items.begin(), m_items.end(),
                                     [id](const Item& item) { return item.id == id; }),
                      m_items.end());
    }

private:
    mutable std::mutex m_lock;
    std::vector<Item> m_items;
    long m_nextId = 1;
};

kit::Variables itemRow(const ToDoList::Item& item) {
    return kit::Variables().set("id", item.id).set("item", item.text);
}

class SamplePage final : public kit::ActionPage {
public:
    SamplePage() {
        show(&SamplePage::showList);
        on("add", &SamplePage::add);
        on("remove", &SamplePage::remove);
    }

private:
    void showList(kit::Request& request, kit::Response& response) {
        kit::Variables variables;
        variables.set("flash", kit::takeFlash(request));
        showPage(request, response, std::move(variables));
    }

    void add(kit::Request& request, kit::Response& response) {
        kit::Form form(request);
        const auto text = form.text("text", 1, kMaxLength);
        if (text && !listOf(request)->add(*text)) {
            form.reject("text", "is one too many");
        }
        if (!form.isValid()) {
            response.status(422);
            showPage(request, response, form.fill(kit::Variables()));
            return;
        }
        kit::setFlash(request, "Added.");
        response.seeOther("/servlet?p=sample");
    }

    void remove(kit::Request& request, kit::Response& response) {
        if (const auto id = request.number<long>("id", 1, 1000000)) {
            listOf(request)->remove(*id);
            kit::setFlash(request, "Removed.");
        }
        response.seeOther("/servlet?p=sample");
    }

    void showPage(kit::Request& request, kit::Response& response, kit::Variables variables) {
        HttpSession* session = request.session();
        const auto list = session ? m_lists.find(*session) : nullptr;
        variables.set("token", kit::formToken(request, response)).set("maxLength", kMaxLength);
        variables.rows("items", list ? list->items() : std::vector<ToDoList::Item>(), itemRow);
        response.show("sample.html", std::move(variables));
    }

    std::shared_ptr<ToDoList> listOf(kit::Request& request) {
        return m_lists.findOrCreate(request.createSession());
    }

    kit::SessionData<ToDoList> m_lists{"toDoList"};
};

} // namespace

// The name that servlet.xml uses.
KIT_SERVLET(createSamplePage, SamplePage)
