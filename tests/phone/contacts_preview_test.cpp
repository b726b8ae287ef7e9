// The page "contacts-preview".
#include "phone_test.h"

using kit::testing::file;

namespace {

constexpr const char* kGone = "The preview has expired. Select the file again.";

class ContactsPreviewPage : public SignedInFixture {
protected:
    Answer upload(const std::string& csv, const std::string& name = "list.csv") {
        return me.upload("contacts-preview&q=preview", file("contacts", name, csv));
    }

    bool isHeld() { return isHeld(me); }
    static bool isHeld(Visitor& visitor) {
        return visitor.page("contacts-preview").text().find("Import preview") != std::string::npos;
    }

    std::string counts() {
        const std::string text = me.page("contacts-preview").text();
        const std::string heading = "Import preview ";
        const auto at = text.find(heading);
        if (at == text.npos) {
            return "";
        }
        const auto from = at + heading.size();
        return text.substr(from, text.find(" Nothing has been changed yet") - from);
    }
};

} // namespace

TEST_F(ContactsPreviewPage, AsksForAFile) {
    const Answer page = me.page("contacts-preview");
    EXPECT_EQ(page.status, 200);
    EXPECT_EQ(page.title(), "Import contacts");
    EXPECT_EQ(counts(), "");
    EXPECT_FALSE(page.leadsTo("/servlet?p=contacts-preview&q=apply"));
}

TEST_F(ContactsPreviewPage, PreviewsAndThenImportsAFile) {
    const Answer answer = upload("\xEF\xBB\xBFname,number\r\n"
                                 "Anna,101\r\n"
                                 "Carol,300\r\n"
                                 "\"D\xC3\xB6ra, <b>\",400\r\n"
                                 "Emil,abc\r\n"
                                 "\xff,1\r\n"
                                 "Anna,102\r\n");
    EXPECT_EQ(answer.status, 303);
    EXPECT_EQ(answer.location(), "/servlet?p=contacts-preview");
    const std::string before = savedText();
    EXPECT_EQ(counts(), "New 1 Changed 1 Unchanged 1 Rejected 3");
    const Answer page = me.page("contacts-preview");
    for (const char* row :
         {"5 Emil,abc Number: Use only digits, spaces and + * # ( ) -, with at least one digit.",
          "6 ?,1 The text is not encoded as UTF-8.", "7 Anna,102 Name: This entry already exists.",
          "Changed Name Current numbers New numbers Anna 100 101",
          "New Name Number D\xC3\xB6ra, <b> 400"}) {
        EXPECT_NE(page.text().find(row), std::string::npos) << row << " in " << page.text();
    }
    EXPECT_EQ(page.body.find("<b>"), std::string::npos);
    EXPECT_EQ(savedText(), before) << "nothing is imported yet";

    const Answer done = me.submit("contacts-preview&q=apply");
    EXPECT_EQ(done.status, 303);
    EXPECT_EQ(me.submit("contacts-preview&q=apply").status, 409) << "only once";
    EXPECT_EQ(me.send(get(done.location())).done(), "The contacts were imported.");
    EXPECT_EQ(saved()->directory.find("Anna")->number, "101");
    EXPECT_EQ(saved()->directory.find("Bj\xC3\xB6rn")->number, "200");
    EXPECT_NE(saved()->directory.find("D\xC3\xB6ra, <b>"), nullptr);
    EXPECT_EQ(saved()->directory.contacts().size(), 4U);
}

TEST_F(ContactsPreviewPage, OffersNoImportIfNothingWouldChange) {
    upload("Anna,100\n,\n");
    EXPECT_EQ(counts().substr(0, 27), "New 0 Changed 0 Unchanged 1");
    const Answer page = me.page("contacts-preview");
    EXPECT_NE(page.text().find("There is nothing to import."), std::string::npos);
    EXPECT_FALSE(page.leadsTo("/servlet?p=contacts-preview&q=apply"));
}

TEST_F(ContactsPreviewPage, ReportsOnceThatAFileIsNoList) {
    for (const char* content :
         {"%PDF-1.7\n\"never closed,1\n", "PK\x03\x04,a,b", "{\"a\": 1}", "\x89PNG\r\n\x1A\n,1"}) {
        const Answer answer = upload(content);
        EXPECT_EQ(answer.status, 422) << content;
        EXPECT_EQ(answer.alert().substr(0, 31), "This file contains no contacts.") << content;
        EXPECT_FALSE(isHeld()) << content;
    }
}

TEST_F(ContactsPreviewPage, ReportsWhyLinesAreRejected) {
    upload("Dora,\n\"never closed,1\n");
    EXPECT_EQ(counts(), "New 0 Changed 0 Unchanged 0 Rejected 2");
    const std::string text = me.page("contacts-preview").text();
    EXPECT_NE(text.find("1 Dora, Number: Please fill in this field."), std::string::npos) << text;
    EXPECT_NE(text.find("2 \"never closed,1 The line does not have two columns, or a quotation "
                        "mark is missing."),
              std::string::npos)
        << text;
}

TEST_F(ContactsPreviewPage, ReadsWhatExcelWritesInEachLanguage) {
    upload("\xEF\xBB\xBF"
           "Name,Phone\r\nD\xC3\xB6ra,400\r\n");
    me.submit("contacts-preview&q=apply");
    upload("Name;Telefon;Mobil\r\nJ\xF6rg;500;\r\n");
    me.submit("contacts-preview&q=apply");
    me.page("language&to=zh");
    upload("\xD0\xD5\xC3\xFB,\xCA\xD6\xBB\xFA\r\n\xCD\xF5\xB7\xBC,600\r\n");
    me.submit("contacts-preview&q=apply");
    EXPECT_NE(saved()->directory.find("Döra"), nullptr);
    EXPECT_NE(saved()->directory.find("Jörg"), nullptr);
    ASSERT_NE(saved()->directory.find("王芳"), nullptr);
    EXPECT_EQ(saved()->directory.find("王芳")->mobile, "600");
}

TEST_F(ContactsPreviewPage, LetsTheUserCorrectTheColumns) {
    upload("Who,Where,Which\nDora,Berlin,400\n");
    EXPECT_EQ(counts(), "New 0 Changed 0 Unchanged 0 Rejected 2");
    Answer page = me.page("contacts-preview");
    EXPECT_EQ(page.field("name"), "0");
    EXPECT_EQ(page.field("number"), "1");
    EXPECT_EQ(me.submit("contacts-preview&q=columns",
                        {{"name", "0"}, {"number", ""}, {"mobile", "2"}, {"home", "99"}})
                  .location(),
              "/servlet?p=contacts-preview");
    EXPECT_EQ(counts(), "New 1 Changed 0 Unchanged 0 Rejected 1");
    page = me.page("contacts-preview");
    EXPECT_EQ(page.field("mobile"), "2");
    EXPECT_NE(page.text().find("Name Number Dora 400 Mobile"), std::string::npos) << page.text();
    me.submit("contacts-preview&q=apply");
    EXPECT_EQ(saved()->directory.find("Dora")->mobile, "400");
    EXPECT_EQ(me.submit("contacts-preview&q=columns", {{"name", "0"}}).alert(), kGone);
}

TEST_F(ContactsPreviewPage, ShowsALongPreviewInPages) {
    std::string csv = "Emil,x\nAnna,101\n";
    for (int i = 1001; i <= 2198; ++i) {
        csv += "Name " + std::to_string(i) + "," + std::to_string(i) + "\n";
    }
    upload(csv);
    EXPECT_EQ(counts(), "New 1198 Changed 1 Unchanged 0 Rejected 1");
    const auto has = [](const Answer& page, const char* text) {
        return page.text().find(text) != std::string::npos;
    };
    const Answer first = me.page("contacts-preview");
    EXPECT_TRUE(has(first, "Anna 100 101") && has(first, "Emil,x") && has(first, "Name 1048 1048"));
    EXPECT_FALSE(has(first, "Name 1049"));
    EXPECT_TRUE(has(first, "Page 1 of 24 Next"));
    const Answer second = me.page("contacts-preview&page=2");
    EXPECT_TRUE(has(second, "Name 1049 1049") && has(second, "Name 1098 1098"));
    EXPECT_FALSE(has(second, "Name 1048") || has(second, "Name 1099") || has(second, "Emil,x"));
    for (const char* page : {"24", "25", "2147483647"}) {
        const Answer last = me.page(std::string("contacts-preview&page=") + page);
        EXPECT_TRUE(has(last, "Name 2198 2198") && has(last, "Previous Page 24 of 24")) << page;
    }
    EXPECT_TRUE(has(me.page("contacts-preview&page=0"), "Page 1 of 24"));
}

TEST_F(ContactsPreviewPage, DropsThePreviewWhenItsUserOpensAnotherPage) {
    for (const char* other : {"status", "contacts", "network", "contacts&q=export"}) {
        upload("Dora,400\n");
        EXPECT_TRUE(isHeld());
        me.page(other);
        EXPECT_FALSE(isHeld()) << other;
        const Answer answer = me.submit("contacts-preview&q=apply");
        EXPECT_EQ(answer.status, 409) << other;
        EXPECT_EQ(answer.alert(), kGone) << other;
    }
    EXPECT_EQ(saved()->directory.find("Dora"), nullptr);
}

TEST_F(ContactsPreviewPage, KeepsThePreviewWhileItsPageIsOpen) {
    upload("Dora,400\n");
    me.page("contacts-preview");
    me.page("notice");
    EXPECT_EQ(me.page("status-data&quiet=p=notice").status, 200)
        << "the page's script polls like this";
    EXPECT_TRUE(isHeld());
}

TEST_F(ContactsPreviewPage, KeepsThePreviewWhateverOthersDo) {
    upload("Dora,400\n");
    Visitor other(*container, "192.0.2.8");
    other.signIn();
    other.page("status");
    other.page("contacts");
    Visitor stranger(*container, "192.0.2.66");
    stranger.page("status");
    stranger.page("login&q=loginForm");
    event("key=1", "192.0.2.66");
    EXPECT_TRUE(isHeld());
    other.submit("login&q=logout");
    EXPECT_TRUE(isHeld());
}

TEST_F(ContactsPreviewPage, KeepsThePreviewWhenTheThreadServesAnotherUser) {
    upload("Dora,400\n");
    me.page("contacts-preview");
    Visitor(*container, "192.0.2.66").send(get("/servlet?p=language&to=de"));
    EXPECT_TRUE(isHeld());
}

TEST_F(ContactsPreviewPage, ShowsThePreviewToItsSessionOnly) {
    Visitor other(*container, "192.0.2.8");
    other.signIn();
    upload("Dora,400\n");
    EXPECT_FALSE(isHeld(other));
    EXPECT_EQ(other.submit("contacts-preview&q=apply").status, 409);
    other.upload("contacts-preview&q=preview", file("contacts", "b.csv", "Emil,500\n"));
    EXPECT_NE(me.page("contacts-preview").text().find("Dora 400"), std::string::npos);
    EXPECT_NE(other.page("contacts-preview").text().find("Emil 500"), std::string::npos);
}

TEST_F(ContactsPreviewPage, ReplacesThePreviewByTheNextFile) {
    upload("Dora,400\n");
    upload("Emil,500\n");
    const std::string text = me.page("contacts-preview").text();
    EXPECT_EQ(text.find("Dora"), std::string::npos);
    EXPECT_NE(text.find("Emil 500"), std::string::npos);
}

TEST_F(ContactsPreviewPage, RejectsAFileThatIsTooLarge) {
    const Answer answer = upload("Dora,400\n" + std::string(1024 * 1024, '\n'));
    EXPECT_EQ(answer.status, 422);
    EXPECT_EQ(answer.alert(), "The file is too large. The maximum size is 1 MiB.");
    EXPECT_FALSE(isHeld());
}

TEST_F(ContactsPreviewPage, AcceptsAFileOfTheMaximumSize) {
    const std::string line = "Dora,400\n";
    EXPECT_EQ(upload(line + std::string(1024 * 1024 - line.size(), '\n')).status, 303);
    EXPECT_EQ(counts(), "New 1 Changed 0 Unchanged 0 Rejected 0");
}

TEST_F(ContactsPreviewPage, RejectsAnEmptyOrMissingFile) {
    EXPECT_EQ(upload("").alert(), "No file was selected, or the file is empty.");
    EXPECT_EQ(upload("", "").alert(), "No file was selected, or the file is empty.");
    EXPECT_EQ(upload("").status, 422);
    EXPECT_FALSE(isHeld());
}

TEST_F(ContactsPreviewPage, IgnoresAnIncompleteUpload) {
    upload("Dora,400\n");
    const Request whole = me.uploading("contacts-preview&q=preview",
                                       file("contacts", "list.csv", "Emil,500\nFred,600\n"));
    const std::size_t length = std::stoul(*whole.valueOf("CONTENT_LENGTH"));
    for (std::size_t cut = 0; cut < length - 2; cut += 7) {
        const Answer answer = me.send(whole.cutOffAfter(cut));
        EXPECT_TRUE(answer.status == 422 || answer.status == 403) << cut;
        EXPECT_EQ(me.page("contacts-preview").text().find("Emil"), std::string::npos) << cut;
    }
}

TEST_F(ContactsPreviewPage, ReportsThatTheDirectoryIsFull) {
    std::string csv;
    for (int i = 0; i < 2000; ++i) {
        csv += "Name " + std::to_string(i) + "," + std::to_string(i) + "\n";
    }
    upload(csv);
    EXPECT_EQ(counts(), "New 1997 Changed 0 Unchanged 0 Rejected 3");
    EXPECT_NE(me.page("contacts-preview").text().find("Name: At most 2000 entries are allowed."),
              std::string::npos);
    Visitor other(*container, "192.0.2.8");
    other.signIn();
    other.submit("contacts&q=add", {{"name", "Dora"}, {"number", "400"}});
    const Answer answer = me.submit("contacts-preview&q=apply");
    EXPECT_EQ(answer.status, 422);
    EXPECT_EQ(answer.alert(), "This import would exceed the maximum of 2,000 contacts.");
    EXPECT_EQ(saved()->directory.contacts().size(), 4U);
}

TEST_F(ContactsPreviewPage, KeepsThePreviewIfSavingFails) {
    upload("Dora,400\n");
    breakTheDisk();
    const Answer answer = me.submit("contacts-preview&q=apply");
    EXPECT_EQ(answer.status, 500);
    EXPECT_EQ(
        answer.alert(),
        "The change could not be saved. The previous settings and contacts are still in use.");
    repairTheDisk();
    EXPECT_EQ(saved()->directory.find("Dora"), nullptr);
    EXPECT_EQ(me.submit("contacts-preview&q=apply").status, 303);
    EXPECT_NE(saved()->directory.find("Dora"), nullptr);
}
