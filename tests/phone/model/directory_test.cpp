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
        names.push_back(contact.name.str());
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
        {{"Ann", "", " 1 "}, ""},
        {{"Ann", "", "", "1"}, ""},
        {{"Ann", "", "x"}, "mobile: badCharacters"},
        {{"Ann", "1", "x", "y"}, "mobile: badCharacters, home: badCharacters"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.contact.name.str() + " / " + test.contact.number.str());
        Contact contact = test.contact;
        EXPECT_EQ(textOf(checkContact(contact)), test.errors);
    }
}

TEST(Directory, IsSortedByName) {
    Directory directory;
    for (const char* name : {"ben", "Zoë", "王", "Änne", "=1+2", "Ann", "Борис", "Ben", "李",
                             "anna", "ann-marie", "3M"}) {
        EXPECT_EQ(textOf(directory.add({name, "1"})), "");
    }
    EXPECT_EQ(namesIn(directory.contacts()),
              (std::vector<std::string>{"3M", "=1+2", "Ann", "ann-marie", "anna", "Änne", "Ben",
                                        "ben", "Zoë", "Борис", "李", "王"}));
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

TEST(Directory, ReplacesAContact) {
    Directory directory = numbered(3);
    EXPECT_EQ(textOf(directory.replace("Contact 1", {"Contact 1", "77"})), "");
    EXPECT_EQ(directory.find("Contact 1")->number, "77");
    EXPECT_EQ(textOf(directory.replace("Contact 1", {" Ann ", "78"})), "");
    EXPECT_EQ(namesIn(directory.contacts()),
              (std::vector<std::string>{"Ann", "Contact 0", "Contact 2"}));
    EXPECT_EQ(textOf(directory.replace("Ann", {"Contact 2", "1"})), "name: duplicate");
    EXPECT_EQ(textOf(directory.replace("Ann", {"Ann", "x"})), "number: badCharacters");
    EXPECT_EQ(directory.find("Ann")->number, "78");
    EXPECT_EQ(directory.find("Contact 2")->number, "5002");
}

TEST(Directory, FindsAContactByTheKeyOfItsName) {
    const Directory directory = numbered(30);
    EXPECT_EQ(keyOf("Contact 7").size(), 16U);
    EXPECT_NE(keyOf("Contact 7"), keyOf("contact 7"));
    EXPECT_EQ(directory.findByKey(keyOf("Contact 7"))->name, "Contact 7");
    EXPECT_EQ(directory.findByKey(keyOf("Contact 30")), nullptr);
    EXPECT_EQ(directory.findByKey(""), nullptr);
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
    } cases[] = {{"", 3},  {"doe", 2},        {"DOE", 2},        {"n", 2},      {"555-01", 2},
                 {"0", 3}, {"J\xC3\xB6r", 1}, {"j\xC3\xB6r", 1}, {"nobody", 0}, {"Jane Doe+", 0}};
    for (const auto& test : cases) {
        EXPECT_EQ(directory.search({test.text}).total, test.found) << test.text;
        EXPECT_EQ(directory.search({test.text}).rows.size(), test.found) << test.text;
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
        const Directory::Page page = directory.search({"", test.asked});
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

TEST(DirectorySearch, ReturnsThePageWithAContact) {
    const Directory directory = numbered(45);
    EXPECT_EQ(directory.search({"", 1, "Contact 9"}).page, 3);
    EXPECT_EQ(directory.search({"", 2, "Contact 0"}).page, 1);
    EXPECT_EQ(directory.search({"", 2, "Nobody"}).page, 2);
    EXPECT_EQ(directory.search({"500", 2, "Contact 12"}).page, 1) << "not found";
}

TEST(DirectorySearch, ReturnsTheSectionsOfTheIndex) {
    Directory directory;
    for (const char* name : {"3M", "Ärzte", "Anna", "Борис", "王芳", "Walter", "安娜", "犇"}) {
        directory.put({name, "1"});
    }
    for (int i = 0; i < 20; ++i) {
        directory.put({"B" + std::to_string(i), "1"});
    }
    const auto sectionsIn = [&](ChineseNames chinese) {
        std::string text;
        for (const Directory::Section& section : directory.search({"", 1, "", chinese}).sections) {
            text += section.name + std::to_string(section.page) + " " + section.first + ", ";
        }
        return text;
    };
    EXPECT_EQ(sectionsIn(ChineseNames::last),
              "#1 3M, A1 Anna, B1 B0, W2 Walter, *2 Борис, =2 安娜, ");
    EXPECT_EQ(sectionsIn(ChineseNames::underLetters),
              "#1 3M, A1 Anna, B1 B0, W2 Walter, *2 Борис, ");
    EXPECT_EQ(namesIn(directory.search({"a", 1, "", ChineseNames::underLetters}).rows),
              (std::vector<std::string>{"Anna", "Ärzte", "Walter"}));
    const auto names = namesIn(directory.search({"", 2, "", ChineseNames::underLetters}).rows);
    EXPECT_EQ((std::vector<std::string>(names.end() - 4, names.end())),
              (std::vector<std::string>{"Walter", "王芳", "Борис", "犇"}));
}
