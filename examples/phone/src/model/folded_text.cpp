#include "model/folded_text.h"

#include "base/utf8.h"
#include "model/code_points.h"

namespace phone {
namespace {

// The letter that each character is without its accent, from the decompositions of Unicode. A
// capital stands for two letters, see pairOf(); "." for a character that stays as it is.
constexpr char32_t kLatinBegin = 0xC0;
constexpr std::string_view kLatin =
    "aaaaaaAceeeeiiiidnooooo.ouuuuyTSaaaaaaAceeeeiiiidnooooo.ouuuuyTy"
    "aaaaaaccccccccddddeeeeeeeeeegggggggghhhhiiiiiiiiiiIIjjkkklllllll"
    "lllnnnnnnnnnooooooOOrrrrrrssssssssttttttuuuuuuuuuuuuwwyyyzzzzzzs"
    "................................oo.............uu..............."
    "....dddlllnnnaaiioouuuuuuuuuu.aaaaAA..ggkkoooo..jdddgg..nnaaAAoo"
    "aaaaeeeeiiiioooorrrruuuusstt..hh......aaeeooooooooyy............"
    "................";
constexpr char32_t kLatinAdditionalBegin = 0x1E00;
constexpr std::string_view kLatinAdditional =
    "aabbbbbbccddddddddddeeeeeeeeeeffgghhhhhhhhhhiiiikkkkkkllllllllmm"
    "mmmmnnnnnnnnoooooooopppprrrrrrrrssssssssssttttttttuuuuuuuuuuvvvv"
    "wwwwwwwwwwxxxxyyzzzzzzhtwyas..S.aaaaaaaaaaaaaaaaaaaaaaaaeeeeeeee"
    "eeeeeeeeiiiioooooooooooooooooooooooouuuuuuuuuuuuuuyyyyyyyy......";
static_assert(kLatin.size() == 0x250 - kLatinBegin);
static_assert(kLatinAdditional.size() == 0x1F00 - kLatinAdditionalBegin);

constexpr std::u32string_view kGreekAccented = U"ΆΈΉΊΌΎΏ"
                                               U"άέήίόύώς";
constexpr std::u32string_view kGreekPlain = U"αεηιουω"
                                            U"αεηιουωσ";

struct Folded {
    char32_t first; // 0 if the character is left out
    char32_t second = 0;
};

Folded pairOf(char letter) {
    switch (letter) {
    case 'A':
        return {U'a', U'e'};
    case 'I':
        return {U'i', U'j'};
    case 'O':
        return {U'o', U'e'};
    case 'S':
        return {U's', U's'};
    default:
        return {U't', U'h'};
    }
}

// Returns the second letter for a keyboard without this lower-case or upper-case letter, or 0.
char32_t secondLetterOf(char32_t character) {
    switch (character) {
    case 0xC4: // Ä
    case 0xE4:
    case 0xD6: // Ö
    case 0xF6:
    case 0xDC: // Ü
    case 0xFC:
    case 0xD8: // Ø
    case 0xF8:
        return U'e';
    case 0xC5: // Å
    case 0xE5:
        return U'a';
    default:
        return 0;
    }
}

Folded latinOf(char32_t character, Umlauts umlauts) {
    const bool isAdditional = character >= kLatinAdditionalBegin;
    const char letter = isAdditional ? kLatinAdditional[character - kLatinAdditionalBegin]
                                     : kLatin[character - kLatinBegin];
    if (letter == '.') {
        return {character};
    }
    if (letter < 'a') {
        return pairOf(letter);
    }
    const bool isPair = umlauts == Umlauts::twoLetters;
    return {static_cast<char32_t>(letter), isPair ? secondLetterOf(character) : 0};
}

char32_t greekOf(char32_t character) {
    const auto accented = kGreekAccented.find(character);
    if (accented != std::u32string_view::npos) {
        return kGreekPlain[accented];
    }
    return isBetween(character, 0x391, 0x3A9) ? character + 0x20 : character;
}

char32_t cyrillicOf(char32_t character) {
    if (character == 0x401 || character == 0x451) {
        return 0x435; // Russian writes "ё" as "е" more often than not
    }
    if (isBetween(character, 0x400, 0x40F)) {
        return character + 0x50;
    }
    return isBetween(character, 0x410, 0x42F) ? character + 0x20 : character;
}

// Returns the character of a keyboard for typographic ones, as word processors write them.
char32_t plainOf(char32_t character) {
    if (character == 0xA0 || character == 0x3000) {
        return U' ';
    }
    if (character == 0x2018 || character == 0x2019) {
        return U'\'';
    }
    if (isBetween(character, 0x2010, 0x2015)) {
        return U'-';
    }
    return isBetween(character, 0xFF01, 0xFF5E) ? character - 0xFEE0 : character;
}

Folded foldedCharacter(char32_t character, Umlauts umlauts) {
    character = plainOf(character);
    if (isBetween(character, U'A', U'Z')) {
        return {character + (U'a' - U'A')};
    }
    if (character < kLatinBegin) {
        return {character};
    }
    if (isBetween(character, 0x300, 0x36F)) {
        return {0};
    }
    if (character < kLatinBegin + kLatin.size() ||
        isBetween(character, kLatinAdditionalBegin, 0x1EFF)) {
        return latinOf(character, umlauts);
    }
    return {isBetween(character, 0x400, 0x45F) ? cyrillicOf(character) : greekOf(character)};
}

} // namespace

// Takes the first character from the rest, which must not be empty.
char32_t FoldedReader::take() {
    const std::size_t length = base::utf8Length(m_rest);
    const auto lead = static_cast<unsigned char>(m_rest.front());
    char32_t character = length == 1 ? lead : lead & (0xFFu >> (length + 1));
    for (std::size_t i = 1; i < length; ++i) {
        character = (character << 6) | (static_cast<unsigned char>(m_rest[i]) & 0x3Fu);
    }
    m_rest.remove_prefix(length == 0 ? 1 : length);
    return length == 0 ? 0xFFFD : character;
}

char32_t FoldedReader::next() {
    if (m_second != 0) {
        const char32_t second = m_second;
        m_second = 0;
        return second;
    }
    while (!m_rest.empty()) {
        const Folded folded = foldedCharacter(take(), m_umlauts);
        if (folded.first != 0) {
            m_second = folded.second;
            return folded.first;
        }
    }
    return 0;
}

void fold(std::string_view text, Umlauts umlauts, std::u32string& folded) {
    folded.clear();
    FoldedReader reader(text, umlauts);
    while (const char32_t character = reader.next()) {
        folded += character;
    }
}

} // namespace phone
