// Reads contacts from arbitrary bytes: each file is planned like the model, carried out as planned,
// and what is written afterwards is read again.
#include "contacts_model.h"
#include "fuzz.h"
#include "utf8_model.h"

#include "model/contacts_csv.h"
#include "model/contacts_csv_columns.h"

#include <algorithm>

namespace {

using fuzz::Contacts;
using fuzz::require;
using phone::Directory;
using phone::ImportPlan;

Directory fewContacts() {
    Directory directory;
    for (const char* name : {"Anna", "Bob", "=1+2", "''@x"})
        directory.add({name, "100"});
    return directory;
}

// A directory with room for one more contact.
Directory nearlyFull() {
    Directory directory = fewContacts();
    for (int i = 0; directory.contacts().size() + 1 < Directory::kMaxContacts; ++i)
        directory.add({"Contact " + std::to_string(i), "1"});
    return directory;
}

fuzz::Numbers numbersIn(const phone::Contact& contact) {
    return {contact.number.str(), contact.mobile.str(), contact.home.str()};
}

Contacts contactsOf(const Directory& directory) {
    Contacts contacts;
    for (const phone::Contact& contact : directory.contacts())
        contacts[contact.name.str()] = numbersIn(contact);
    return contacts;
}

void requireShown(const std::string& text) {
    require(fuzz::isUtf8Text(text) && text.size() <= ImportPlan::kMaxRefusedText,
            "the text of a refused row is short and UTF-8");
    const bool isPlain = std::none_of(text.begin(), text.end(), [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return byte < 0x20 || byte == 0x7F;
    });
    require(isPlain, "the text of a refused row has no control character");
}

void requireRefused(const ImportPlan& plan, const std::vector<std::string>& expected) {
    require(plan.refusedCount == expected.size(), "the refused rows are counted");
    require(plan.refused.size() == std::min(expected.size(), ImportPlan::kMaxRefusedRows),
            "the first refused rows are reported");
    for (std::size_t i = 0; i < plan.refused.size(); ++i) {
        const ImportPlan::Refused& row = plan.refused[i];
        require(std::to_string(row.line) + " " + row.error.field + " " + nameOf(row.error.code) ==
                    expected[i],
                "a row is refused like in the model");
        requireShown(row.text);
    }
}

void requirePlan(const ImportPlan& plan, const fuzz::ImportModel& expected,
                 const Contacts& present) {
    requireRefused(plan, expected.refused);
    Contacts added;
    for (const phone::Contact& contact : plan.added)
        added[contact.name.str()] = numbersIn(contact);
    require(added == expected.added && plan.added.size() == added.size(),
            "contacts are added like in the model");
    Contacts changed;
    for (const ImportPlan::Change& change : plan.changed) {
        changed[change.now.name.str()] = numbersIn(change.now);
        require(present.at(change.now.name.str()) == numbersIn(change.old),
                "a change names the old numbers");
    }
    require(changed == expected.changed && plan.changed.size() == changed.size(),
            "numbers are changed like in the model");
    require(plan.unchanged == expected.unchanged, "the other rows are counted");
}

void requireRoundTrip(const Directory& directory) {
    const std::string written = contactsCsv(directory);
    const ImportPlan again = planImport(written, directory);
    require(again.unchanged == directory.contacts().size() && again.added.empty() &&
                again.changed.empty() && again.refusedCount == 0,
            "what is written is read again");
    for (const char* formula : {"\n=", "\n+", "\n-", "\n@", "\n\"=", "\n\"+", "\n\"-", "\n\"@"})
        require(written.find(formula) == std::string::npos, "no name is written as a formula");
}

// Plans the import of `text`, and carries the plan out.
void requireImport(const std::string& text, const Directory& present, const Contacts& before) {
    const ImportPlan plan = planImport(text, present);
    require(plan.tooLarge == (text.size() > phone::kMaxCsvBytes), "a large file is refused");
    if (plan.tooLarge)
        return requirePlan(plan, {}, {});
    const phone::CsvLayout layout =
        phone::csvLayout(text.substr(text.substr(0, 3) == "\xEF\xBB\xBF" ? 3 : 0));
    const auto& [name, number, mobile, home] = layout.columns;
    require(name < phone::kNoColumn || layout.titles.size() < 2, "a name has a column");
    const fuzz::ImportModel expected =
        fuzz::importOf(text, {layout.delimiter, layout.hasHeader, name, {number, mobile, home}},
                       before, Directory::kMaxContacts);
    requirePlan(plan, expected, before);

    Directory directory = present;
    require(applyImport(plan, directory).empty(), "a plan can be carried out");
    require(directory.contacts().size() == before.size() + expected.added.size(),
            "all contacts are added");
    if (before.size() > 100)
        return; // the rest would take long
    Contacts after = before;
    for (const Contacts* contacts : {&expected.added, &expected.changed})
        for (const auto& [name, number] : *contacts)
            after[name] = number;
    require(contactsOf(directory) == after, "a plan is carried out");
    requireRoundTrip(directory);
}

} // namespace

// One byte for the directory: "f" for one that is nearly full; then the file, with a byte 1 for
// 4 KiB.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Directory few = fewContacts();
    static const Directory full = nearlyFull();
    static const Contacts contactsOfFew = contactsOf(few);
    static const Contacts contactsOfFull = contactsOf(full);
    fuzz::Input input(data, size);
    const bool isFull = input.byte() == 'f';
    requireImport(fuzz::stretched(input.rest()), isFull ? full : few,
                  isFull ? contactsOfFull : contactsOfFew);
    return 0;
}
