#include "kit/text.h"

#include <gtest/gtest.h>

TEST(Text, AcceptsWellFormedUtf8) {
    for (const char* text : {"", "a", "\xC2\x80", "\xC3\xA9", "\xDF\xBF", "\xE0\xA0\x80",
                             "\xE4\xB8\xAD", "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBF",
                             "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "M\xC3\xBCller"}) {
        EXPECT_TRUE(kit::isUtf8(text)) << text;
    }
}

TEST(Text, RejectsMalformedUtf8) {
    const char* const kWrong[] = {
        "\x80", // a continuation byte alone
        "\xC0\xAF",
        "\xC1\xBF",         // overlong: fits in one byte
        "\xC3",             // cut off
        "\xC3(",            // no continuation byte
        "\xE0\x9F\xBF",     // overlong: fits in two bytes
        "\xE4\xB8",         // cut off
        "\xED\xA0\x80",     // a UTF-16 surrogate
        "\xF0\x8F\xBF\xBF", // overlong: fits in three bytes
        "\xF4\x90\x80\x80", // beyond Unicode
        "\xF5\x80\x80\x80",
        "\xFE",
        "\xFF",
        "a\xFF z",
    };
    for (const char* text : kWrong) {
        EXPECT_FALSE(kit::isUtf8(text)) << text;
        EXPECT_FALSE(kit::isPlainLine(text)) << text;
    }
}

TEST(Text, AcceptsALineWithoutControlCharacters) {
    EXPECT_TRUE(kit::isPlainLine("Jos\xC3\xA9 <jose@example.com>"));
    EXPECT_TRUE(kit::isPlainLine("\xC2\xA0"));
    for (const char* text : {"\n", "a\rb", "a\tb", "\x01", "\x7F", "a\xC2\x80", "\xC2\x9F"}) {
        EXPECT_FALSE(kit::isPlainLine(text));
    }
    EXPECT_FALSE(kit::isPlainLine(std::string_view("a\0b", 3)));
}

TEST(Text, CountsCharactersNotBytes) {
    EXPECT_EQ(kit::characterCount(""), 0u);
    EXPECT_EQ(kit::characterCount("M\xC3\xBCller"), 6u);
    EXPECT_EQ(kit::characterCount("\xE4\xB8\xAD\xE6\x96\x87"), 2u);
    EXPECT_EQ(kit::characterCount("\xF0\x9F\x93\x9E"), 1u);
}

TEST(Text, IsShortenedBetweenTwoCharacters) {
    EXPECT_EQ(kit::shortened("M\xC3\xBCller", 7), "M\xC3\xBCller");
    EXPECT_EQ(kit::shortened("M\xC3\xBCller", 3), "M\xC3\xBC");
    EXPECT_EQ(kit::shortened("M\xC3\xBCller", 2), "M");
    EXPECT_EQ(kit::shortened("\xE4\xB8\xAD", 2), "");
    EXPECT_EQ(kit::shortened("abc", 0), "");
}
