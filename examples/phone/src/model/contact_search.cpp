#include "model/contact_search.h"

#include "base/ascii.h"
#include "model/directory.h"
#include "model/folded_text.h"

#include <algorithm>

namespace phone {
namespace {

bool isPartOf(const std::string& dialled, std::string_view number) {
    const std::string whole = dialledNumber(number);
    if (whole.find(dialled) != std::string::npos) {
        return true;
    }
    const std::size_t digits = dialled.find_first_not_of("0+");
    return dialled.front() == '0' && digits != std::string::npos &&
           whole.find(dialled.substr(digits)) != std::string::npos;
}

bool isInNumbers(const std::string& dialled, const Contact& contact) {
    return !dialled.empty() &&
           (isPartOf(dialled, contact.number) || isPartOf(dialled, contact.mobile) ||
            isPartOf(dialled, contact.home));
}

} // namespace

bool looksLikeNumber(std::string_view text) {
    return text.find_first_not_of("0123456789+*#()-./ ") == std::string_view::npos &&
           std::any_of(text.begin(), text.end(), base::isAsciiDigit);
}

std::string dialledNumber(std::string_view number) {
    std::string dialled;
    for (std::size_t i = 0; i < number.size(); ++i) {
        const char character = number[i];
        if (number.substr(i, 3) == "(0)" && !dialled.empty()) {
            i += 2;
        } else if (base::isAsciiDigit(character) || character == '*' || character == '#' ||
                   (character == '+' && dialled.empty())) {
            dialled += character;
        }
    }
    if (dialled.size() > 2 && dialled.compare(0, 2, "00") == 0 && dialled[2] > '0') {
        dialled.replace(0, 2, "+");
    }
    return dialled;
}

ContactSearch::Word ContactSearch::wordOf(std::string_view text) {
    Word word;
    fold(text, Umlauts::oneLetter, word.oneLetter);
    fold(text, Umlauts::twoLetters, word.twoLetters);
    if (looksLikeNumber(text)) {
        word.number = dialledNumber(text);
    }
    return word;
}

ContactSearch::ContactSearch(std::string_view text) {
    if (looksLikeNumber(text)) {
        m_number = dialledNumber(text);
    }
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(' '), text.size());
        if (end > 0) {
            m_words.push_back(wordOf(text.substr(0, end)));
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

bool ContactSearch::isInName(const Word& word) const {
    return m_nameOneLetter.find(word.oneLetter) != std::u32string::npos ||
           m_nameTwoLetters.find(word.twoLetters) != std::u32string::npos;
}

bool ContactSearch::matches(const Contact& contact) {
    if (m_words.empty()) {
        return true;
    }
    fold(contact.name, Umlauts::oneLetter, m_nameOneLetter);
    fold(contact.name, Umlauts::twoLetters, m_nameTwoLetters);
    const bool isNumber = !m_number.empty();
    return isInNumbers(m_number, contact) ||
           std::all_of(m_words.begin(), m_words.end(), [&](const Word& word) {
               return isInName(word) || (!isNumber && isInNumbers(word.number, contact));
           });
}

} // namespace phone
