#include "model/directory.h"

#include "base/ascii.h"
#include "model/field_reader.h"
#include "model/trimmed.h"

#include <algorithm>
#include <cassert>

namespace phone {
namespace {

bool before(char left, char right) {
    return static_cast<unsigned char>(base::asciiLower(left)) <
           static_cast<unsigned char>(base::asciiLower(right));
}

bool sortsBefore(std::string_view left, std::string_view right) {
    if (std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                     before)) {
        return true;
    }
    if (std::lexicographical_compare(right.begin(), right.end(), left.begin(), left.end(),
                                     before)) {
        return false;
    }
    return left < right; // equal except for case
}

bool contains(std::string_view text, std::string_view part) {
    return std::search(text.begin(), text.end(), part.begin(), part.end(),
                       [](char left, char right) {
                           return base::asciiLower(left) == base::asciiLower(right);
                       }) != text.end() ||
           part.empty();
}

std::optional<FieldError> checkNumber(std::string_view number) {
    if (auto error = checkText("number", number, 1, 32)) {
        return error;
    }
    const bool allowed = number.find_first_not_of("0123456789+*#()- ") == std::string_view::npos;
    if (!allowed || std::none_of(number.begin(), number.end(), base::isAsciiDigit)) {
        return FieldError{"number", ErrorCode::badCharacters, std::nullopt};
    }
    return std::nullopt;
}

[[maybe_unused]] bool isChecked(Contact contact) {
    return checkContact(contact).empty();
}

} // namespace

Errors checkContact(Contact& contact) {
    contact.name = std::string(trimmed(contact.name));
    contact.number = std::string(trimmed(contact.number));
    Errors errors;
    if (auto error = checkText("name", contact.name, 1, 64)) {
        errors.push_back(*error);
    }
    if (auto error = checkNumber(contact.number)) {
        errors.push_back(*error);
    }
    return errors;
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

Directory::Page Directory::search(std::string_view text, std::int64_t page) const {
    std::vector<const Contact*> found;
    for (const Contact& contact : m_contacts) {
        if (contains(contact.name, text) || contains(contact.number, text)) {
            found.push_back(&contact);
        }
    }
    Page result{{}, found.size(), 1, 1};
    result.pages = std::max<long>(1, static_cast<long>((found.size() + kPageSize - 1) / kPageSize));
    result.page = static_cast<long>(std::clamp<std::int64_t>(page, 1, result.pages));
    const std::size_t begin = static_cast<std::size_t>(result.page - 1) * kPageSize;
    const std::size_t end = std::min(begin + kPageSize, found.size());
    for (std::size_t i = begin; i < end; ++i) {
        result.rows.push_back(*found[i]);
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

bool Directory::put(Contact contact) {
    assert(isChecked(contact) && "the contact must have passed checkContact()");
    const auto place = placeOf(contact.name);
    if (place != m_contacts.end() && place->name == contact.name) {
        m_contacts[static_cast<std::size_t>(place - m_contacts.begin())].number =
            std::move(contact.number);
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
