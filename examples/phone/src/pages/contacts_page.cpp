#include "pages/contacts_page.h"

#include "language.h"
#include "model/contacts_csv.h"
#include "model/trimmed.h"

#include <algorithm>
#include <cstdint>

namespace phone {
namespace {

// Longer search texts are cut.
constexpr std::size_t kMaxSearchBytes = 128;

// Returned by a change to a contact that another user has removed or renamed, so that nothing is
// saved; no form shows it.
const Errors kGone{{"contact", ErrorCode::required, std::nullopt}};

const std::string kAddress = "/servlet?p=contacts";

// Returns the address that shows this contact, and moves to it in the page.
std::string addressOf(std::string_view name) {
    const std::string key = keyOf(name);
    return kAddress + "&at=" + key + "#c-" + key;
}

Values contactSent(kit::Request& request) {
    std::vector<const char*> names;
    for (const ContactField& field : kContactFields) {
        names.push_back(field.name);
    }
    return valuesSent(request, names);
}

Contact contactIn(const Values& values) {
    Contact contact;
    for (const ContactField& field : kContactFields) {
        contact.*field.text = valueOf(values, field.name);
    }
    return contact;
}

Values valuesOf(const Contact& contact) {
    Values values;
    for (const ContactField& field : kContactFields) {
        values[field.name] = contact.*field.text;
    }
    return values;
}

kit::Variables sectionRow(const Directory::Section& section) {
    return kit::Variables()
        .set("section", std::string(1, section.name))
        .set("sectionPage", section.page)
        .set("sectionKey", keyOf(section.first));
}

// The pages around this one, the first and the last; 0 stands for those left out in between.
std::vector<long> pageLinks(const Directory::Page& page) {
    std::vector<long> links;
    for (long number = 1; number <= page.pages; ++number) {
        const bool isShown =
            number == 1 || number == page.pages || std::abs(number - page.page) <= 1;
        if (isShown) {
            links.push_back(number);
        } else if (links.back() != 0) {
            links.push_back(0);
        }
    }
    return links;
}

void addPaging(kit::Variables& variables, const Directory::Page& page) {
    variables.set("contactCount", page.total).set("pageNumber", page.page);
    if (page.pages > 1) {
        variables.set("pages", page.pages)
            .rows("sections", page.sections, sectionRow)
            .rows("pageLinks", pageLinks(page), [&](long number) {
                kit::Variables link;
                link.set("isThis", number == page.page);
                return number == 0 ? std::move(link) : std::move(link.set("link", number));
            });
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
    m_actions.on("save", &ContactsPage::save);
    m_actions.on("remove", &ContactsPage::remove);
    m_actions.on("restore", &ContactsPage::restore);
    m_actions.onGet("all", &ContactsPage::forgetSearch);
    m_actions.onGet("export", &ContactsPage::sendCsv);
}

void ContactsPage::showAll(kit::Request& request, kit::Response& response,
                           const kit::SignIn& signIn) {
    kit::Variables variables = frame(request, signIn);
    addFlash(request, variables);
    const auto key = request.parameter("edit");
    const auto state = m_phone.device.state();
    if (const Contact* contact = key ? state->directory.findByKey(*key) : nullptr) {
        addForm(variables, valuesOf(*contact), {});
        variables.set("editKey", *key);
    }
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
    response.seeOther(kAddress);
}

void ContactsPage::search(kit::Request& request, kit::Response& response, const kit::SignIn&) {
    if (HttpSession* session = request.session()) {
        m_searches.findOrCreate(*session)->set(request.parameter("search").value_or(""));
    }
    response.seeOther(kAddress);
}

void ContactsPage::add(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) {
    const Values values = contactSent(request);
    std::string name;
    const Outcome outcome = m_phone.device.change([&](State& state) {
        Contact contact = contactIn(values);
        Errors errors = state.directory.add(contact);
        name = trimmed(contact.name);
        return errors;
    });
    if (outcome.done()) {
        finishAt(addressOf(name), "contactAdded", request, response);
    } else {
        showFailure(request, response, signIn, outcome, "adding", values);
    }
}

void ContactsPage::save(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) {
    const Values values = contactSent(request);
    const std::string key(request.parameter("edit").value_or(""));
    bool isGone = false;
    const Outcome outcome = m_phone.device.change([&](State& state) {
        const Contact* old = state.directory.findByKey(key);
        isGone = old == nullptr;
        return isGone ? kGone : state.directory.replace(std::string(old->name), contactIn(values));
    });
    if (isGone) {
        finishAt(kAddress, "contactGone", request, response);
    } else if (outcome.done()) {
        finishAt(addressOf(trimmed(valueOf(values, "name"))), "contactSaved", request, response);
    } else {
        showFailure(request, response, signIn, outcome, "editKey", values);
    }
}

void ContactsPage::remove(kit::Request& request, kit::Response& response,
                          const kit::SignIn& signIn) {
    const std::string name(request.parameter("name").value_or(""));
    const std::string address = addressBeside(request, name);
    std::optional<Contact> removed;
    const Outcome outcome = m_phone.device.change([&](State& state) {
        const Contact* contact = state.directory.find(name);
        if (contact == nullptr) {
            return kGone;
        }
        removed = *contact;
        state.directory.remove(name);
        return Errors();
    });
    HttpSession* session = request.session();
    if (!removed || !session) {
        finishAt(kAddress, "contactGone", request, response);
    } else if (outcome.done()) {
        m_removed.findOrCreate(*session)->set(*removed);
        response.seeOther(address);
    } else {
        showFailure(request, response, signIn, outcome, "removing", {});
    }
}

void ContactsPage::restore(kit::Request& request, kit::Response& response,
                           const kit::SignIn& signIn) {
    HttpSession* session = request.session();
    const auto held = session ? m_removed.find(*session) : nullptr;
    const std::optional<Contact> contact = held ? held->get() : std::nullopt;
    if (!contact) {
        finishAt(kAddress, "contactNotRestored", request, response);
        return;
    }
    const Outcome outcome =
        m_phone.device.change([&](State& state) { return state.directory.add(*contact); });
    if (outcome.saveFailed) {
        showFailure(request, response, signIn, outcome, "removing", {});
        return;
    }
    held->clear();
    // Meanwhile another user may have added a contact with that name, or filled the directory.
    const char* message = outcome.done() ? "contactRestored" : "contactNotRestored";
    finishAt(addressOf(contact->name), message, request, response);
}

// Shows a change that was rejected or not saved; `form` is the variable that opens its form.
void ContactsPage::showFailure(kit::Request& request, kit::Response& response,
                               const kit::SignIn& signIn, const Outcome& outcome, const char* form,
                               const Values& values) {
    kit::Variables variables = frame(request, signIn);
    addFailure(response, variables, outcome);
    addForm(variables, values, outcome.errors);
    variables.set(form, request.parameter("edit").value_or("1"));
    showList(request, response, std::move(variables));
}

// Returns the address of the page that the list is at, at the contact after this one.
std::string ContactsPage::addressBeside(kit::Request& request, std::string_view name) const {
    const Directory::Page page = listFor(request, m_phone.device.state()->directory, "");
    const auto row = std::find_if(page.rows.begin(), page.rows.end(),
                                  [name](const Contact& contact) { return contact.name == name; });
    std::string address = kAddress + "&page=" + std::to_string(page.page);
    if (row == page.rows.end() || page.rows.size() == 1) {
        return address;
    }
    const Contact& neighbour = row + 1 != page.rows.end() ? row[1] : row[-1];
    return address + "#c-" + keyOf(neighbour.name);
}

std::string ContactsPage::searchOf(kit::Request& request) const {
    HttpSession* session = request.session();
    const auto search = session ? m_searches.find(*session) : nullptr;
    return search ? search->get() : "";
}

// Returns the page with the contact `name`, or else the one that the request names.
Directory::Page ContactsPage::listFor(kit::Request& request, const Directory& directory,
                                      std::string_view name) const {
    Directory::Query query;
    query.text = searchOf(request);
    query.page = request.number<std::int64_t>("page", INT64_MIN, INT64_MAX).valueOr(1);
    query.name = name;
    if (languageOf(request) == "zh") {
        query.chinese = ChineseNames::underLetters;
    }
    return directory.search(query);
}

void ContactsPage::showList(kit::Request& request, kit::Response& response,
                            kit::Variables variables) const {
    const auto state = m_phone.device.state();
    const std::string edited(request.parameter("edit").value_or(""));
    const std::string at(request.parameter("at").value_or(edited));
    const Contact* wanted = at.empty() ? nullptr : state->directory.findByKey(at);
    const auto page = listFor(request, state->directory, wanted ? wanted->name : "");
    variables.set("search", searchOf(request)).rows("contacts", page.rows, [&](const Contact& row) {
        const std::string key = keyOf(row.name);
        kit::Variables contact;
        contact.set("contactName", row.name)
            .set("key", key)
            .set("isEdited", key == edited)
            .set("isWanted", key == at)
            .rows("numbers", numbersOf(row), [&](const ContactField& field) {
                return kit::Variables().set("kind", field.name).set("dialled", row.*field.text);
            });
        return contact;
    });
    addPaging(variables, page);
    HttpSession* session = request.session();
    const auto removed = session ? m_removed.find(*session) : nullptr;
    if (const auto contact = removed ? removed->get() : std::nullopt) {
        variables.set("removedName", contact->name).set("undoSeconds", RemovedContact::kSeconds);
    }
    show(request, response, "contacts.html", std::move(variables));
}

} // namespace phone
