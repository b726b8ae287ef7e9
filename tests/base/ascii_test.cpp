#include "base/ascii.h"

#include <gtest/gtest.h>

TEST(Ascii, LowersAsciiLettersOnly) {
    EXPECT_EQ(base::asciiLower('A'), 'a');
    EXPECT_EQ(base::asciiLower('Z'), 'z');
    for (const char other : {'@', '[', '`', '{', '0', '\xC4', '\0'})
        EXPECT_EQ(base::asciiLower(other), other);
}

TEST(Ascii, RaisesAsciiLettersOnly) {
    EXPECT_EQ(base::asciiUpper('a'), 'A');
    EXPECT_EQ(base::asciiUpper('z'), 'Z');
    for (const char other : {'@', '[', '`', '{', '0', '\xE4', '\0'})
        EXPECT_EQ(base::asciiUpper(other), other);
}

TEST(Ascii, DistinguishesDigitsAndLettersFromTheirNeighbours) {
    for (const char digit : {'0', '9'})
        EXPECT_TRUE(base::isAsciiDigit(digit));
    for (const char other : {'/', ':', 'a', '\xB2'})
        EXPECT_FALSE(base::isAsciiDigit(other));
    for (const char letter : {'a', 'z', 'A', 'Z'})
        EXPECT_TRUE(base::isAsciiLetter(letter));
    for (const char other : {'@', '[', '`', '{', '5', '\xE4'})
        EXPECT_FALSE(base::isAsciiLetter(other));
}

TEST(Ascii, ComparesIgnoringTheCaseOfAsciiLetters) {
    EXPECT_TRUE(base::equalsIgnoringCase("", ""));
    EXPECT_TRUE(base::equalsIgnoringCase("Content-Type", "cONTENT-tYPE"));
    EXPECT_FALSE(base::equalsIgnoringCase("Content-Type", "Content-Typ"));
    EXPECT_FALSE(base::equalsIgnoringCase("Content", "Content-Type"));
    EXPECT_FALSE(base::equalsIgnoringCase("\xC3\x84", "\xC3\xA4")); // Ä and ä
    EXPECT_FALSE(base::equalsIgnoringCase("@", "`"));
}
