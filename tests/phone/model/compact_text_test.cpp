#include "model/compact_text.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

using namespace std::string_literals;
using phone::CompactText;

TEST(CompactText, HasTheSizeOfAPointer) {
    EXPECT_EQ(sizeof(CompactText), sizeof(void*));
}

TEST(CompactText, KeepsAnyBytes) {
    for (const std::string& text : {""s, "a"s, "\0"s, "Ann\0Bob"s, std::string(70'000, 'x')}) {
        EXPECT_EQ(CompactText(text).str(), text);
        EXPECT_EQ(CompactText(text).empty(), text.empty());
    }
}

TEST(CompactText, IsAsEmptyWithoutATextAsWithAnEmptyOne) {
    EXPECT_TRUE(CompactText() == CompactText(""));
    EXPECT_EQ(CompactText().str(), "");
}

TEST(CompactText, IsComparedWhole) {
    EXPECT_FALSE(CompactText("Ann") == CompactText("Anna"));
    EXPECT_FALSE(CompactText("Ann\0a"s) == CompactText("Ann\0b"s));
}

TEST(CompactText, IsCopiedAndMovedAsAValue) {
    CompactText first("first");
    CompactText copy = first;
    first = CompactText("second");
    EXPECT_EQ(copy.str(), "first");
    CompactText& same = copy;
    copy = same;
    EXPECT_EQ(copy.str(), "first");
    const CompactText moved = std::move(copy);
    EXPECT_EQ(moved.str(), "first");
}

} // namespace
