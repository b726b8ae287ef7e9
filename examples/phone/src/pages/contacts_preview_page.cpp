#include "pages/contacts_preview_page.h"

#include "kit/upload.h"
#include "language.h"
#include "model/csv_text.h"
#include "visit.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <vector>

namespace phone {
namespace {

constexpr std::size_t kRowsPerPage = 50;

// Adds the numbers of a contact as rows with their kind.
void addNumbers(kit::Variables& row, const char* name, const Contact& contact) {
    row.rows(name, numbersOf(contact), [&](const ContactField& field) {
        return kit::Variables().set("kind", field.name).set("number", contact.*field.text);
    });
}

kit::Variables addedRow(const Contact& contact) {
    kit::Variables row;
    row.set("name", contact.name);
    addNumbers(row, "numbers", contact);
    return row;
}

kit::Variables changedRow(const ImportPlan::Change& change) {
    kit::Variables row;
    row.set("name", change.now.name);
    addNumbers(row, "before", change.old);
    addNumbers(row, "numbers", change.now);
    return row;
}

// Returns the code of the message for a row: for a line as a whole, badCharacters means that it
// could not be split into columns.
const char* messageCodeOf(const FieldError& error) {
    const bool isLine = error.field == "line" && error.code == ErrorCode::badCharacters;
    return isLine ? "badLine" : nameOf(error.code);
}

kit::Variables refusedRow(const ImportPlan::Refused& refused) {
    kit::Variables row;
    row.set("line", refused.line)
        .set("text", refused.text)
        .set("field", refused.error.field)
        .set("code", messageCodeOf(refused.error));
    if (refused.error.limit) {
        row.set("limit", *refused.error.limit);
    }
    return row;
}

// Shows one page of several lists, which follow each other.
class Pages {
public:
    Pages(kit::Variables& variables, std::int64_t page) : m_variables(variables), m_page(page) {}

    template <typename Elements, typename MakeRow>
    void add(const char* name, const Elements& elements, MakeRow row) {
        const auto first = static_cast<std::size_t>(m_page - 1) * kRowsPerPage;
        const std::size_t last = first + kRowsPerPage;
        const auto inList = [&](std::size_t place) {
            return std::min(place - std::min(place, m_rows), elements.size());
        };
        const std::vector<typename Elements::value_type> shown(elements.begin() + inList(first),
                                                               elements.begin() + inList(last));
        if (!shown.empty()) {
            m_variables.rows(name, shown, row);
        }
        m_rows += elements.size();
    }

private:
    kit::Variables& m_variables;
    std::int64_t m_page;
    std::size_t m_rows = 0; // of the lists before
};

// The choice of a column for each field of a contact.
void addColumns(kit::Variables& variables, const ImportPlan& plan) {
    for (std::size_t i = 0; i < std::size(kContactFields); ++i) {
        std::size_t column = 0;
        variables.rows((std::string(kContactFields[i].name) + "Columns").c_str(), plan.titles,
                       [&](const std::string& title) {
                           kit::Variables choice;
                           choice.set("column", column)
                               .set("columnNumber", column + 1)
                               .set("title", title)
                               .set("isChosen", column == plan.columns[i]);
                           ++column;
                           return choice;
                       });
    }
}

void addPlan(kit::Variables& variables, const ImportPlan& plan, std::int64_t wanted) {
    const std::size_t rows = plan.refused.size() + plan.changed.size() + plan.added.size();
    const auto pages =
        static_cast<std::int64_t>(rows == 0 ? 1 : (rows + kRowsPerPage - 1) / kRowsPerPage);
    const std::int64_t page = std::clamp<std::int64_t>(wanted, 1, pages);
    variables.set("preview", true)
        .set("addedCount", plan.added.size())
        .set("changedCount", plan.changed.size())
        .set("unchangedCount", plan.unchanged)
        .set("refusedCount", plan.refusedCount)
        .set("canApply", !plan.added.empty() || !plan.changed.empty());
    addColumns(variables, plan);
    Pages lists(variables, page);
    lists.add("refused", plan.refused, refusedRow);
    lists.add("changed", plan.changed, changedRow);
    lists.add("added", plan.added, addedRow);
    if (pages > 1) {
        variables.set("pages", pages).set("pageNumber", page);
    }
    if (page > 1) {
        variables.set("previous", page - 1);
    }
    if (page < pages) {
        variables.set("next", page + 1);
    }
}

std::int64_t pageIn(kit::Request& request) {
    return request.number<std::int64_t>("page", 1, INT32_MAX).valueOr(1);
}

} // namespace

ContactsPreviewPage::ContactsPreviewPage(Phone& phone) : ActionsPage(phone) {
    m_actions.show(&ContactsPreviewPage::showPreview);
    m_actions.onUpload("preview", &ContactsPreviewPage::preview);
    m_actions.on("columns", &ContactsPreviewPage::chooseColumns);
    m_actions.on("apply", &ContactsPreviewPage::import);
}

void ContactsPreviewPage::drop() {
    m_previews.eraseIf([](const Preview& preview) { return preview.owner == visitor; });
}

std::shared_ptr<ContactsPreviewPage::Preview>
ContactsPreviewPage::heldFor(kit::Request& request) const {
    HttpSession* session = request.session();
    return session ? m_previews.find(*session) : nullptr;
}

void ContactsPreviewPage::forget(kit::Request& request) {
    if (HttpSession* session = request.session()) {
        m_previews.erase(*session);
    }
}

void ContactsPreviewPage::showPreview(kit::Request& request, kit::Response& response,
                                      const kit::SignIn& signIn) {
    kit::Variables variables = frame(request, signIn);
    if (const auto held = heldFor(request)) {
        addPlan(variables, *held->plan, pageIn(request));
    }
    show(request, response, "contacts-preview.html", std::move(variables));
}

void ContactsPreviewPage::preview(kit::Request& request, kit::Response& response,
                                  const kit::SignIn& signIn) {
    Preview preview{&signIn, nullptr, nullptr};
    const char* fault = "busy";
    if (const std::unique_lock<std::mutex> receiving(m_phone.receiving, std::try_to_lock);
        receiving) {
        const auto file = kit::readUpload(request, "contacts", kMaxCsvBytes);
        // The token may be a field of the upload, so check it once that was received.
        if (!mayChange(request, response, signIn)) {
            return;
        }
        forget(request);
        fault = file.problem() == kit::Problem::TooLong ? "tooLarge" : "empty";
        if (file) {
            const std::string text = csvText(*file, languageOf(request) == "zh");
            const ImportPlan plan = planImport(text, m_phone.device.state()->directory);
            const bool isNone = isBinary(text) || plan.titles.size() < 2;
            fault = plan.tooLarge ? "tooLarge" : isNone ? "noList" : nullptr;
            preview.text = std::make_shared<const std::string>(text);
            preview.plan = std::make_shared<const ImportPlan>(plan);
        }
    }
    if (!fault) {
        keep(request, std::move(preview));
        response.seeOther("/servlet?p=contacts-preview");
        return;
    }
    response.status(422);
    show(request, response, "contacts-preview.html",
         std::move(frame(request, signIn).set("result", fault)));
}

void ContactsPreviewPage::keep(kit::Request& request, Preview preview) {
    if (HttpSession* session = request.session()) {
        m_previews.erase(*session);
        m_previews.put(*session, std::make_shared<Preview>(std::move(preview)));
    }
}

void ContactsPreviewPage::chooseColumns(kit::Request& request, kit::Response& response,
                                        const kit::SignIn& signIn) {
    const auto held = heldFor(request);
    if (!held) {
        showGone(request, response, signIn);
        return;
    }
    CsvColumns columns;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        columns[i] = request.number<std::size_t>(kContactFields[i].name, 0, kNoColumn - 1)
                         .valueOr(kNoColumn);
    }
    keep(request, {&signIn, held->text,
                   std::make_shared<const ImportPlan>(
                       planImport(*held->text, m_phone.device.state()->directory, columns))});
    response.seeOther("/servlet?p=contacts-preview");
}

void ContactsPreviewPage::showGone(kit::Request& request, kit::Response& response,
                                   const kit::SignIn& signIn) {
    response.status(409);
    show(request, response, "contacts-preview.html",
         std::move(frame(request, signIn).set("result", "gone")));
}

void ContactsPreviewPage::import(kit::Request& request, kit::Response& response,
                                 const kit::SignIn& signIn) {
    const auto held = heldFor(request);
    if (!held) {
        showGone(request, response, signIn);
        return;
    }
    kit::Variables variables = frame(request, signIn);
    const Outcome outcome = m_phone.device.change(
        [&](State& state) { return applyImport(*held->plan, state.directory); });
    if (outcome.done()) {
        forget(request);
        finishAt("/servlet?p=contacts", "contactsImported", request, response);
        return;
    }
    addFailure(response, variables, outcome);
    variables.set("result", outcome.saveFailed ? "notSaved" : "tooMany");
    addPlan(variables, *held->plan, pageIn(request));
    show(request, response, "contacts-preview.html", std::move(variables));
}

} // namespace phone
