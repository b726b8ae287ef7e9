#include "pages/contacts_preview_page.h"
#include "pages/notice_page.h"
#include "pages/session_page.h"
#include "pages/status_page.h"
#include "pages/upgrade_page.h"
#include "visitor.h"

#include <fstream>
#include <gtest/gtest.h>

namespace {

class Pages : public ::testing::Test {
protected:
    Pages() { visitor.signIn(); }

    phone::Phone phone;
    FakeSessions sessions;
    Visitor visitor{phone, sessions};
    phone::StatusPage status{phone};
    phone::SessionPage session{phone};
    phone::NoticePage notice{phone};
    phone::ContactsPreviewPage contacts{phone};
    phone::UpgradePage upgrade{phone, "/nonexistent/firmware.img"};
};

} // namespace

TEST_F(Pages, SendStrangersToTheSignInForm) {
    Visitor stranger(phone, sessions);
    for (HttpServlet* page :
         std::initializer_list<HttpServlet*>{&status, &session, &contacts, &upgrade}) {
        const Answer answer = stranger.get(*page, "/servlet?p=x");
        EXPECT_EQ(answer.status, "303");
        EXPECT_EQ(answer.location, "/servlet?p=login&q=loginForm");
        EXPECT_EQ(answer.page, "");
    }
}

TEST_F(Pages, TellTheBrowserWhatTheyAreAndWhatItMustNotDo) {
    const Answer answer = visitor.get(status, "/servlet?p=status");
    EXPECT_EQ(answer.headers.at("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(answer.headers.at("Cache-Control"), "no-store");
    EXPECT_EQ(answer.headers.at("X-Content-Type-Options"), "nosniff");
    EXPECT_EQ(answer.headers.at("Content-Security-Policy").rfind("default-src 'self';", 0), 0u);
}

TEST_F(Pages, HaveTheirTemplates) {
    const Answer answers[] = {
        visitor.get(status, "/servlet?p=status"),
        visitor.get(session, "/servlet?p=session"),
        visitor.get(contacts, "/servlet?p=contacts-preview"),
        visitor.get(upgrade, "/servlet?p=settings-upgrade"),
        visitor.get(upgrade, "/servlet?p=settings-upgrade&q=reboot"),
        visitor.post(upgrade, "/servlet?p=settings-upgrade&q=reboot" + visitor.token()),
        visitor.signIn("user=admin&password=wrong"),
    };
    for (const Answer& answer : answers) {
        ASSERT_NE(answer.page, "");
        EXPECT_TRUE(std::ifstream(TEMPLATES + answer.page).good()) << answer.page;
    }
}

TEST_F(Pages, ShowTheUserAndTheTokenOfTheirForms) {
    for (HttpServlet* page :
         std::initializer_list<HttpServlet*>{&status, &session, &contacts, &upgrade}) {
        const Answer answer = visitor.get(*page, "/servlet?p=x");
        EXPECT_EQ(answer.variable("user"), "admin");
        EXPECT_EQ("&token=" + answer.variable("token"), visitor.token());
    }
}

TEST_F(Pages, ShowThePhonesStatus) {
    const Answer answer = visitor.get(status, "/servlet?p=status");
    EXPECT_EQ(answer.page, "status.html");
    EXPECT_EQ(answer.devtype, phone.device.model());
    EXPECT_EQ(answer.variable("firmware"), phone.device.firmware());
    EXPECT_NE(answer.variable("uptime"), "");
    ASSERT_EQ(answer.rows("lines").size(), phone.device.lines().size());
    EXPECT_EQ(answer.rows("lines")[0].at("number"), phone.device.lines()[0].number);
    EXPECT_EQ(answer.rows("interfaces").size(), phone.device.networkInterfaces().size());
    EXPECT_TRUE(answer.rows("events").empty());
    EXPECT_EQ(answer.variable("eventsCount"), "");
}

TEST_F(Pages, ShowRecentEvents) {
    phone.events.add("key", "OK", "192.0.2.7", 0);
    phone.events.add("number", "<b>123</b>", "192.0.2.8", 86400);
    const Answer answer = visitor.get(status, "/servlet?p=status");
    ASSERT_EQ(answer.rows("events").size(), 2u);
    EXPECT_EQ(answer.variable("eventsCount"), "2");
    const TemplateRow& newest = answer.rows("events")[0];
    EXPECT_EQ(newest.at("name"), "number");
    EXPECT_EQ(newest.at("value"), "<b>123</b>"); // the template escapes it
    EXPECT_EQ(newest.at("from"), "192.0.2.8");
    EXPECT_EQ(newest.at("time").substr(0, 5), "1970-");
}

TEST_F(Pages, ShowTheSession) {
    const Answer answer = visitor.get(session, "/servlet?p=session");
    EXPECT_EQ(answer.page, "session.html");
    EXPECT_EQ(answer.variable("created"), "1300");
    EXPECT_EQ(answer.variable("accessed"), "1305");
    EXPECT_EQ(answer.variable("interval"), "180");
    const std::vector<TemplateRow> attributes = {
        {{"name", "user"}, {"value", "admin"}},
        {{"name", "role"}, {"value", "administrator"}},
        {{"name", "language"}, {"value", "English"}},
    };
    EXPECT_EQ(answer.rows("attributes"), attributes);
}

TEST_F(Pages, ShowTooLittleOfTheSessionIdToTakeItOver) {
    const Answer answer = visitor.get(session, "/servlet?p=session");
    EXPECT_EQ(answer.variable("id"), visitor.sessionId.substr(0, 4));
}

TEST_F(Pages, AnswerWithTheMaintenanceWordWhileProvisioning) {
    Visitor stranger(phone, sessions);
    const Answer answer = stranger.get(notice, "/servlet?p=notice");
    EXPECT_EQ(answer.body, "autoprovision");
    EXPECT_EQ(answer.headers.at("Content-Type"), "text/html; charset=utf-8");
}

TEST_F(Pages, PreviewContacts) {
    const Answer answer =
        visitor.post(contacts, "/servlet?p=contacts-preview&q=preview" + visitor.token(),
                     "contacts=Ann,1001\nBen,1002");
    EXPECT_EQ(answer.page, "contacts.html");
    ASSERT_EQ(answer.rows("contacts").size(), 2u);
    EXPECT_EQ(answer.rows("contacts")[1].at("name"), "Ben");
    EXPECT_EQ(answer.rows("contacts")[1].at("number"), "1002");
    EXPECT_EQ(visitor.get(contacts, "/servlet?p=contacts-preview").rows("contacts").size(), 2u);
}

TEST_F(Pages, DropThePreviewWhenTheyAreTold) {
    const std::string uri = "/servlet?p=contacts-preview&q=preview" + visitor.token();
    visitor.post(contacts, uri, "contacts=Ann,1001");
    contacts.destroy();
    EXPECT_TRUE(visitor.get(contacts, "/servlet?p=contacts-preview").rows("contacts").empty());
    EXPECT_EQ(visitor.post(contacts, uri, "contacts=Ann,1001").rows("contacts").size(), 1u);
}

TEST_F(Pages, KeepThePreviewWhenAnotherSiteSendsOne) {
    const std::string uri = "/servlet?p=contacts-preview&q=preview";
    visitor.post(contacts, uri + visitor.token(), "contacts=Ann,1001");
    EXPECT_EQ(visitor.post(contacts, uri, "contacts=Eve,1").status, "403");
    const Answer answer = visitor.get(contacts, "/servlet?p=contacts-preview");
    ASSERT_EQ(answer.rows("contacts").size(), 1u);
    EXPECT_EQ(answer.rows("contacts")[0].at("name"), "Ann");
}
