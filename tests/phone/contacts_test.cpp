// The page "contacts".
#include "phone_test.h"

#include "model/directory.h"

using kit::testing::file;

namespace {

class ContactsPage : public SignedInFixture {
protected:
    // Returns the text of the list, from the number of contacts to the end of the table.
    std::string list(const std::string& query = "contacts") {
        const std::string text = me.page(query).text();
        const std::string help = "finds \xE2\x80\x9C"
                                 "Ad\xC3\xA8le\xE2\x80\x9D. ";
        const auto from = text.find(help) + help.size();
        return text.substr(from, text.find(" Import and export") - from);
    }

    // Opens the address of a redirect as a browser does, which keeps the fragment to itself.
    Answer follow(const Answer& answer) {
        const std::string address = answer.location();
        return me.send(get(address.substr(0, address.find('#'))));
    }

    static std::string key(const std::string& name) { return phone::keyOf(name); }
    // Returns the address that shows a contact.
    static std::string addressOf(const std::string& name) {
        return "/servlet?p=contacts&at=" + key(name) + "#c-" + key(name);
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
    EXPECT_EQ(list(), "Contacts: 3 Name Number Anna 100 Edit Remove "
                      "Bj\xC3\xB6rn 200 Edit Remove Carol 300 Edit Remove");
}

TEST_F(ContactsPage, KeepsASearchByNameOrNumberForTheSession) {
    const Answer answer = me.submit("contacts&q=search", {{"search", "ROL"}});
    EXPECT_EQ(answer.location(), "/servlet?p=contacts");
    EXPECT_EQ(list(), "Found: 1. Show all Name Number Carol 300 Edit Remove");
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
    EXPECT_NE(page.text().find("Remove 1 2 3 Next Import"), std::string::npos) << page.text();
    EXPECT_NE(page.text().find("Contacts: 45 A B C N Name"), std::string::npos) << page.text();
    EXPECT_TRUE(page.leadsTo("/servlet?p=contacts&page=1#c-" + key("Name 101")));
    EXPECT_TRUE(page.leadsTo("/servlet?p=contacts&page=2"));
    page = me.page("contacts&page=2");
    EXPECT_NE(page.text().find("Previous 1 2 3 Next"), std::string::npos) << page.text();
    EXPECT_TRUE(page.leadsTo("/servlet?p=contacts&page=1"));
    EXPECT_TRUE(page.leadsTo("/servlet?p=contacts&page=3"));
    page = me.page("contacts&page=3");
    EXPECT_NE(page.text().find("Name 142 142 Edit Remove Previous 1 2 3 Import"), std::string::npos)
        << page.text();
}

TEST_F(ContactsPage, ShowsTheNearestPageForANumberOutOfRange) {
    importMany(42);
    const std::pair<const char*, const char*> cases[] = {
        {"0", "1"},
        {"-5", "1"},
        {"", "1"},
        {"x", "1"},
        {"4", "3"},
        {"9223372036854775807", "3"},
        {"-9223372036854775808", "1"},
        {"99999999999999999999", "1"},
    };
    for (const auto& [number, expected] : cases) {
        const Answer page = me.page(std::string("contacts&page=") + number);
        EXPECT_EQ(page.status, 200) << number;
        EXPECT_EQ(page.field("page"), expected) << number;
    }
}

TEST_F(ContactsPage, ShowsNoPagingForASinglePage) {
    importMany(17);
    const Answer page = me.page("contacts");
    EXPECT_NE(page.text().find("Contacts: 20"), std::string::npos);
    EXPECT_FALSE(page.leadsTo("/servlet?p=contacts&page=1"));
    EXPECT_FALSE(page.leadsTo("/servlet?p=contacts&page=2"));
}

TEST_F(ContactsPage, LeavesOutPagesFarAway) {
    importMany(177);
    EXPECT_NE(list("contacts").find("Remove 1 2 … 9 Next"), std::string::npos);
    EXPECT_NE(list("contacts&page=5").find("Previous 1 … 4 5 6 … 9 Next"), std::string::npos);
    EXPECT_NE(list("contacts&page=9").find("Previous 1 … 8 9"), std::string::npos);
}

TEST_F(ContactsPage, ShowsThePageWithAContact) {
    importMany(42);
    const Answer page = me.page("contacts&at=" + key("Name 130"));
    EXPECT_EQ(page.field("page"), "2");
    EXPECT_NE(page.body.find("<tr id=\"c-" + key("Name 130") + "\" class=\"wanted\">"),
              std::string::npos);
    EXPECT_EQ(me.page("contacts&page=3&at=nonsense").field("page"), "3");
}

TEST_F(ContactsPage, AddsAContact) {
    const Answer answer =
        me.submit("contacts&q=add", {{"name", " Dora "}, {"number", "+49 (30) 55-5"}});
    EXPECT_EQ(answer.status, 303);
    EXPECT_EQ(answer.location(), addressOf("Dora"));
    EXPECT_EQ(follow(answer).done(), "The contact was added.");
    EXPECT_NE(list().find("Dora +49 (30) 55-5 Edit Remove"), std::string::npos);
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
        EXPECT_NE(answer.text().find("Anna 100 Edit Remove"), std::string::npos) << "with the list";
    }
    EXPECT_EQ(savedText(), before);
}

TEST_F(ContactsPage, KeepsSeveralNumbers) {
    me.submit("contacts&q=add",
              {{"name", "Dora"}, {"number", ""}, {"mobile", "0170 1"}, {"home", "030 2"}});
    EXPECT_NE(list().find("Dora 0170 1 Mobile 030 2 Home Edit Remove"), std::string::npos)
        << list();
    EXPECT_EQ(me.page("contacts&edit=" + key("Dora")).field("mobile"), "0170 1");
    EXPECT_EQ(saved()->directory.find("Dora")->home, "030 2");
    me.submit("contacts&q=save", {{"edit", key("Dora")}, {"name", "Dora"}, {"home", "030 3"}});
    EXPECT_EQ(saved()->directory.find("Dora")->home, "030 3");
    EXPECT_EQ(saved()->directory.find("Dora")->mobile, "");
    EXPECT_EQ(saved()->directory.find("Dora")->number, "");
    EXPECT_EQ(saved()->directory.find("Anna")->mobile, "");
}

TEST_F(ContactsPage, RemovesAContact) {
    const Answer answer = me.submit("contacts&q=remove", {{"name", "Bj\xC3\xB6rn"}});
    EXPECT_EQ(answer.location(), "/servlet?p=contacts&page=1#c-" + key("Carol")) << "stays there";
    EXPECT_EQ(follow(answer).textOf("undo"), "“Bj\xC3\xB6rn” was removed. Undo");
    EXPECT_EQ(list(), "Contacts: 2 Name Number Anna 100 Edit Remove Carol 300 Edit Remove");
    EXPECT_EQ(saved()->directory.contacts().size(), 2U);
}

TEST_F(ContactsPage, StaysOnThePageOfTheRemovedContact) {
    importMany(38);
    const auto addressAfterRemoving = [&](const char* name) {
        return me.submit("contacts&q=remove", {{"name", name}, {"page", "3"}}).location();
    };
    EXPECT_EQ(addressAfterRemoving("Name 138"), "/servlet?p=contacts&page=3");
    EXPECT_EQ(me.page("contacts&page=3").field("page"), "2") << "it was the only one there";
    EXPECT_EQ(addressAfterRemoving("Name 137"), "/servlet?p=contacts&page=2#c-" + key("Name 136"));
    me.submit("contacts&q=search", {{"search", "NAME 11"}});
    EXPECT_EQ(addressAfterRemoving("Name 115"), "/servlet?p=contacts&page=1#c-" + key("Name 116"));
}

TEST_F(ContactsPage, RestoresTheContactRemovedLast) {
    const std::string before = savedText();
    me.submit("contacts&q=remove", {{"name", "Carol"}});
    me.submit("contacts&q=remove", {{"name", "Anna"}});
    const Answer answer = me.submit("contacts&q=restore");
    EXPECT_EQ(answer.location(), addressOf("Anna"));
    const Answer page = follow(answer);
    EXPECT_EQ(page.done(), "The contact is back.");
    EXPECT_EQ(page.textOf("undo"), "");
    EXPECT_EQ(saved()->directory.find("Anna")->number, "100");
    EXPECT_EQ(saved()->directory.find("Carol"), nullptr);
    EXPECT_EQ(follow(me.submit("contacts&q=restore")).alert(),
              "This contact can no longer be restored.");
    EXPECT_EQ(saved()->directory.contacts().size(), 2U);
}

TEST_F(ContactsPage, OffersToRestoreForSomeSecondsAndToTheSameSessionOnly) {
    me.submit("contacts&q=remove", {{"name", "Anna"}});
    Visitor other(*container, "192.0.2.8");
    other.signIn();
    EXPECT_EQ(other.page("contacts").textOf("undo"), "");
    other.submit("contacts&q=restore");
    EXPECT_EQ(saved()->directory.find("Anna"), nullptr);
    kit::testing::test_clock::advanceSeconds(29);
    EXPECT_NE(me.page("contacts").textOf("undo"), "");
    kit::testing::test_clock::advanceSeconds(1);
    EXPECT_EQ(me.page("contacts").textOf("undo"), "");
    EXPECT_EQ(follow(me.submit("contacts&q=restore")).alert(),
              "This contact can no longer be restored.");
    EXPECT_EQ(saved()->directory.find("Anna"), nullptr);
}

TEST_F(ContactsPage, DoesNotRestoreAContactThatSomebodyAddedAgain) {
    me.submit("contacts&q=remove", {{"name", "Anna"}});
    me.submit("contacts&q=add", {{"name", "Anna"}, {"number", "999"}});
    EXPECT_EQ(follow(me.submit("contacts&q=restore")).alert(),
              "This contact can no longer be restored.");
    EXPECT_EQ(saved()->directory.find("Anna")->number, "999");
}

TEST_F(ContactsPage, EditsAContactInItsPlace) {
    const Answer form = me.page("contacts&edit=" + key("Bj\xC3\xB6rn"));
    EXPECT_EQ(form.field("name"), "Bj\xC3\xB6rn");
    EXPECT_EQ(form.field("number"), "200");
    EXPECT_FALSE(form.leadsTo("/servlet?p=contacts&q=add")) << "one form at a time";
    const Answer answer = me.submit(
        "contacts&q=save", {{"edit", key("Bj\xC3\xB6rn")}, {"name", " Zoe "}, {"number", "201"}});
    EXPECT_EQ(answer.location(), addressOf("Zoe"));
    EXPECT_EQ(follow(answer).done(), "The contact was saved.");
    EXPECT_EQ(list(), "Contacts: 3 Name Number Anna 100 Edit Remove Carol 300 Edit Remove "
                      "Zoe 201 Edit Remove");
    EXPECT_EQ(saved()->directory.find("Zoe")->number, "201");
    EXPECT_EQ(saved()->directory.find("Bj\xC3\xB6rn"), nullptr);
}

TEST_F(ContactsPage, ShowsTheErrorsOfAnEditedContact) {
    const std::string before = savedText();
    const Answer answer =
        me.submit("contacts&q=save", {{"edit", key("Anna")}, {"name", "Carol"}, {"number", "101"}});
    EXPECT_EQ(answer.status, 422);
    EXPECT_EQ(answer.error("name"), "This entry already exists.");
    EXPECT_EQ(answer.field("number"), "101");
    EXPECT_EQ(answer.field("edit"), key("Anna")) << "still in its place";
    EXPECT_EQ(savedText(), before);
    const Answer gone =
        me.submit("contacts&q=save", {{"edit", key("Nobody")}, {"name", "Dora"}, {"number", "1"}});
    EXPECT_EQ(follow(gone).alert(), "This contact no longer exists.");
    EXPECT_EQ(savedText(), before);
    EXPECT_EQ(me.page("contacts&edit=" + key("Nobody")).status, 200);
}

TEST_F(ContactsPage, DialsANumberOfTheList) {
    const Answer answer = me.submit("phone", {{"number", "300"}});
    EXPECT_EQ(answer.location(), "/servlet?p=phone");
    EXPECT_NE(me.page("phone").text().find("300"), std::string::npos);
    EXPECT_NE(me.page("contacts")
                  .body.find("<form id=\"dial\" method=\"post\" action=\"/servlet?p=phone\">"),
              std::string::npos);
}

TEST_F(ContactsPage, ReportsAContactThatAnotherUserRemoved) {
    me.submit("contacts&q=remove", {{"name", "Anna"}});
    for (const Fields& fields : {Fields{{"name", "Anna"}}, Fields()}) {
        const Answer answer = me.submit("contacts&q=remove", fields);
        const Answer page = follow(answer);
        EXPECT_EQ(page.alert(), "This contact no longer exists.");
        EXPECT_EQ(page.done(), "");
    }
    EXPECT_EQ(saved()->directory.contacts().size(), 2U);
}

TEST_F(ContactsPage, EscapesNamesThatLookLikeMarkup) {
    const std::string name = "</td><script>\"x\"'&amp;=1+2";
    me.submit("contacts&q=add", {{"name", name}, {"number", "400"}});
    const Answer page = me.page("contacts");
    EXPECT_NE(page.text().find(name + " 400 Edit Remove"), std::string::npos) << page.text();
    EXPECT_EQ(page.body.find("</td><script>"), std::string::npos);
    EXPECT_EQ(me.submit("contacts&q=remove", {{"name", name}}).location(),
              "/servlet?p=contacts&page=1#c-" + key("Anna"));
    EXPECT_EQ(me.page("contacts").body.find("</td><script>"), std::string::npos);
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
    EXPECT_EQ(answer.body, "name,number,mobile,home\r\n\"'=1+2, \"\"x\"\"\",+1,,\r\n"
                           "Anna,100,,\r\nBj\xC3\xB6rn,200,,\r\nCarol,300,,\r\n");
}

TEST_F(ContactsPage, KeepsTheContactsIfSavingFails) {
    me.submit("contacts&q=remove", {{"name", "Carol"}});
    breakTheDisk();
    const std::pair<const char*, Fields> changes[] = {
        {"contacts&q=add", {{"name", "Dora"}, {"number", "400"}}},
        {"contacts&q=save", {{"edit", key("Anna")}, {"name", "Anna"}, {"number", "400"}}},
        {"contacts&q=remove", {{"name", "Anna"}}},
        {"contacts&q=restore", {}},
    };
    for (const auto& [action, fields] : changes) {
        const Answer answer = me.submit(action, fields);
        EXPECT_EQ(answer.status, 500) << action;
        EXPECT_EQ(
            answer.alert(),
            "The change could not be saved. The previous settings and contacts are still in use.");
    }
    EXPECT_EQ(list().substr(0, 20), "Contacts: 2 Name Num");
    repairTheDisk();
    EXPECT_EQ(follow(me.submit("contacts&q=restore")).done(), "The contact is back.");
}

TEST_F(ContactsPage, IgnoresResultsInTheAddress) {
    for (const char* result : {"nonsense", "removed", "contactAdded", "gone"}) {
        for (const char* name : {"result", "flash"}) {
            const Answer page = me.page(std::string("contacts&") + name + "=" + result);
            EXPECT_EQ(page.done(), "") << name << "=" << result;
            EXPECT_EQ(page.alert(), "") << name << "=" << result;
        }
    }
}
