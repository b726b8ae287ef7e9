#include "base/name_key.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

using base::nameKey;

TEST(NameKey, IsTheSameForEqualNames) {
    for (const std::string name : {"", "a", "ab", "abc", "abcd", "abcde", "a longer name"}) {
        const std::string before = "before" + name;
        EXPECT_EQ(nameKey(name), nameKey(std::string_view(before).substr(6))) << name;
    }
}

TEST(NameKey, DiffersForNumberedNames) {
    std::set<std::uint32_t> keys;
    for (int i = 0; i < 1000; ++i)
        keys.insert(nameKey("field" + std::to_string(i)));
    EXPECT_EQ(1000u, keys.size());
}

TEST(NameKey, DiffersForNamesOfAFewCharacters) {
    const std::set<std::uint32_t> keys = {nameKey("a"),  nameKey("b"),    nameKey("aa"),
                                          nameKey("ab"), nameKey("name"), nameKey("date")};
    EXPECT_EQ(6u, keys.size());
}
