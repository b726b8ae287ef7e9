#include "model/chinese_order.h"
#include "model/folded_text.h"
#include "model/name_order.h"

#include <gtest/gtest.h>
#include <iterator>

using namespace phone;

namespace {

std::u32string folded(std::string_view text, Umlauts umlauts = Umlauts::oneLetter) {
    std::u32string result = U"replaced";
    fold(text, umlauts, result);
    return result;
}

} // namespace

TEST(FoldedText, HasNeitherCaseNorAccentsNorWidth) {
    const struct {
        const char* text;
        const char32_t* folded;
    } cases[] = {
        {"", U""},
        {"AZ az 09 @[`{", U"az az 09 @[`{"},
        {"ÀÿĀžǍǰȀȳ", U"ayazajay"},
        {"ḀỹẞΆώЁѐӐ", U"ayssαωе\u0450\u04D0"},
        {"ÆœĲßÞð×÷", U"aeoeijssthd×÷"},
        {"A\xCC\x8A\xCD\xAFZ", U"az"},
        {"ＡＺ　ａｚ", U"az az"},
        {"a\xC2\xA0–‐’", U"a --'"},
        {"王\xF0\x9F\x98\x80", U"王\U0001F600"},
        {"a\xFFz\xC3", U"a\uFFFDz\uFFFD"},
    };
    for (const auto& test : cases) {
        EXPECT_TRUE(folded(test.text) == test.folded) << test.text;
    }
}

TEST(FoldedText, WritesUmlautsWithTwoLetters) {
    EXPECT_TRUE(folded("ÄÖÜäöü", Umlauts::twoLetters) == U"aeoeueaeoeue");
    EXPECT_TRUE(folded("ØøÅåéß", Umlauts::twoLetters) == U"oeoeaaaaess");
}

TEST(PinyinRank, SortsCharactersInDailyUse) {
    EXPECT_EQ(pinyinRank(U'啊'), 1);
    EXPECT_EQ(pinyinRank(U'座'), 3755);
    for (const char32_t unknown : {U'a', U'犇', U'㐀', U'\U00020000', static_cast<char32_t>(0)}) {
        EXPECT_EQ(pinyinRank(unknown), 0);
    }
    const struct {
        char32_t character;
        char letter;
    } cases[] = {{U'啊', 'A'}, {U'怖', 'B'}, {U'擦', 'C'}, {U'李', 'L'}, {U'王', 'W'},
                 {U'吴', 'W'}, {U'杨', 'Y'}, {U'张', 'Z'}, {U'座', 'Z'}};
    for (const auto& test : cases) {
        EXPECT_EQ(pinyinLetter(pinyinRank(test.character)), test.letter);
    }
}

TEST(NameOrder, IsThatOfADictionary) {
    const char* const names[] = {"",    " ",     "-",  "3M",   "[x]",    "a",      "A b",    "Ab",
                                 "ab",  "Äb",    "äb", "Abc",  "Muller", "Müller", "Mullet", "Zoë",
                                 "Ζωή", "Борис", "李", "王芳", "王强",   "张",     "犇"};
    for (auto left = std::begin(names); left != std::end(names); ++left) {
        for (auto right = std::begin(names); right != std::end(names); ++right) {
            EXPECT_EQ(sortsBefore(*left, *right), left < right) << *left << ", " << *right;
        }
    }
}

TEST(NameOrder, KnowsTheSectionOfEachName) {
    const struct {
        const char* name;
        char last;
        char underLetters;
    } cases[] = {
        {"", '#', '#'},    {"3M", '#', '#'},         {"'n Sync", '#', '#'}, {"Änne", 'A', 'A'},
        {"zoe", 'Z', 'Z'}, {"Борис", '*', '*'},      {"王芳", '=', 'W'},    {"犇", '=', '*'},
        {"㐀", '*', '*'},  {"\U0001F600", '*', '*'},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(sectionOf(test.name, ChineseNames::last), test.last) << test.name;
        EXPECT_EQ(sectionOf(test.name, ChineseNames::underLetters), test.underLetters) << test.name;
    }
}
