// The phone's own pages for errors: forbidden, not found, failed.
#include "phone_test.h"

using kit::testing::Browser;
using ErrorPage = SignedInFixture;

namespace {

const std::string kPlain = "text/plain; charset=utf-8";

// Expects the page with this status and these texts, with the navigation of signed-in users.
void expectInFrame(const Answer& answer, int status, const std::string& alert) {
    EXPECT_EQ(answer.status, status);
    EXPECT_EQ(answer.header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(answer.header("Cache-Control"), "no-store");
    EXPECT_EQ(answer.alert(), alert);
    EXPECT_TRUE(answer.leadsTo("/servlet?p=audio")) << "the navigation";
    EXPECT_TRUE(answer.leadsTo("/servlet?p=status"));
}

// Expects the page with this status and these texts, as strangers see the phone.
void expectOutside(const Answer& answer, int status, const std::string& alert) {
    EXPECT_EQ(answer.status, status);
    EXPECT_EQ(answer.header("Content-Type"), "text/html; charset=utf-8");
    EXPECT_EQ(answer.alert(), alert);
    EXPECT_FALSE(answer.leadsTo("/servlet?p=audio")) << "the navigation";
    EXPECT_FALSE(answer.field("token"));
    EXPECT_TRUE(answer.leadsTo("/servlet?p=language&to=de&back=login"));
}

Request inGerman(const std::string& address) {
    return get(address).header("Accept-Language", "de-AT");
}

Request fromOtherSite(Request request) {
    return request.header("Sec-Fetch-Site", "cross-site");
}

constexpr const char* kFault = "The phone could not complete the request. If you were changing "
                               "something, check whether the change was made.";

TEST_F(ErrorPage, AnswersAnActionThatAPageDoesNotHave) {
    for (const char* page :
         {"contacts", "security", "settings-config", "settings-upgrade", "log"}) {
        const Answer answer = me.submit(std::string(page) + "&q=nonsense");
        expectInFrame(answer, 404, "This page does not have that action, so nothing was changed.");
        EXPECT_EQ(answer.title(), "Unknown action");
    }
}

TEST_F(ErrorPage, AnswersASignOutWithoutTheToken) {
    const Answer answer = me.submitWithoutToken("login&q=logout");
    expectInFrame(answer, 403,
                  "This request did not come from a form of your current session, so "
                  "nothing was changed.");
    EXPECT_EQ(me.page("status").status, 200) << "still signed in";
}

TEST_F(ErrorPage, AnswersARequestThatFailed) {
    expectInFrame(me.page("unguarded&fail=1"), 500, kFault);
    EXPECT_EQ(me.page("unguarded").body, "shown");
}

TEST_F(ErrorPage, KeepsWhatWasEnteredInAFormThatFailed) {
    const std::string kept = " data-interrupted>";
    EXPECT_NE(me.submit("unguarded&fail=1").body.find(kept), std::string::npos);
    EXPECT_EQ(me.page("unguarded&fail=1").body.find(kept), std::string::npos);
}

TEST_F(ErrorPage, AnswersRequestsThatOtherSitesCaused) {
    const Request forged = fromOtherSite(post("/servlet?p=audio&q=save"));
    Visitor stranger(*container);
    for (Visitor* visitor : {&me, &stranger}) {
        const Answer answer = visitor->send(forged);
        expectOutside(answer, 403, "Another web site caused this request, so nothing was changed.");
        EXPECT_EQ(answer.body.find(me.token()), std::string::npos);
        EXPECT_TRUE(answer.leadsTo("/servlet?p=status"));
    }
}

TEST_F(ErrorPage, SpeaksTheLanguageOfTheRequest) {
    EXPECT_EQ(me.send(inGerman("/servlet?p=unguarded&fail=1")).alert(),
              "Das Telefon konnte die Anfrage nicht ausführen. Falls Sie etwas ändern wollten, "
              "prüfen Sie, ob die Änderung übernommen wurde.");
    const Request forged = fromOtherSite(post("/servlet?p=audio"));
    EXPECT_EQ(Visitor(*container).send(Request(forged).header("Accept-Language", "zh-CN")).alert(),
              "该请求由其他网站发起，因此未作任何更改。");
    const Answer chosen = me.send(Request(forged).cookie("lang", "de"));
    EXPECT_EQ(chosen.language(), "de");
    EXPECT_NE(chosen.body.find("lang=\"de\" hreflang=\"de\" aria-current=\"true\""),
              std::string::npos);
}

TEST_F(ErrorPage, IsPlainTextForScripts) {
    const Answer polled =
        me.send(fromOtherSite(get("/servlet?p=status-data").header("Sec-Fetch-Mode", "cors")));
    EXPECT_EQ(polled.status, 403);
    EXPECT_EQ(polled.header("Content-Type"), kPlain);
    const Answer event = me.send(fromOtherSite(get("/servlet?key=OK")));
    EXPECT_EQ(event.status, 403);
    EXPECT_EQ(event.body, "Refused, because another site caused this request.\n");
    const Answer method = me.send(Request("PUT", "/servlet?p=contacts"));
    EXPECT_EQ(method.status, 405);
    EXPECT_EQ(method.header("Content-Type"), kPlain);
}

TEST_F(ErrorPage, IsPlainTextUnderANameThatIsNotThePhones) {
    const Answer answer = Visitor(*container, "192.0.2.7", "rebound.example").page("status");
    EXPECT_EQ(answer.status, 421);
    EXPECT_EQ(answer.header("Content-Type"), kPlain);
}

TEST_F(ErrorPage, IsPlainTextWithoutItsTemplate) {
    const Answer answer(
        Browser(*container).send(get(kSignInForm).variable("DOCUMENT_ROOT", "/nonexistent")));
    EXPECT_EQ(answer.status, 500);
    EXPECT_EQ(answer.body, "The page failed; the device's log says why.\n");
}

} // namespace
