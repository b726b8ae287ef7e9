#include "model/contact_search.h"
#include "model/directory.h"

#include <gtest/gtest.h>

using namespace phone;

TEST(DialledNumber, LeavesOutTheFormat) {
    const struct {
        const char* number;
        const char* dialled;
    } cases[] = {
        {"", ""},
        {"+49 (30) 231 25-000", "+493023125000"},
        {"+49 (0)30 23125", "+493023125"},
        {"0049 30 23125", "+493023125"},
        {"030 / 231.25", "03023125"},
        {"(0)30", "030"},
        {"00", "00"},
        {"000", "000"},
        {"*21*100#", "*21*100#"},
        {"12+3", "123"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(dialledNumber(test.number), test.dialled) << test.number;
    }
}

TEST(ContactSearch, IgnoresCaseAccentsAndTheFormatOfNumbers) {
    const struct {
        const char* text;
        Contact contact;
        bool matches;
    } cases[] = {
        {"MÜLLER", {"Jörg Müller", "1"}, true},
        {"muller", {"Jörg Müller", "1"}, true},
        {"Mueller", {"Jörg Müller", "1"}, true},
        {"Müller", {"Eva Mueller", "1"}, true},
        {"Mueller", {"Ann Muller", "1"}, false},
        {"u\xCC\x88", {"Müller", "1"}, true},
        {"adele", {"Adèle Dubois", "1"}, true},
        {"ADÈLE", {"adele", "1"}, true},
        {"STRASSE", {"Große Straße", "1"}, true},
        {"østergård", {"Oestergaard", "1"}, true},
        {"osterga", {"ØSTERGÅRD", "1"}, true},
        {"lodz", {"Łódź", "1"}, true},
        {"nguyen", {"Nguyễn", "1"}, true},
        {"борис", {"БОРИС", "1"}, true},
        {"μαρια", {"Μαρία", "1"}, true},
        {"ａｄａ", {"Ada", "1"}, true},
        {"芳", {"王芳", "1"}, true},
        {"李", {"王芳", "1"}, false},
        {"o'n", {"O’Neill", "1"}, true},
        {"doe jane", {"Jane Doe", "1"}, true},
        {"doe john", {"Jane Doe", "1"}, false},
        {"jane 0199", {"Jane Doe", "+36 (1) 555-0199"}, true},
        {"jane 0198", {"Jane Doe", "+36 (1) 555-0199"}, false},
        {"33199", {"Léa", "+33 1 99 00 0001"}, true},
        {"+33199", {"Léa", "+33 1 99 00 0001"}, true},
        {"0033 1 99", {"Léa", "+33 1 99 00 0001"}, true},
        {"01 99 00", {"Léa", "+33 1 99 00 0001"}, true},
        {"+199", {"Léa", "+33 1 99 00 0001"}, false},
        {"33 99 1", {"Léa", "+33 1 99 00 0001"}, false},
        {"3M", {"3M", "1"}, true},
        {"12", {"Room 12", "1"}, true},
        {" ", {"Ann", "1"}, true},
        {"+", {"Ann", "+1"}, false},
        {"\xFF", {"Ann", "1"}, false},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(ContactSearch(test.text).matches(test.contact), test.matches)
            << test.text << " in " << test.contact.name << " " << test.contact.number;
    }
}
