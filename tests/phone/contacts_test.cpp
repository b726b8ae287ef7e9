// The page "contacts".
#include "phone_test.h"

using kit::testing::file;

namespace {

class ContactsPage : public SignedInFixture {
protected:
    // Returns the text of the list, from the number of contacts to the end of the table.
    std::string list(const std::string& query = "contacts") {
        const std::string text = me.page(query).text();
        const auto from = text.find("Search by name or number Search ");
        return text.substr(from + 32, text.find(" New contact") - from - 32);
    }

    void importMany(int count) {
        std::string csv;
        for (int i = 101; i < 101 + count; ++i) {
            csv += "Name " + std::to_string(i) + "," + std::to_string(i) + "\n";
        }
        me.upload("contacts-preview&q=preview", file("contacts", "many.csv", csv));
        me.submit("contacts-preview&q=apply");
        EXPECT_EQ(me.page("contacts").done(), "The contacts were imported.");
    }
};

} // namespace

TEST_F(ContactsPage, ListsTheContacts) {
    EXPECT_EQ(me.page("contacts").title(), "Contacts");
    EXPECT_EQ(list(), "Contacts: 3 Name Number Anna 100 Remove Bj\xC3\xB6rn 200 Remove "
                      "Carol 300 Remove");
}

TEST_F(ContactsPage, KeepsASearchByNameOrNumberForTheSession) {
    const Answer answer = me.submit("contacts&q=search", {{"search", "ROL"}});
    EXPECT_EQ(answer.location(), "/servlet?p=contacts");
    EXPECT_EQ(list(), "Found: 1. Show all Name Number Carol 300 Remove");
    EXPECT_EQ(me.page("contacts").field("search"), "ROL");
    me.page("status");
    EXPECT_EQ(me.page("contacts").field("search"), "ROL") << "kept on other pages";
    Visitor other(*container, "192.0.2.8");
    other.signIn();
    EXPECT_EQ(other.page("contacts").field("search"), "") << "searches are not shared";
    me.submit("contacts&q=search", {{"search", "00"}});
    EXPECT_EQ(list().substr(0, 9), "Found: 3.");
    me.submit("contacts&q=search", {{"search", "zzz"}});
    EXPECT_EQ(list(), "Found: 0. Show all No contacts match \"zzz\".");
    EXPECT_EQ(me.page("contacts&q=all").location(), "/servlet?p=contacts");
    EXPECT_EQ(list().substr(0, 11), "Contacts: 3");
}

TEST_F(ContactsPage, AcceptsSearchTextsThatAddressesCannotContain) {
    const std::string search = "<script>alert(\"1\")</script>";
    EXPECT_EQ(me.submit("contacts&q=search", {{"search", search}}).status, 303);
    const Answer page = me.page("contacts");
    EXPECT_EQ(page.field("search"), search);
    EXPECT_EQ(page.body.find("alert(\"1\")"), std::string::npos);
    EXPECT_EQ(list(), "Found: 0. Show all No contacts match \"" + search + "\".");
    me.submit("contacts&q=search", {{"search", std::string(127, 'x') + "\xC3\xA9y"}});
    EXPECT_EQ(me.page("contacts").field("search"), std::string(127, 'x')) << "a long text is cut";
}

TEST_F(ContactsPage, SplitsTheListIntoPages) {
    importMany(42);
    EXPECT_EQ(me.page("contacts").done(), "");
    Answer page = me.page("contacts");
    EXPECT_NE(page.text().find("Contacts: 45"), std::string::npos);
    EXPECT_NE(page.text().find("Page 1 of 3 Next"), std::string::npos) << page.text();
    EXPECT_TRUE(page.leadsTo("/servlet?p=contacts&page=2"));
    page = me.page("contacts&page=2");
    EXPECT_NE(page.text().find("Previous Page 2 of 3 Next"), std::string::npos) << page.text();
    EXPECT_TRUE(page.leadsTo("/servlet?p=contacts&page=1"));
    EXPECT_TRUE(page.leadsTo("/servlet?p=contacts&page=3"));
    page = me.page("contacts&page=3");
    EXPECT_NE(page.text().find("Name 142 142 Remove Previous Page 3 of 3 New"), std::string::npos)
        << page.text();
}

TEST_F(ContactsPage, ShowsTheNearestPageForANumberOutOfRange) {
    importMany(42);
    const std::pair<const char*, const char*> cases[] = {
        {"0", "Page 1 of 3"},
        {"-5", "Page 1 of 3"},
        {"", "Page 1 of 3"},
        {"x", "Page 1 of 3"},
        {"4", "Page 3 of 3"},
        {"9223372036854775807", "Page 3 of 3"},
        {"-9223372036854775808", "Page 1 of 3"},
        {"99999999999999999999", "Page 1 of 3"},
    };
    for (const auto& [number, expected] : cases) {
        const Answer page = me.page(std::string("contacts&page=") + number);
        EXPECT_EQ(page.status, 200) << number;
        EXPECT_NE(page.text().find(expected), std::string::npos) << number;
    }
}

TEST_F(ContactsPage, ShowsNoPagingForASinglePage) {
    importMany(17);
    const Answer page = me.page("contacts");
    EXPECT_NE(page.text().find("Contacts: 20"), std::string::npos);
    EXPECT_EQ(page.text().find("Page 1"), std::string::npos);
    EXPECT_FALSE(page.leadsTo("/servlet?p=contacts&page=2"));
}

TEST_F(ContactsPage, AddsAContact) {
    const Answer answer =
        me.submit("contacts&q=add", {{"name", " Dora "}, {"number", "+49 (30) 55-5"}});
    EXPECT_EQ(answer.status, 303);
    EXPECT_EQ(me.send(get(answer.location())).done(), "The contact was added.");
    EXPECT_NE(list().find("Dora +49 (30) 55-5 Remove"), std::string::npos);
    ASSERT_NE(saved()->directory.find("Dora"), nullptr);
    EXPECT_EQ(saved()->directory.find("Dora")->number, "+49 (30) 55-5");
}

TEST_F(ContactsPage, RejectsInvalidContacts) {
    const char* const kBadNumber =
        "Use only digits, spaces and + * # ( ) -, with at least one digit.";
    const struct {
        std::string name;
        std::string number;
        const char* field;
        const char* message;
    } cases[] = {
        {"", "1", "name", "Please fill in this field."},
        {std::string(65, 'x'), "1", "name", "Use at most 64 characters."},
        {"Anna", "999", "name", "This entry already exists."},
        {"Dora\x01", "1", "name", "Contains characters that are not allowed."},
        {"Dora", "", "number", "Please fill in this field."},
        {"Dora", "+-", "number", kBadNumber},
        {"Dora", "12a", "number", kBadNumber},
        {"Dora", std::string(33, '1'), "number", "Use at most 32 characters."},
    };
    const std::string before = savedText();
    for (const auto& wrong : cases) {
        const Answer answer =
            me.submit("contacts&q=add", {{"name", wrong.name}, {"number", wrong.number}});
        EXPECT_EQ(answer.status, 422) << wrong.message;
        EXPECT_EQ(answer.error(wrong.field), wrong.message);
        EXPECT_EQ(answer.field("name"), wrong.name);
        EXPECT_EQ(answer.field("number"), wrong.number);
        EXPECT_NE(answer.text().find("Anna 100 Remove"), std::string::npos) << "with the list";
    }
    EXPECT_EQ(savedText(), before);
}

TEST_F(ContactsPage, RemovesAContact) {
    const Answer answer = me.submit("contacts&q=remove", {{"name", "Bj\xC3\xB6rn"}});
    EXPECT_EQ(me.send(get(answer.location())).done(), "The contact was removed.");
    EXPECT_EQ(list(), "Contacts: 2 Name Number Anna 100 Remove Carol 300 Remove");
    EXPECT_EQ(saved()->directory.contacts().size(), 2U);
}

TEST_F(ContactsPage, ReportsAContactThatAnotherUserRemoved) {
    me.submit("contacts&q=remove", {{"name", "Anna"}});
    for (const Fields& fields : {Fields{{"name", "Anna"}}, Fields()}) {
        const Answer answer = me.submit("contacts&q=remove", fields);
        const Answer page = me.send(get(answer.location()));
        EXPECT_EQ(page.alert(), "This contact no longer exists.");
        EXPECT_EQ(page.done(), "");
    }
    EXPECT_EQ(saved()->directory.contacts().size(), 2U);
}

TEST_F(ContactsPage, EscapesNamesThatLookLikeMarkup) {
    const std::string name = "</td><script>\"x\"'&amp;=1+2";
    me.submit("contacts&q=add", {{"name", name}, {"number", "400"}});
    const Answer page = me.page("contacts");
    EXPECT_NE(page.text().find(name + " 400 Remove"), std::string::npos) << page.text();
    EXPECT_EQ(page.body.find("</td><script>"), std::string::npos);
    EXPECT_EQ(me.submit("contacts&q=remove", {{"name", name}}).location(), "/servlet?p=contacts");
    EXPECT_EQ(saved()->directory.find(name), nullptr);
}

TEST_F(ContactsPage, ReportsAnEmptyList) {
    for (const char* name : {"Anna", "Bj\xC3\xB6rn", "Carol"}) {
        me.submit("contacts&q=remove", {{"name", name}});
    }
    EXPECT_EQ(list(), "Contacts: 0 No contacts yet. Add a contact or import a list.");
}

TEST_F(ContactsPage, ExportsTheContacts) {
    me.submit("contacts&q=add", {{"name", "=1+2, \"x\""}, {"number", "+1"}});
    const Answer answer = me.page("contacts&q=export");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.header("Content-Type"), "text/csv; charset=utf-8");
    EXPECT_EQ(answer.header("Content-Disposition"), "attachment; filename=contacts.csv");
    EXPECT_EQ(answer.body, "name,number\r\n\"'=1+2, \"\"x\"\"\",+1\r\nAnna,100\r\n"
                           "Bj\xC3\xB6rn,200\r\nCarol,300\r\n");
}

TEST_F(ContactsPage, KeepsTheContactsIfSavingFails) {
    breakTheDisk();
    for (const char* action : {"contacts&q=add", "contacts&q=remove"}) {
        const Answer answer =
            me.submit(action, {{"name", action[11] == 'a' ? "Dora" : "Anna"}, {"number", "400"}});
        EXPECT_EQ(answer.status, 500) << action;
        EXPECT_EQ(
            answer.alert(),
            "The change could not be saved. The previous settings and contacts are still in use.");
    }
    EXPECT_EQ(list().substr(0, 20), "Contacts: 3 Name Num");
}

TEST_F(ContactsPage, IgnoresResultsInTheAddress) {
    for (const char* result : {"nonsense", "removed", "contactRemoved", "gone"}) {
        for (const char* name : {"result", "flash"}) {
            const Answer page = me.page(std::string("contacts&") + name + "=" + result);
            EXPECT_EQ(page.done(), "") << name << "=" << result;
            EXPECT_EQ(page.alert(), "") << name << "=" << result;
        }
    }
}
