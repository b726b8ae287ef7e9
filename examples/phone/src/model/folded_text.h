// Text as a search sees it: without case, accents and the width of East Asian letters. A device
// needs neither a locale nor a Unicode library for it.
#ifndef MODEL_FOLDED_TEXT_H
#define MODEL_FOLDED_TEXT_H

#include <string>
#include <string_view>

namespace phone {

// How ä, ö, ü, å and ø are folded. German, Swedish and Danish write them with two letters where a
// keyboard lacks them: "Mueller" is found as "Müller", and so is "Muller".
enum class Umlauts { oneLetter, twoLetters };

// Folds the characters of `text` one by one. Bytes that are not UTF-8 become U+FFFD.
class FoldedReader {
public:
    // `text` must outlive the reader.
    explicit FoldedReader(std::string_view text, Umlauts umlauts = Umlauts::oneLetter)
        : m_rest(text), m_umlauts(umlauts) {}

    // Returns the next folded character, or 0 at the end of the text. Combining accents are left
    // out; "ß", "æ" and the like become two letters.
    char32_t next();

private:
    char32_t take();

    std::string_view m_rest;
    Umlauts m_umlauts;
    char32_t m_second = 0; // the second letter of the character read last
};

// Replaces `folded` by the folded `text`, so that its memory is used again.
void fold(std::string_view text, Umlauts umlauts, std::u32string& folded);

} // namespace phone

#endif
