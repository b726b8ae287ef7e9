#include "base/short_text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr std::size_t kLongest = 40; // longer than what is copied without memcpy(3)

// Text of `size` different characters.
std::string textOf(std::size_t size) {
    std::string text;
    while (text.size() < size)
        text += static_cast<char>('A' + text.size());
    return text;
}

} // namespace

TEST(CopyingAShortText, WritesAllOfItAndNothingElse) {
    for (std::size_t size = 0; size <= kLongest; ++size) {
        const std::string text = textOf(size);
        std::string to(size + 2, '.');
        EXPECT_EQ(&to[1 + size], base::copyShort(&to[1], text));
        EXPECT_EQ("." + text + ".", to);
    }
}

TEST(ComparingShortTexts, FindsEachDifference) {
    for (std::size_t size = 0; size <= kLongest; ++size) {
        const std::string text = textOf(size);
        EXPECT_TRUE(base::equalShort(text, std::string(text)));
        EXPECT_FALSE(base::equalShort(text, text + "x"));
        EXPECT_FALSE(base::equalShort(text + "x", text));
        for (std::size_t i = 0; i < size; ++i) {
            std::string other = text;
            other[i] = '.';
            EXPECT_FALSE(base::equalShort(text, other)) << text << ' ' << i;
        }
    }
}

TEST(StartingWith, ComparesUpToTheEndOfThePrefix) {
    for (std::size_t size = 0; size <= kLongest; ++size) {
        const std::string prefix = textOf(size);
        EXPECT_TRUE(base::startsWith(prefix.c_str(), prefix));
        EXPECT_TRUE(base::startsWith((prefix + "x").c_str(), prefix));
        EXPECT_FALSE(base::startsWith(prefix.c_str(), prefix + "x"));
        for (std::size_t i = 0; i < size; ++i) {
            std::string other = prefix;
            other[i] = '.';
            EXPECT_FALSE(base::startsWith(other.c_str(), prefix)) << prefix << ' ' << i;
        }
    }
}
