#include "error_texts.h"
#include "model/directory.h"

#include <gtest/gtest.h>

using namespace phone;

namespace {

Directory numbered(int count) {
    Directory directory;
    for (int i = 0; i < count; ++i) {
        directory.put({"Contact " + std::to_string(i), std::to_string(5000 + i)});
    }
    return directory;
}

std::vector<std::string> namesIn(const std::vector<Contact>& contacts) {
    std::vector<std::string> names;
    for (const Contact& contact : contacts) {
        names.push_back(contact.name);
    }
    return names;
}

} // namespace

TEST(Contact, ReportsInvalidFields) {
    const std::string umlaut = "\xC3\xA4";
    std::string longName;
    for (int i = 0; i < 64; ++i) {
        longName += umlaut;
    }
    const struct {
        Contact contact;
        const char* errors;
    } cases[] = {
        {{"Ann", "1001"}, ""},
        {{" Ann ", " 1001 "}, ""},
        {{"A", "+49 (30) 23125-000 *#"}, ""},
        {{longName, "1"}, ""},
        {{longName + umlaut, "1"}, "name: tooLong 64"},
        {{"", ""}, "name: required, number: required"},
        {{" ", " "}, "name: required, number: required"},
        {{"a\nb", "1"}, "name: badCharacters"},
        {{"\xFF", "1"}, "name: notUtf8"},
        {{"Ann", std::string(32, '1')}, ""},
        {{"Ann", std::string(33, '1')}, "number: tooLong 32"},
        {{"Ann", "+-()*#"}, "number: badCharacters"},
        {{"Ann", "555-CALL"}, "number: badCharacters"},
        {{"Ann", "1\t2"}, "number: badCharacters"},
        {{"Ann", "\xFF"}, "number: notUtf8"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.contact.name + " / " + test.contact.number);
        Contact contact = test.contact;
        EXPECT_EQ(textOf(checkContact(contact)), test.errors);
    }
}

TEST(Directory, IsSortedByName) {
    Directory directory;
    for (const char* name :
         {"ben", "Zoe", "\xC3\x84nne", "Ann", "Ben", "ann-marie", "\xE7\x8E\x8B"}) {
        EXPECT_EQ(textOf(directory.add({name, "1"})), "");
    }
    EXPECT_EQ(namesIn(directory.contacts()),
              (std::vector<std::string>{"Ann", "ann-marie", "Ben", "ben", "Zoe", "\xC3\x84nne",
                                        "\xE7\x8E\x8B"}));
}

TEST(Directory, HasUniqueNames) {
    Directory directory;
    EXPECT_EQ(textOf(directory.add({"Ann", "1"})), "");
    EXPECT_EQ(textOf(directory.add({" Ann ", "2"})), "name: duplicate");
    EXPECT_EQ(directory.contacts().size(), 1u);
    EXPECT_EQ(directory.find("Ann")->number, "1");
    EXPECT_EQ(directory.find("ann"), nullptr);
    EXPECT_TRUE(directory.put({"Ann", "3"}));
    EXPECT_EQ(directory.contacts().size(), 1u);
    EXPECT_EQ(directory.find("Ann")->number, "3");
}

TEST(Directory, RejectsInvalidContacts) {
    Directory directory;
    EXPECT_EQ(textOf(directory.add({"", "x"})), "name: required, number: badCharacters");
    EXPECT_TRUE(directory.contacts().empty());
}

TEST(Directory, RemovesAContact) {
    Directory directory = numbered(3);
    EXPECT_TRUE(directory.remove("Contact 1"));
    EXPECT_FALSE(directory.remove("Contact 1"));
    EXPECT_FALSE(directory.remove("Contact"));
    EXPECT_FALSE(directory.remove("X"));
    EXPECT_EQ(namesIn(directory.contacts()), (std::vector<std::string>{"Contact 0", "Contact 2"}));
}

TEST(Directory, HoldsNoMoreThanTheLimit) {
    Directory directory = numbered(static_cast<int>(Directory::kMaxContacts));
    EXPECT_EQ(directory.contacts().size(), Directory::kMaxContacts);
    EXPECT_EQ(textOf(directory.add({"One more", "1"})), "name: tooMany 2000");
    EXPECT_FALSE(directory.put({"One more", "1"}));
    EXPECT_TRUE(directory.put({"Contact 1", "77"}));
    EXPECT_EQ(directory.contacts().size(), Directory::kMaxContacts);
}

TEST(DirectorySearch, FindsPartsOfNamesAndNumbersIgnoringCase) {
    Directory directory;
    directory.put({"Jane Doe", "+1 202 555-0100"});
    directory.put({"John DOE", "+1 212 555-0101"});
    directory.put({"J\xC3\xB6rg", "+49 30 23125 000"});
    const struct {
        const char* text;
        std::size_t found;
    } cases[] = {{"", 3},  {"doe", 2},       {"DOE", 2},       {"n", 2},      {"555-01", 2},
                 {"0", 3}, {"J\xC3\xB6", 1}, {"j\xC3\xB6", 1}, {"nobody", 0}, {"Jane Doe+", 0}};
    for (const auto& test : cases) {
        EXPECT_EQ(directory.search(test.text, 1).total, test.found) << test.text;
        EXPECT_EQ(directory.search(test.text, 1).rows.size(), test.found) << test.text;
    }
}

TEST(DirectorySearch, ReturnsThePageOrTheNearestOne) {
    const struct {
        int contacts;
        long asked;
        long page;
        long pages;
        std::size_t rows;
    } cases[] = {
        {0, 1, 1, 1, 0},    {0, 5, 1, 1, 0},   {20, 1, 1, 1, 20},
        {20, 2, 1, 1, 20},  {21, 2, 2, 2, 1},  {41, 0, 1, 3, 20},
        {41, -9, 1, 3, 20}, {41, 2, 2, 3, 20}, {41, 99, 3, 3, 1},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(std::to_string(test.contacts) + ", page " + std::to_string(test.asked));
        const Directory directory = numbered(test.contacts);
        const Directory::Page page = directory.search("", test.asked);
        EXPECT_EQ(page.page, test.page);
        EXPECT_EQ(page.pages, test.pages);
        ASSERT_EQ(page.rows.size(), test.rows);
        EXPECT_EQ(page.total, static_cast<std::size_t>(test.contacts));
        if (test.rows > 0) {
            EXPECT_EQ(page.rows[0].name,
                      directory.contacts()[static_cast<std::size_t>(test.page - 1) * 20].name);
        }
    }
}
