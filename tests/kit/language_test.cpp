#include "kit/language.h"

#include <gtest/gtest.h>

#include <string>

namespace {

// Returns the language for English, German and Swiss German; "-" for none.
std::string languageFor(std::string_view acceptLanguage) {
    return std::string(kit::preferredLanguage(acceptLanguage, {"en", "de", "de-CH"}).value_or("-"));
}

} // namespace

TEST(PreferredLanguage, IsTheBrowsersFavouriteOfTheChoices) {
    EXPECT_EQ(languageFor("de"), "de");
    EXPECT_EQ(languageFor("DE_at"), "de");
    EXPECT_EQ(languageFor("fr, de;q=0.5, en;q=0.7"), "en");
    EXPECT_EQ(languageFor("fr;q=1,de;q=0.501 , en; q=0.5"), "de");
    EXPECT_EQ(languageFor("de, en"), "de");
    EXPECT_EQ(languageFor("en, de"), "en");
    EXPECT_EQ(kit::preferredLanguage("zh", {"en", "zh-CN"}), "zh-CN");
}

TEST(PreferredLanguage, IsNoneThatTheBrowserRefuses) {
    EXPECT_EQ(languageFor("de;q=0"), "-");
    EXPECT_EQ(languageFor("de;q=0.000, fr"), "-");
    EXPECT_EQ(languageFor("*;q=0.1"), "en");
    EXPECT_EQ(languageFor("fr, nds, deutsch"), "-");
}

TEST(PreferredLanguage, WithstandsBrokenHeaders) {
    for (const char* broken : {"", ",", ";", ",;q=,", "-", "d", "q=0.5", ";q=0.5", " , \t"}) {
        EXPECT_EQ(languageFor(broken), "-") << broken;
    }
    for (const char* odd :
         {"de;q", "de;q=", "de;q=x", "de;;q=0.5", "de;q=0.5x", ",,de", "de;q=7"}) {
        EXPECT_EQ(languageFor(odd), "de") << odd;
    }
}
