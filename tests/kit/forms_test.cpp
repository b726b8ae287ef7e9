#include "served.h"

#include "kit/forms.h"
#include "kit/sign_in.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace kit::testing;

namespace {

// A page with a form, which may have a user signed in.
class FormPage {
public:
    kit::SignIns signIns;
    Served served{
        [this](kit::Request& request, kit::Response& response) { answer(request, response); }};
    Browser& browser = served.browser;

    // Returns the token in the form.
    std::string token(Browser& visitor) { return visitor.send(get("/servlet?p=f")).body; }
    std::string token() { return token(browser); }
    // Returns what the page says to a form that was sent with this token.
    std::string answerTo(const std::string& sent, Browser& visitor) {
        return visitor.send(post("/servlet?p=f&q=send").form({{"token", sent}})).body;
    }
    std::string answerTo(const std::string& sent) { return answerTo(sent, browser); }

private:
    void answer(kit::Request& request, kit::Response& response) {
        const auto action = request.parameter("q");
        if (action == "in") {
            signIns.start(request, response, "ann");
        } else if (action == "out") {
            signIns.end(request);
            response.text(kit::formToken(request, response));
        } else {
            signIns.find(request);
            response.text(action == "send" ? kit::isFromForm(request) ? "done" : "refused"
                                           : kit::formToken(request, response));
        }
    }
};

// Returns the variables as a template shows them.
Response shown(const Request& request, FunctionPage::Answer answer) {
    return answerTo(request.variable("DOCUMENT_ROOT", KIT_TEST_DOCUMENT_ROOT), std::move(answer));
}

Response shownForm(const Fields& fields, const std::function<void(kit::Form&)>& read) {
    return shown(post("/servlet?p=x").form(fields),
                 [&](kit::Request& request, kit::Response& response) {
                     kit::Form form(request);
                     read(form);
                     response.show("form.html", form.fill(kit::Variables()));
                 });
}

} // namespace

TEST(FormToken, IsACookieThatScriptsAndOtherSitesCannotUse) {
    FormPage page;
    const Response response = page.browser.send(get("/servlet?p=f"));
    const auto cookie = response.cookie("formToken");
    ASSERT_TRUE(cookie);
    EXPECT_EQ(cookie->value, response.body);
    EXPECT_TRUE(kit::isRandomToken(cookie->value));
    EXPECT_TRUE(cookie->attribute("HttpOnly"));
    EXPECT_EQ(cookie->attribute("SameSite"), "Strict");
    EXPECT_EQ(cookie->attribute("Path"), "/");
    EXPECT_FALSE(cookie->attribute("Secure")) << "it would not be sent over HTTP";
    EXPECT_EQ(page.served.runner.sessionCount(), 0) << "a form needs no session";
}

TEST(FormToken, IsSecureOverHttps) {
    FormPage page;
    const Response response = page.browser.send(get("/servlet?p=f").variable("HTTPS", "on"));
    EXPECT_TRUE(response.cookie("formToken")->attribute("Secure"));
}

TEST(FormToken, IsRequiredForEveryChange) {
    FormPage page;
    Browser other(page.served.runner);
    const std::string token = page.token();
    const std::string foreign = page.token(other);
    EXPECT_EQ(page.answerTo(token), "done");
    const Request sent = post("/servlet?p=f&q=send");
    EXPECT_EQ(page.browser.send(post("/servlet?p=f&q=send&token=" + token)).body, "done");
    EXPECT_EQ(page.browser.send(sent.multipart({field("token", token)})).body, "refused")
        << "before the upload has been received";
    EXPECT_EQ(page.browser.send(get("/servlet?p=f&q=send&token=" + token)).body, "refused");
    EXPECT_EQ(page.browser.send(sent).body, "refused");
    for (const std::string& wrong :
         {foreign, std::string(), token.substr(1), token + "0", std::string(32, '0')}) {
        EXPECT_EQ(page.answerTo(wrong), "refused") << wrong;
    }
}

// The attack: a form without a token meets a browser without a cookie, or with one of another
// program on the same device.
TEST(FormToken, IsNeverAnEmptyOrForeignText) {
    FormPage page;
    Browser fresh(page.served.runner);
    EXPECT_EQ(page.answerTo("", fresh), "refused");
    for (const char* cookie : {"", "1", "0123456789ABCDEF0123456789ABCDEF"}) {
        const Request sent = post("/servlet?p=f&q=send").cookie("formToken", cookie);
        EXPECT_EQ(page.served.runner.serve(sent.form({{"token", cookie}})).body, "refused");
        const Response repaired =
            page.served.runner.serve(get("/servlet?p=f").cookie("formToken", cookie));
        EXPECT_TRUE(kit::isRandomToken(repaired.body)) << repaired.body;
        EXPECT_TRUE(repaired.cookie("formToken"));
    }
}

TEST(FormToken, IsTheSameInEveryWindowOfABrowser) {
    FormPage page;
    const std::string token = page.token();
    const Response second = page.browser.send(get("/servlet?p=f"));
    EXPECT_EQ(second.body, token);
    EXPECT_TRUE(second.cookies().empty());
}

TEST(FormToken, IsTheSameForAllFormsOfAResponse) {
    const Response response =
        answerTo(get("/servlet?p=x"), [](kit::Request& request, kit::Response& out) {
            const std::string first = kit::formToken(request, out);
            EXPECT_EQ(kit::formToken(request, out), first);
            out.text("both");
        });
    EXPECT_EQ(response.cookies().size(), 1u);
}

TEST(FormToken, ComesWithANewSession) {
    const Response response =
        answerTo(get("/servlet?p=x"), [](kit::Request& request, kit::Response& out) {
            request.createSession();
            out.text(kit::formToken(request, out));
        });
    EXPECT_TRUE(response.cookie("JSESSIONID"));
    ASSERT_TRUE(response.cookie("formToken"));
    EXPECT_EQ(response.cookie("formToken")->value, response.body);
}

TEST(FormToken, IsThatOfTheSignInForItsUser) {
    FormPage page;
    const std::string before = page.token();
    page.browser.send(post("/servlet?p=f&q=in"));
    const Response form = page.browser.send(get("/servlet?p=f"));
    EXPECT_NE(form.body, before);
    EXPECT_TRUE(form.cookies().empty()) << "it is not in a cookie, which others might set";
    EXPECT_EQ(page.answerTo(form.body), "done");
    EXPECT_EQ(page.answerTo(before), "refused");
}

TEST(FormToken, IsTheBrowsersAgainAfterSigningOut) {
    FormPage page;
    const std::string before = page.token();
    page.browser.send(post("/servlet?p=f&q=in"));
    const std::string ofSignIn = page.token();
    EXPECT_EQ(page.browser.send(post("/servlet?p=f&q=out")).body, before);
    EXPECT_EQ(page.answerTo(ofSignIn), "refused");
    EXPECT_EQ(page.answerTo(before), "done");
}

// An upload takes time, in which the user may be signed out.
TEST(FormToken, IsRefusedOnceTheSignInHasEnded) {
    FormPage page;
    page.browser.send(post("/servlet?p=f&q=in"));
    const std::string token = page.token();
    Served receiver([&](kit::Request& request, kit::Response& response) {
        page.signIns.start(request, response, "ann");
        const std::string own = page.signIns.find(request)->token;
        EXPECT_EQ(kit::formToken(request, response), own);
        Served([&](kit::Request& other, kit::Response&) {
            page.signIns.endOthers(other);
        }).browser.send(post("/servlet?p=x"));
        EXPECT_FALSE(page.signIns.find(request));
        EXPECT_NE(kit::formToken(request, response), own);
    });
    receiver.browser.send(post("/servlet?p=x"));
}

TEST(Form, ShowsWhatWasEntered) {
    const Response page = shownForm(
        {{"name", "<Ann>"}, {"count", "3"}, {"size", "big"}, {"on", ""}}, [](kit::Form& form) {
            EXPECT_EQ(*form.text("name", 1, 9), "<Ann>");
            EXPECT_EQ(*form.number("count", 1, 5), 3);
            EXPECT_EQ(*form.choice("size", {"small", "big"}), "big");
            EXPECT_TRUE(form.isChecked("on"));
            EXPECT_FALSE(form.isChecked("off"));
            EXPECT_TRUE(form.isValid());
        });
    EXPECT_EQ(page.body, "errors:\nname=&lt;Ann&gt;:\ncount=3:\nsize=big:\non=1:\noff=:\n");
}

TEST(Form, ShowsWhatIsWrong) {
    const Response page =
        shownForm({{"name", ""}, {"count", "<b>"}, {"size", "huge"}}, [](kit::Form& form) {
            EXPECT_EQ(form.text("name", 1, 9).problem(), kit::Problem::Missing);
            EXPECT_EQ(form.number("count", 1, 5).problem(), kit::Problem::NotANumber);
            EXPECT_FALSE(form.choice("size", {"small", "big"}));
            EXPECT_FALSE(form.isValid());
        });
    EXPECT_EQ(page.body, "errors:3\nname=:is missing\ncount=&lt;b&gt;:is not a whole number\n"
                         "size=huge:is not one of the allowed values\non=:\noff=:\n");
}

TEST(Form, ShowsTheReasonsOfThePage) {
    const Response page = shownForm({{"name", "Ann"}, {"count", "9"}}, [](kit::Form& form) {
        form.text("name", 1, 9);
        form.number("count", 1, 5);
        form.reject("name", "is <taken>");
        form.reject("count", "is odd");
        form.reject("unread", "is not known");
        EXPECT_FALSE(form.isValid());
    });
    EXPECT_EQ(page.body, "errors:2\nname=Ann:is &lt;taken&gt;\ncount=9:is too large\nsize=:\n"
                         "on=:\noff=:\n");
}

TEST(Form, DoesNotSendPasswordsBack) {
    const Response page = shownForm({{"name", "open sesame"}}, [](kit::Form& form) {
        EXPECT_EQ(*form.password("name", 1, 20), "open sesame");
        EXPECT_EQ(form.password("name", 1, 5).problem(), kit::Problem::TooLong);
    });
    EXPECT_EQ(page.body.find("sesame"), std::string::npos) << page.body;
    EXPECT_NE(page.body.find("name=:is too long"), std::string::npos) << page.body;
}

TEST(Form, ReplacesTheStoredValues) {
    const Response page = shown(post("/servlet?p=x").form({{"name", "new"}}),
                                [](kit::Request& request, kit::Response& response) {
                                    kit::Variables variables;
                                    variables.set("name", "old").set("on", "1").set("size", "big");
                                    kit::Form form(request);
                                    form.text("name", 1, 9);
                                    form.isChecked("on");
                                    form.fill(variables);
                                    response.show("form.html", std::move(variables));
                                });
    EXPECT_EQ(page.body, "errors:\nname=new:\ncount=:\nsize=big:\non=:\noff=:\n");
}
