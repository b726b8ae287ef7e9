#include "contacts.h"

#include <gtest/gtest.h>

using phone::Contact;
using phone::readContacts;

namespace {

struct Line {
    const char* text;
    const char* name;
    const char* number;
};

} // namespace

TEST(Contacts, AreReadFromCommaSeparatedLines) {
    const Line lines[] = {
        {"Ann,1001", "Ann", "1001"},
        {" Ann , 1001 ", "Ann", "1001"},
        {"Ann", "Ann", ""},
        {"Ann,", "Ann", ""},
        {",1001", "", "1001"},
        {"Ann,1001,Office,x", "Ann", "1001"},
        {"\"Doe, Jane\",1001", "Doe, Jane", "1001"},
        {"\"Jane \"\"JD\"\" Doe\",1001", "Jane \"JD\" Doe", "1001"},
        {" \"Ann\" , \"1001\" ", "Ann", "1001"},
        {"\"Ann,1001", "Ann,1001", ""},
        {"\"", "", ""},
        {"\"\"", "", ""},
        {"\"\"\"", "\"", ""},
        {"A\"nn,1001", "A\"nn", "1001"},
        {"\xC3\x84nne,1001", "\xC3\x84nne", "1001"},
    };
    for (const Line& line : lines) {
        SCOPED_TRACE(line.text);
        const std::vector<Contact> contacts = readContacts(line.text);
        ASSERT_EQ(contacts.size(), 1u);
        EXPECT_EQ(contacts[0].name, line.name);
        EXPECT_EQ(contacts[0].number, line.number);
    }
}

TEST(Contacts, StandOneALineWhateverTheLineEnds) {
    const std::vector<Contact> contacts = readContacts("Ann,1\r\nBen,2\nCem,3\rDan,4");
    ASSERT_EQ(contacts.size(), 4u);
    EXPECT_EQ(contacts[0].number, "1");
    EXPECT_EQ(contacts[3].name, "Dan");
}

TEST(Contacts, DoNotComeFromEmptyLines) {
    EXPECT_TRUE(readContacts("").empty());
    EXPECT_TRUE(readContacts("\r\n\n  \t \n").empty());
}

TEST(Contacts, AreNoMoreThanTheLimit) {
    std::string text;
    for (std::size_t i = 0; i < phone::kMaxContacts + 5; ++i) {
        text += "Ann," + std::to_string(i) + "\n";
    }
    const std::vector<Contact> contacts = readContacts(text);
    ASSERT_EQ(contacts.size(), phone::kMaxContacts);
    EXPECT_EQ(contacts.back().number, std::to_string(phone::kMaxContacts - 1));
}

TEST(Contacts, HaveFieldsOfALimitedLength) {
    const std::string longText(phone::kMaxContactField + 1, 'x');
    const std::vector<Contact> contacts = readContacts("\"" + longText + "\"," + longText);
    ASSERT_EQ(contacts.size(), 1u);
    EXPECT_EQ(contacts[0].name, std::string(phone::kMaxContactField, 'x'));
    EXPECT_EQ(contacts[0].number, std::string(phone::kMaxContactField, 'x'));
}
