#include "kit/actions.h"

#include <kit/testing/browser.h>

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>

using namespace kit::testing;

namespace {

class NotesPage final : public kit::ActionPage {
public:
    NotesPage() {
        show(&NotesPage::list);
        on("add", &NotesPage::add);
        on("remove", &NotesPage::remove);
        onUpload("import", &NotesPage::import);
        onGet("export", &NotesPage::sendAll);
        onGet("remove", &NotesPage::askToRemove);
    }

private:
    bool begin(kit::Request& request, kit::Response& response) override {
        if (request.isChecked("blocked")) {
            response.status(403).text("blocked");
            return false;
        }
        return true;
    }

    void list(kit::Request& request, kit::Response& response) {
        response.text("list " + kit::formToken(request, response));
    }
    void add(kit::Request&, kit::Response& response) { response.text("add"); }
    void remove(kit::Request&, kit::Response& response) { response.text("remove"); }
    void import(kit::Request& request, kit::Response& response) {
        char data[100];
        const int size = request.raw().receiveUploadData(data, sizeof data);
        response.text(kit::isFromForm(request)
                          ? "import " + std::string(data, static_cast<std::size_t>(size))
                          : "no token");
    }
    void sendAll(kit::Request&, kit::Response& response) { response.text("export"); }
    void askToRemove(kit::Request&, kit::Response& response) { response.text("ask"); }
};

// A page that cannot be shown.
class SinkPage final : public kit::ActionPage {
public:
    SinkPage() { on("", &SinkPage::take); }

private:
    void take(kit::Request&, kit::Response& response) { response.text("taken"); }
    void refuse(kit::Request&, kit::Response& response) override {
        response.status(403).text("own refusal");
    }
};

// A page that has only downloads and forms.
class DownloadsPage final : public kit::ActionPage {
public:
    DownloadsPage() { onGet("export", &DownloadsPage::sendAll); }

private:
    void sendAll(kit::Request&, kit::Response& response) { response.text("export"); }
};

template <typename Page>
HttpServlet* create() {
    return kit::newServlet(std::make_unique<Page>());
}

class PageActions : public testing::Test {
protected:
    PageActions() { token = browser.send(get("/servlet?p=n")).body.substr(5); }

    Response sent(const std::string& action, const std::string& withToken) {
        return browser.send(post("/servlet?p=n&q=" + action).form({{"token", withToken}}));
    }
    Response opened(const std::string& action) {
        return browser.send(get("/servlet?p=n&q=" + action));
    }

    ServletRunner notes{create<NotesPage>};
    Browser browser{notes};
    std::string token;
};

} // namespace

TEST_F(PageActions, AreChosenByTheirNames) {
    EXPECT_EQ(sent("add", token).body, "add");
    EXPECT_EQ(sent("remove", token).body, "remove");
    EXPECT_EQ(opened("export").body, "export");
    EXPECT_EQ(opened("remove").body, "ask") << "GET may mean something else";
    EXPECT_EQ(opened("").body, "list " + token);
}

TEST_F(PageActions, RequireTheToken) {
    for (const std::string& wrong : {std::string(), token + "0", std::string(32, '0')}) {
        const Response refused = sent("add", wrong);
        EXPECT_EQ(refused.status, 403);
        EXPECT_EQ(refused.body, "This form is out of date, so nothing was changed. Go back, reload "
                                "the page and send the form again.\n");
    }
}

TEST_F(PageActions, ThatChangeSomethingAreNotDoneByGet) {
    for (const char* action : {"add", "import"}) {
        EXPECT_EQ(opened(std::string(action) + "&token=" + token).body, "list " + token) << action;
        const Response head = browser.send(
            Request("HEAD", std::string("/servlet?p=n&q=") + action + "&token=" + token));
        EXPECT_EQ(head.body, "list " + token) << "the front server removes it";
    }
}

TEST_F(PageActions, ThatAreNotDeclaredAreNotFound) {
    for (const char* action : {"", "nonsense", "export", "Add", "add%00"}) {
        EXPECT_EQ(sent(action, token).status, 404) << action;
    }
    EXPECT_EQ(opened("nonsense").body, "list " + token);
}

TEST_F(PageActions, AllowNoOtherMethods) {
    for (const char* method : {"PUT", "DELETE", "get", "OPTIONS"}) {
        const Response refused = browser.send(Request(method, "/servlet?p=n&q=add&token=" + token));
        EXPECT_EQ(refused.status, 405) << method;
        EXPECT_EQ(refused.header("Allow"), "GET, HEAD, POST");
    }
}

TEST_F(PageActions, ReceiveUploadsBeforeTheyCheckTheToken) {
    const Request request = post("/servlet?p=n&q=import");
    const Part notes = file("notes", "a.txt", "abc");
    EXPECT_EQ(browser.send(request.multipart({field("token", token), notes})).body, "import abc");
    EXPECT_EQ(browser.send(request.multipart({notes})).body, "no token");
}

TEST_F(PageActions, WaitForWhatRunsBeforeThem) {
    EXPECT_EQ(sent("add&blocked=1", token).body, "blocked");
    EXPECT_EQ(opened("export&blocked=1").status, 403);
}

TEST(PageWithoutShow, AnswersPostOnly) {
    ServletRunner sink(create<SinkPage>);
    Browser browser(sink);
    const Response refused = browser.send(get("/servlet?p=n"));
    EXPECT_EQ(refused.status, 405);
    EXPECT_EQ(refused.header("Allow"), "POST");
    EXPECT_EQ(browser.send(post("/servlet?p=n")).body, "own refusal");
    const std::string token(32, 'a');
    EXPECT_EQ(browser.send(post("/servlet?p=n&token=" + token).cookie("formToken", token)).body,
              "taken");
}

TEST(PageWithoutShow, AnswersTheActionsOfGet) {
    ServletRunner downloads(create<DownloadsPage>);
    Browser browser(downloads);
    EXPECT_EQ(browser.send(get("/servlet?p=n&q=export")).body, "export");
    EXPECT_EQ(browser.send(Request("HEAD", "/servlet?p=n&q=export")).status, 200);
    EXPECT_EQ(browser.send(get("/servlet?p=n")).status, 405);
    EXPECT_EQ(browser.send(post("/servlet?p=n&q=export")).status, 404);
}

TEST(ActionsDeathTest, AreDeclaredOnce) {
    class TwicePage final : public kit::ActionPage {
    public:
        TwicePage() {
            on("add", &TwicePage::add);
            onUpload("add", &TwicePage::add);
        }
        void add(kit::Request&, kit::Response&) {}
    };
    EXPECT_DEATH(TwicePage(), "no name may be declared twice");
}
