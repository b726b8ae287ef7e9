#include "pages/contacts_page.h"

#include "model/contacts_csv.h"

#include <cstdint>

namespace phone {
namespace {

// Longer search texts are cut.
constexpr std::size_t kMaxSearchBytes = 128;

const std::vector<const char*> kContactFields{"name", "number"};

kit::Variables contactRow(const Contact& contact) {
    return kit::Variables().set("name", contact.name).set("number", contact.number);
}

void addPaging(kit::Variables& variables, const Directory::Page& page) {
    variables.set("contactCount", page.total).set("pageNumber", page.page);
    if (page.pages > 1) {
        variables.set("pages", page.pages);
    }
    if (page.page > 1) {
        variables.set("previous", page.page - 1);
    }
    if (page.page < page.pages) {
        variables.set("next", page.page + 1);
    }
}

} // namespace

void ContactsPage::SearchText::set(std::string_view text) {
    std::lock_guard<std::mutex> guard(m_lock);
    m_text = kit::shortened(text, kMaxSearchBytes);
}

std::string ContactsPage::SearchText::get() const {
    std::lock_guard<std::mutex> guard(m_lock);
    return m_text;
}

ContactsPage::ContactsPage(Phone& phone) : ActionsPage(phone) {
    m_actions.show(&ContactsPage::showAll);
    m_actions.on("search", &ContactsPage::search);
    m_actions.on("add", &ContactsPage::add);
    m_actions.on("remove", &ContactsPage::remove);
    m_actions.onGet("all", &ContactsPage::forgetSearch);
    m_actions.onGet("export", &ContactsPage::sendCsv);
}

void ContactsPage::showAll(kit::Request& request, kit::Response& response,
                           const kit::SignIn& signIn) {
    kit::Variables variables = frame(request, signIn);
    addFlash(request, variables);
    showList(request, response, std::move(variables));
}

void ContactsPage::sendCsv(kit::Request&, kit::Response& response, const kit::SignIn&) {
    response.download("contacts.csv", "text/csv; charset=utf-8",
                      contactsCsv(m_phone.device.state()->directory));
}

void ContactsPage::forgetSearch(kit::Request& request, kit::Response& response,
                                const kit::SignIn&) {
    if (HttpSession* session = request.session()) {
        m_searches.erase(*session);
    }
    response.seeOther("/servlet?p=contacts");
}

void ContactsPage::search(kit::Request& request, kit::Response& response, const kit::SignIn&) {
    if (HttpSession* session = request.session()) {
        m_searches.findOrCreate(*session)->set(request.parameter("search").value_or(""));
    }
    response.seeOther("/servlet?p=contacts");
}

void ContactsPage::remove(kit::Request& request, kit::Response& response,
                          const kit::SignIn& signIn) {
    bool found = false;
    const Outcome outcome = m_phone.device.change([&](State& state) {
        found = state.directory.remove(request.parameter("name").value_or(""));
        return Errors();
    });
    finish(request, response, signIn, outcome, found ? "contactRemoved" : "contactGone", {});
}

void ContactsPage::add(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) {
    const Values values = valuesSent(request, kContactFields);
    const Outcome outcome = m_phone.device.change([&](State& state) {
        return state.directory.add({valueOf(values, "name"), valueOf(values, "number")});
    });
    finish(request, response, signIn, outcome, "contactAdded", values);
}

void ContactsPage::finish(kit::Request& request, kit::Response& response, const kit::SignIn& signIn,
                          const Outcome& outcome, const char* message, const Values& values) {
    if (outcome.done()) {
        finishAt("/servlet?p=contacts", message, request, response);
        return;
    }
    kit::Variables variables = frame(request, signIn);
    addFailure(response, variables, outcome);
    addForm(variables, values, outcome.errors);
    showList(request, response, std::move(variables));
}

void ContactsPage::showList(kit::Request& request, kit::Response& response,
                            kit::Variables variables) const {
    HttpSession* session = request.session();
    const auto search = session ? m_searches.find(*session) : nullptr;
    const std::string text = search ? search->get() : "";
    const auto wanted = request.number<std::int64_t>("page", INT64_MIN, INT64_MAX).valueOr(1);
    const auto page = m_phone.device.state()->directory.search(text, wanted);
    variables.set("search", text).rows("contacts", page.rows, contactRow);
    addPaging(variables, page);
    show(request, response, "contacts.html", std::move(variables));
}

} // namespace phone
