// Finds contacts by parts of their names and numbers.
#ifndef MODEL_CONTACT_SEARCH_H
#define MODEL_CONTACT_SEARCH_H

#include <string>
#include <string_view>
#include <vector>

namespace phone {

struct Contact;

// Returns whether the text consists of digits, of which there is at least one, and of what numbers
// are written with: "+*#()-./" and spaces.
bool looksLikeNumber(std::string_view text);

// Returns the number as it is dialled: a leading "+", digits, "*" and "#". Leaves out the "(0)" of
// "+49 (0)30", and replaces a leading "00" before another digit by "+".
std::string dialledNumber(std::string_view number);

// What a user searches for. Each word must be part of the name, or of a number if it looks like
// one; a text that looks like a number as a whole must be part of a number as a whole. Case,
// accents and the format of numbers do not matter, and neither does a leading zero, which a number
// with a country code lacks.
class ContactSearch {
public:
    // `text` is untrusted.
    explicit ContactSearch(std::string_view text);

    // Not const, and not thread-safe: uses memory of this object again.
    bool matches(const Contact& contact);

private:
    struct Word {
        std::u32string oneLetter;
        std::u32string twoLetters; // see Umlauts
        std::string number;        // as it is dialled; empty if it does not look like a number
    };

    static Word wordOf(std::string_view text);
    bool isInName(const Word& word) const;

    std::vector<Word> m_words;
    std::string m_number; // of the whole text; empty if it does not look like a number
    std::u32string m_nameOneLetter;
    std::u32string m_nameTwoLetters;
};

} // namespace phone

#endif
