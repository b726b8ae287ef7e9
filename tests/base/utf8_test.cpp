#include "base/utf8.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string encoded(unsigned long code) {
    const auto byte = [](unsigned long bits) { return static_cast<char>(bits); };
    if (code < 0x80)
        return {byte(code)};
    if (code < 0x800)
        return {byte(0xC0 | code >> 6), byte(0x80 | (code & 0x3F))};
    if (code < 0x10000)
        return {byte(0xE0 | code >> 12), byte(0x80 | (code >> 6 & 0x3F)),
                byte(0x80 | (code & 0x3F))};
    return {byte(0xF0 | code >> 18), byte(0x80 | (code >> 12 & 0x3F)),
            byte(0x80 | (code >> 6 & 0x3F)), byte(0x80 | (code & 0x3F))};
}

TEST(Utf8, AcceptsEveryCharacterButSurrogates) {
    for (unsigned long code = 0; code <= 0x10FFFF; ++code) {
        const std::string text = encoded(code) + "x";
        const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
        ASSERT_EQ(base::utf8Length(text), surrogate ? 0 : text.size() - 1) << std::hex << code;
        ASSERT_EQ(base::isUtf8(text), !surrogate) << std::hex << code;
    }
}

TEST(Utf8, RejectsMalformedText) {
    for (const char* text : {
             "\x80", "\xBF",                                             // begins in the middle
             "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF", // longer than needed
             "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xFF",             // beyond U+10FFFF
             "\xC3", "\xE2\x82", "\xF0\x9F\x98",                         // cut off
             "\xC3x", "\xE2\x82x", "\xE2x\xAC", "\xF0\x9F\x98x", // continued by something else
         }) {
        EXPECT_EQ(base::utf8Length(text), 0u) << text;
        EXPECT_FALSE(base::isUtf8(std::string("ok ") + text)) << text;
    }
}

TEST(Utf8, AcceptsAnEmptyText) {
    EXPECT_EQ(base::utf8Length(""), 0u);
    EXPECT_TRUE(base::isUtf8(""));
}

} // namespace
