#include "model/directory.h"

#include "base/ascii.h"
#include "model/contact_search.h"
#include "model/field_reader.h"
#include "model/trimmed.h"

#include <algorithm>
#include <cassert>
#include <iterator>

namespace phone {
namespace {

// One contact of a list that sections arrange.
struct Found {
    char section;
    const Contact* contact;
};

bool isListedBefore(const Found& left, const Found& right) {
    return placeOfSection(left.section) < placeOfSection(right.section);
}

long pageOf(std::size_t index) {
    return static_cast<long>(index / Directory::kPageSize) + 1;
}

std::optional<FieldError> checkNumber(const char* field, std::string_view number) {
    if (auto error = checkText(field, number, 0, 32)) {
        return error;
    }
    const bool allowed = number.find_first_not_of("0123456789+*#()- ") == std::string_view::npos;
    const bool hasDigit = std::any_of(number.begin(), number.end(), base::isAsciiDigit);
    if (!number.empty() && (!allowed || !hasDigit)) {
        return FieldError{field, ErrorCode::badCharacters, std::nullopt};
    }
    return std::nullopt;
}

[[maybe_unused]] bool isChecked(Contact contact) {
    return checkContact(contact).empty();
}

} // namespace

bool operator==(const Contact& left, const Contact& right) {
    return std::all_of(
        std::begin(kContactFields), std::end(kContactFields),
        [&](const ContactField& field) { return left.*field.text == right.*field.text; });
}

std::vector<ContactField> numbersOf(const Contact& contact) {
    std::vector<ContactField> numbers;
    std::copy_if(std::begin(kContactFields) + 1, std::end(kContactFields),
                 std::back_inserter(numbers),
                 [&](const ContactField& field) { return !(contact.*field.text).empty(); });
    return numbers;
}

Errors checkContact(Contact& contact) {
    Errors errors;
    bool hasNumber = false;
    for (const ContactField& field : kContactFields) {
        CompactText& text = contact.*field.text;
        text = CompactText(trimmed(text));
        const bool isName = field.text == &Contact::name;
        hasNumber = hasNumber || (!isName && !text.empty());
        if (auto error = isName ? checkText("name", text, 1, 64) : checkNumber(field.name, text)) {
            errors.push_back(*error);
        }
    }
    if (!hasNumber) {
        errors.push_back({"number", ErrorCode::required, std::nullopt});
    }
    return errors;
}

std::string keyOf(std::string_view name) {
    // FNV-1a, which needs no library.
    std::uint64_t hash = 0xCBF29CE484222325;
    for (const char character : name) {
        hash = (hash ^ static_cast<unsigned char>(character)) * 0x100000001B3;
    }
    std::string key;
    for (int shift = 60; shift >= 0; shift -= 4) {
        key += "0123456789abcdef"[(hash >> shift) & 0xF];
    }
    return key;
}

std::vector<Contact>::const_iterator Directory::placeOf(std::string_view name) const {
    return std::lower_bound(m_contacts.begin(), m_contacts.end(), name,
                            [](const Contact& contact, std::string_view other) {
                                return sortsBefore(contact.name, other);
                            });
}

const Contact* Directory::find(std::string_view name) const {
    const auto place = placeOf(name);
    return place != m_contacts.end() && place->name == name ? &*place : nullptr;
}

const Contact* Directory::findByKey(std::string_view key) const {
    const auto place =
        std::find_if(m_contacts.begin(), m_contacts.end(),
                     [key](const Contact& contact) { return keyOf(contact.name) == key; });
    return place != m_contacts.end() ? &*place : nullptr;
}

Directory::Page Directory::search(const Query& query) const {
    ContactSearch search(query.text);
    std::vector<Found> found;
    for (const Contact& contact : m_contacts) {
        if (search.matches(contact)) {
            found.push_back({sectionOf(contact.name, query.chinese), &contact});
        }
    }
    std::stable_sort(found.begin(), found.end(), isListedBefore);
    Page result;
    result.total = found.size();
    result.pages = found.empty() ? 1 : pageOf(found.size() - 1);
    std::int64_t wanted = query.page;
    char section = '\0';
    for (std::size_t i = 0; i < found.size(); ++i) {
        if (found[i].section != section) {
            section = found[i].section;
            result.sections.push_back({section, pageOf(i), found[i].contact->name.str()});
        }
        if (!query.name.empty() && found[i].contact->name == query.name) {
            wanted = pageOf(i);
        }
    }
    result.page = static_cast<long>(std::clamp<std::int64_t>(wanted, 1, result.pages));
    const std::size_t begin = static_cast<std::size_t>(result.page - 1) * kPageSize;
    const std::size_t end = std::min(begin + kPageSize, found.size());
    for (std::size_t i = begin; i < end; ++i) {
        result.rows.push_back(*found[i].contact);
    }
    return result;
}

Errors Directory::add(Contact contact) {
    Errors errors = checkContact(contact);
    if (errors.empty() && find(contact.name) != nullptr) {
        errors.push_back({"name", ErrorCode::duplicate, std::nullopt});
    }
    if (errors.empty() && !put(std::move(contact))) {
        errors.push_back({"name", ErrorCode::tooMany, kMaxContacts});
    }
    return errors;
}

Errors Directory::replace(std::string_view name, Contact contact) {
    assert(find(name) && "the contact must exist");
    Errors errors = checkContact(contact);
    if (errors.empty() && contact.name != name && find(contact.name) != nullptr) {
        errors.push_back({"name", ErrorCode::duplicate, std::nullopt});
    }
    if (errors.empty()) {
        remove(name);
        put(std::move(contact));
    }
    return errors;
}

bool Directory::put(Contact contact) {
    assert(isChecked(contact) && "the contact must have passed checkContact()");
    const auto place = placeOf(contact.name);
    if (place != m_contacts.end() && place->name == contact.name) {
        m_contacts[static_cast<std::size_t>(place - m_contacts.begin())] = std::move(contact);
        return true;
    }
    if (m_contacts.size() >= kMaxContacts) {
        return false;
    }
    m_contacts.insert(place, std::move(contact));
    return true;
}

bool Directory::remove(std::string_view name) {
    const auto place = placeOf(name);
    if (place == m_contacts.end() || place->name != name) {
        return false;
    }
    m_contacts.erase(place);
    return true;
}

} // namespace phone
