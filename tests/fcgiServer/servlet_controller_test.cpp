#include "servlet_controller.h"

#include "cgi.h"
#include "http_request.h"
#include "http_response.h"
#include "http_session.h"
#include "listener_container.h"
#include "plugin/plugin_watch.h"
#include "plugin_loader.h"
#include "servlet_container.h"
#include "session_factory.h"
#include "support/controller_members.h"
#include "support/freed_storage.h"
#include "tmpl.h"
#include <kit/testing/recorded_log.h>
#include <kit/testing/request.h>
#include <kit/testing/test_clock.h>

#include "app_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace kit::testing;

constexpr int kEndModule = 3;

// The session of the request under test: its busy flag shows whether the request has been finished.
HttpSessionImpl* watchedSession = nullptr;

void noteEnd(const char* what) {
    const bool busy = watchedSession != nullptr && watchedSession->m_bInRequest;
    app_log(kEndModule, 6, "%s, session %s", what, busy ? "busy" : "idle");
}

// Called with the name of each parameter or cookie before it is looked up.
std::function<void(const char*)> onLookUp;

} // namespace

// Flushing the response ends with freeing the template's variables; deleting the request frees its
// two lists. The linker puts these in the place of the device's functions.
extern "C" {
void __real_TMPL_free_varlist(TMPL_varlist* list);
void __real_CGI_free_varlist(CGI_varlist* list);
char* __real_CGI_lookup(CGI_varlist* list, const char* name);

void __wrap_TMPL_free_varlist(TMPL_varlist* list) {
    noteEnd("response flushed");
    __real_TMPL_free_varlist(list);
}
void __wrap_CGI_free_varlist(CGI_varlist* list) {
    noteEnd("list of the request freed");
    __real_CGI_free_varlist(list);
}
char* __wrap_CGI_lookup(CGI_varlist* list, const char* name) {
    if (onLookUp)
        onLookUp(name);
    return __real_CGI_lookup(list, name);
}
}

namespace {

using plugin_watch::events;
using plugin_watch::messages;
using recorded_log::appLog;
using recorded_log::webDebug;
using Names = std::vector<std::string>;
using Records = std::vector<LogRecord>;

constexpr char kClient[] = "10.0.0.5";
const Names kAllListeners = {"A 1 onRequest", "B 1 onRequest", "C 1 onRequest"};
const LogRecord kNoPage = appLog(4, "ServletContext::doService() End. p parameter not found!\n");
const LogRecord kNoServlet = appLog(4, "ServletContainer::onRequest End.404\n");
const std::string kToSignIn = "Location: /servlet?p=login&q=loginForm&jumpto=status \r\n\r\n";

std::string redirect(const std::string& location) {
    return "Location: " + location + " \r\n\r\n";
}

// How a request ended, as its session and its objects show.
const Names kDropped = {"list of the request freed, session busy",
                        "list of the request freed, session busy"};
const Names kFinishedOnly = {"list of the request freed, session idle",
                             "list of the request freed, session idle"};
const Names kFlushedAndFinished = {"response flushed, session busy",
                                   "list of the request freed, session idle",
                                   "list of the request freed, session idle"};

Names ends() {
    Names result;
    for (const LogRecord& record : recorded_log::records())
        if (record.call == "app_log" && record.module == kEndModule)
            result.push_back(record.text);
    return result;
}

Names joined(Names first, const Names& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// A controller with the listeners A, B and C and the servlets "status", "notice" and "broken", a
// client with a session, and the requests of that client.
class Service : public testing::Test {
protected:
    Service() : m_controller(std::make_unique<ServletController>(SERVLET_XML)) {
        controller().init();
        m_listeners = std::make_unique<ListenersOf>(controller());
        std::string address = kClient;
        m_session = controller().getSessionFactory()->createSession(address);
        watchedSession = m_session;
        recorded_log::clear();
    }
    ~Service() override {
        watchedSession = nullptr;
        if (m_controller != nullptr)
            controller().destroy();
    }

    ServletController& controller() { return *m_controller; }
    HttpSessionImpl& session() { return *m_session; }
    void deleteController() {
        watchedSession = nullptr;
        m_controller.reset();
    }
    void* member(int index) const { return controllerMember(*m_controller, index); }
    std::int32_t& status() {
        return *reinterpret_cast<std::int32_t*>(reinterpret_cast<void**>(m_controller.get()) + 5);
    }

    // Serves a request of the client and returns the result; `output` contains the response.
    int serve(const Request& asked) {
        MemoryRequest request =
            asked.from(kClient).cookie("JSESSIONID", m_session->getId()).inMemory();
        test_clock::advanceSeconds(10);
        m_session->m_bInRequest = false;
        recorded_log::clear();
        const int result = controller().doService(request.get());
        output = request.out().text();
        // Serving a request begins by marking its session as busy.
        EXPECT_EQ(m_session->getLastAccessedTime(), test_clock::seconds() + 300);
        return result;
    }
    // Serves a GET request for this URI, with the URI's query or the given one.
    int get(const std::string& uri) { return serve(kit::testing::get(uri)); }
    int get(const std::string& uri, const std::string& query) {
        return serve(kit::testing::get(uri).variable("QUERY_STRING", query));
    }
    std::string statusWord() {
        char word[64] = {};
        controller().getStatus(word);
        return word;
    }

    // Serves a GET request. Returns the names that were looked up, each with the state of the
    // session and of the device at that time.
    Names lookUpsOf(const std::string& uri) {
        Names lookUps;
        onLookUp = [&](const char* name) {
            const char* state = session().m_bInRequest ? "busy" : "idle";
            lookUps.push_back(std::string(name) + ": session " + state + ", device " +
                              statusWord());
        };
        get(uri);
        onLookUp = nullptr;
        return lookUps;
    }

    void expectRefused(const std::string& uri) {
        SCOPED_TRACE(uri);
        EXPECT_EQ(get(uri), 404);
        EXPECT_EQ(output, "");
        EXPECT_EQ(ends(), kDropped);
        EXPECT_TRUE(session().m_bInRequest);
        EXPECT_EQ(events(), Names{});
    }
    void expectNoPage(const std::string& uri, const std::string& query) {
        SCOPED_TRACE(uri);
        EXPECT_EQ(get(uri, query), 404);
        EXPECT_EQ(output, "");
        EXPECT_EQ(ends(), kFinishedOnly);
        EXPECT_EQ(messages(), Records{kNoPage});
        EXPECT_EQ(recorded_log::records().back(), kNoPage); // when all is gone
        EXPECT_EQ(events(), Names{});
    }
    void expectRedirect(const std::string& uri, const std::string& expected) {
        SCOPED_TRACE(uri);
        EXPECT_EQ(get(uri), 200);
        EXPECT_EQ(output, expected);
        EXPECT_EQ(ends(), kFlushedAndFinished);
        EXPECT_EQ(messages(), Records{});
        EXPECT_EQ(events(), Names{});
    }
    void expectEvent(const std::string& uri, const std::string& query) {
        SCOPED_TRACE(uri);
        EXPECT_EQ(get(uri, query), 200);
        EXPECT_EQ(output, "\r\n");
        EXPECT_EQ(ends(), kFlushedAndFinished);
        EXPECT_EQ(messages(), Records{});
        EXPECT_EQ(events(), kAllListeners);
    }
    void expectEvent(const std::string& uri) { expectEvent(uri, uri.substr(uri.find('?') + 1)); }
    void expectPage(const std::string& uri) {
        SCOPED_TRACE(uri);
        EXPECT_EQ(get(uri), 200);
        EXPECT_EQ(output, "\r\n<page without text>");
        EXPECT_EQ(ends(), kFlushedAndFinished);
        EXPECT_EQ(messages(), Records{});
        EXPECT_EQ(events().back(), "page 1 service");
    }

    std::string output;

private:
    std::unique_ptr<ServletController> m_controller;
    HttpSessionImpl* m_session;
    std::unique_ptr<ListenersOf> m_listeners;
};

TEST_F(Service, ServesAPageByItsServletAfterAllListeners) {
    EXPECT_EQ(get("/servlet?p=status&text=hello"), 200);
    EXPECT_EQ(events(), joined(kAllListeners, {"page 1 created", "page 1 init", "page 1 service"}));
    EXPECT_EQ(output, "\r\n<page hello>");
    EXPECT_EQ(ends(), kFlushedAndFinished);
    EXPECT_EQ(messages(), Records{});
    EXPECT_FALSE(session().m_bInRequest);
    EXPECT_EQ(statusWord(), "idle");
}

TEST_F(Service, ReturnsTheResultOfTheServletContainer) {
    for (const char* page : {"unknown", "Status", "notices", "login"}) {
        SCOPED_TRACE(page);
        EXPECT_EQ(get(std::string("/servlet?p=") + page), 404);
        EXPECT_EQ(output, "\r\n");
        EXPECT_EQ(ends(), kFlushedAndFinished);
        EXPECT_EQ(messages(), Records{kNoServlet});
        EXPECT_EQ(events(), kAllListeners);
    }
}

TEST_F(Service, FindsNoServletForAnEmptyPage) {
    EXPECT_EQ(get("/servlet?p="), 404);
    ASSERT_EQ(messages().size(), 2u);
    EXPECT_EQ(messages()[0].text.find("ServletContainer::addServlet End1. id= m_loader=0x"), 0u);
    EXPECT_EQ(messages()[1], kNoServlet);
}

TEST_F(Service, ReadsThePageFromAForm) {
    EXPECT_EQ(serve(post("/servlet").form({{"p", "status"}})), 200);
    EXPECT_EQ(events().back(), "page 1 service");
}

TEST_F(Service, ServesRequestsOfClientsWithoutASession) {
    MemoryRequest request =
        kit::testing::get("/servlet?p=status").without("REMOTE_ADDR").inMemory();
    EXPECT_EQ(controller().doService(request.get()), 200);
    EXPECT_EQ(request.out().text(), "\r\n<page without text>");
}

TEST_F(Service, RefusesARequestWithNeitherPageNorEvent) {
    expectNoPage("/servlet?q=1", "q=1");
    expectNoPage("/servlet?q=1", "");
    expectNoPage("/servlet?", "");
    expectNoPage("/", "");
    // Only a prefix of the query makes an event.
    expectNoPage("/servlet?q=1&key=1", "q=1&key=1");
    expectNoPage("/servlet?q=csta", "q=csta");
    expectNoPage("/servlet?Key=1", "Key=1");
    expectNoPage("/servlet?server=1", "server=1");
    expectNoPage("/servlet?CSTA", "CSTA");
}

const char* const kEvents[] = {"key",    "number", "phonecfg", "redirectcall", "forward",
                               "Server", "push",   "download", "command"};

TEST_F(Service, EndsAnEventWithTheListeners) {
    for (const std::string event : kEvents) {
        expectEvent("/servlet?" + event + "=1");
        expectEvent("/servlet?" + event + "=1&p=status");
        expectEvent("/servlet?" + event + "=1&p=notice");
        expectEvent("/servlet?" + event + "=");
        expectEvent("/servlet?" + event);
        // The query may continue after the prefix, if the parameter comes from elsewhere.
        expectEvent("/servlet?" + event + "board=1&" + event + "=2");
    }
}

TEST_F(Service, SeesNoEventWithoutItsParameter) {
    for (const std::string event : kEvents) {
        const std::string query = event + "board=1";
        expectNoPage("/servlet?" + query, query);
        expectPage("/servlet?" + query + "&p=status");
        // Parameters of other events are ignored.
        const std::string other = event == "key" ? "&push=1" : "&key=1";
        expectNoPage("/servlet?" + query + other, query + other);
        // An incomplete prefix does not match.
        const std::string shorter = event.substr(0, event.size() - 1) + "=1&" + event + "=1";
        expectNoPage("/servlet?" + shorter, shorter);
    }
}

TEST_F(Service, TreatsEveryQueryThatBeginsWithCstaAsAnEvent) {
    for (const char* query : {"csta", "csta=1", "cstaX", "csta&p=status", "csta=1&p=notice"})
        expectEvent(std::string("/servlet?") + query);
}

TEST_F(Service, LetsAListenerEndARequest) {
    const LogRecord refused = appLog(4, "ListenerContainer::onRequest End.result = false\n");
    for (const char* query :
         {"p=status&refuse=B", "p=unknown&refuse=B", "p=notice&refuse=B", "key=1&refuse=B"}) {
        SCOPED_TRACE(query);
        EXPECT_EQ(get(std::string("/servlet?") + query), 200);
        EXPECT_EQ(events(), (Names{"A 1 onRequest", "B 1 onRequest"}));
        EXPECT_EQ(messages(), Records{refused});
        EXPECT_EQ(output, "\r\n<refused by B>");
        EXPECT_EQ(ends(), kFlushedAndFinished);
    }
}

TEST_F(Service, SendsFourOlderPagesToTheSignIn) {
    for (const std::string page : {
             "/cgi-bin/Velmoranix.acx?Id=1",
             "/cgi-bin/Velmoranix.acx?Id=7",
             "/cgi-bin/Quillpage.tpx?page=Status.htm",
             "/cgi-bin/Quillpage.tpx?page=Phone-Upgrade.htm",
         }) {
        expectRedirect(page, kToSignIn);
        expectRedirect(page + "&x=y", kToSignIn);
        expectRedirect(page + "0", kToSignIn);
        expectRedirect(page + "&p=status", kToSignIn);
        expectRedirect(page + "&key=1", kToSignIn);
    }
}

TEST_F(Service, RewritesTheOtherPagesOfTheOlderPrograms) {
    const std::pair<const char*, const char*> cases[] = {
        {"/cgi-bin/Quillpage.tpx?page=Home.htm", "/servlet?page=Home.htm"},
        {"/cgi-bin/Quillpage.tpx?page=status.htm", "/servlet?page=status.htm"},
        {"/cgi-bin/Quillpage.tpx", "/servlet"},
        {"/cgi-bin/Velmoranix.acx?Id=2", "/servlet?Id=2"},
        {"/cgi-bin/Velmoranix.acx?Id=", "/servlet?Id="},
        {"/cgi-bin/Velmoranix.acx?x=1&Id=1", "/servlet?x=1&Id=1"},
        // anywhere in the URI
        {"/x/cgi-bin/Velmoranix.acx?Id=1", "/x/servlet?Id=1"},
        {"//cgi-bin/Quillpage.tpx?page=Status.htm", "//servlet?page=Status.htm"},
        {"cgi-bin/Quillpage.tpx", "servlet"},
        {"/cgi-bin/Quillpage.tpxx", "/servletx"},
        // every occurrence, but only of the first program that occurs
        {"/cgi-bin/Quillpage.tpx?a=/cgi-bin/Quillpage.tpx", "/servlet?a=/servlet"},
        {"/cgi-bin/Velmoranix.acx?a=cgi-bin/Velmoranix.acxcgi-bin/Velmoranix.acx",
         "/servlet?a=servletservlet"},
        {"/cgi-bin/Velmoranix.acx?a=/cgi-bin/Quillpage.tpx", "/cgi-bin/Velmoranix.acx?a=/servlet"},
        // the result is not rewritten again
        {"/cgi-bin/Velmoranix.acx?a=cgi-bin/Vcgi-bin/Velmoranix.acx",
         "/servlet?a=cgi-bin/Vservlet"},
    };
    for (const auto& [uri, successor] : cases)
        expectRedirect(uri, redirect(successor));
}

TEST_F(Service, DoesNotRewriteWhatIsSpelledOtherwise) {
    for (const char* uri : {"/cgi-bin/quillpage.tpx?page=Home.htm", "/CGI-BIN/Velmoranix.acx?Id=1",
                            "/cgi-bin/Quillpage.tp", "/cgi-bin/other"}) {
        const char* mark = std::strchr(uri, '?');
        expectNoPage(uri, mark != nullptr ? mark + 1 : "");
    }
}

TEST_F(Service, RewritesTheFirst511CharactersOfALongUri) {
    const std::string program = "/cgi-bin/Quillpage.tpx?page=";
    for (const std::size_t length : {510u, 511u, 512u, 513u, 600u, 5000u}) {
        SCOPED_TRACE(length);
        const std::string uri = program + std::string(length - program.size(), 'a');
        const std::string kept = uri.substr(0, 511);
        expectRedirect(uri, redirect("/servlet?page=" + kept.substr(program.size())));
    }
    // The next URI does not see the rest of a long one.
    expectRedirect("/cgi-bin/Quillpage.tpx?page=b", redirect("/servlet?page=b"));
}

TEST_F(Service, DoesNotRewriteAnOlderProgramAfterThe511thCharacter) {
    const std::string program = "/cgi-bin/Quillpage.tpx";
    const std::string padding = "/servlet?p=unknown&x=";
    const auto uri = [&](std::size_t end) {
        return padding + std::string(end - padding.size() - program.size(), 'a') + program;
    };
    EXPECT_EQ(get(uri(511)), 200);
    EXPECT_EQ(output.find("Location: "), 0u);
    for (const std::size_t end : {512u, 513u, 600u, 5000u}) {
        SCOPED_TRACE(end);
        EXPECT_EQ(get(uri(end)), 404);
        EXPECT_EQ(messages(), Records{kNoServlet});
    }
}

TEST_F(Service, ServesAPageWithALongUri) {
    expectPage("/servlet?p=status&x=" + std::string(5000, 'a'));
}

TEST_F(Service, KeepsTheStatusWhenItRedirects) {
    get("/servlet?p=status&q=reboot");
    get("/cgi-bin/Velmoranix.acx?Id=1");
    get("/cgi-bin/Quillpage.tpx?now=true");
    EXPECT_EQ(statusWord(), "reboot");
}

TEST_F(Service, ReadsTheQueryFromTheTenthCharacterOn) {
    expectEvent("/abcdefghkey=1", "key=1");
    expectNoPage("/servlets?key=1", "key=1");
    expectNoPage("/cgi?key=1", "key=1");
    EXPECT_EQ(get("/xxxxxxxxp=settings-config&q=import", "p=status"), 200);
    EXPECT_EQ(statusWord(), "configration");
}

TEST_F(Service, TreatsTheQueryOfAShortUriAsEmpty) {
    for (const std::string uri : {"", "/", "/key", "key", "/servlet", "/servlet?"}) {
        SCOPED_TRACE(uri);
        get("/servlet?p=status&q=reboot");
        expectNoPage(uri, "key=1");
        EXPECT_EQ(statusWord(), "idle");
        EXPECT_EQ(get(uri, "p=status"), 200);
        EXPECT_EQ(events().back(), "page 1 service");
    }
}

TEST_F(Service, TreatsTheQueryOfARequestWithoutUriAsEmpty) {
    get("/servlet?p=status&q=reboot");
    EXPECT_EQ(serve(kit::testing::get("/servlet?p=status").without("REQUEST_URI")), 200);
    EXPECT_EQ(events().back(), "page 1 service");
    EXPECT_EQ(statusWord(), "idle");
    EXPECT_EQ(serve(kit::testing::get("/servlet?key=1").without("REQUEST_URI")), 404);
    EXPECT_EQ(messages(), Records{kNoPage});
}

TEST_F(Service, RefusesARequestWithoutAMethod) {
    EXPECT_EQ(serve(kit::testing::get("").without("REQUEST_URI").without("QUERY_STRING")), 404);
    MemoryRequest request =
        kit::testing::get("/servlet?p=status").without("REQUEST_METHOD").inMemory();
    recorded_log::clear();
    EXPECT_EQ(controller().doService(request.get()), 404);
    EXPECT_EQ(messages(), (Records{appLog(4, "HttpRequestImpl::init() End1\n"), kNoPage}));
}

TEST_F(Service, RefusesAUriWithMarkupOrScript) {
    for (const std::string uri :
         {"/servlet?p=status&q=%3Cb%3E", "/servlet?p=status&q=%3c", "/servlet?p=status&q=<",
          "/servlet?p=status&q=>", "/servlet?p=SCRIPTS", "/Script/servlet?p=status",
          "/cgi-bin/Velmoranix.acx?Id=1&script", "/cgi-bin/Quillpage.tpx?<", "/servlet?key=<"}) {
        expectRefused(uri);
        EXPECT_EQ(messages(), Records{appLog(3, "url = " + uri + ", include illegal char\n")});
    }
}

TEST_F(Service, RefusesIllegalParametersWithoutLogging) {
    for (const char* parameter :
         {"jumpto=a.b", "jumpto=a%20b", "jumpto=%2e", "jumpto=a/b", "acc=1a", "acc=a", "acc=5-",
          "acc=--5", "acc=1.0", "acc=%20", "acc=_", "model=x1", "model=1_", "model=-1-"}) {
        for (const char* rest : {"p=status", "p=notice", "key=1", "q=1"}) {
            expectRefused(std::string("/servlet?") + rest + "&" + parameter);
            EXPECT_EQ(messages(), Records{});
        }
    }
    for (const char* page : {"sta.tus", "sta%20tus", "../status", "status%0a"}) {
        expectRefused(std::string("/servlet?p=") + page);
        EXPECT_EQ(messages(), Records{});
    }
    expectRefused("/cgi-bin/Velmoranix.acx?Id=1&jumpto=a.b");
    expectRefused("/cgi-bin/Quillpage.tpx?page=Home.htm&acc=x");
}

TEST_F(Service, LogsOnlyTheUriWhenParametersAreIllegalToo) {
    const std::string uri = "/servlet?p=.&q=<&jumpto=.&acc=x&model=x";
    expectRefused(uri);
    EXPECT_EQ(messages(), Records{appLog(3, "url = " + uri + ", include illegal char\n")});
}

TEST_F(Service, AcceptsParametersOfPlainCharacters) {
    for (const char* parameter :
         {"jumpto=settings-upgrade_2", "jumpto=-_-", "jumpto=", "jumpto", "acc=12", "acc=-5",
          "acc=-", "acc=", "model=28", "model=-1", "model="})
        expectPage(std::string("/servlet?p=status&") + parameter);
}

TEST_F(Service, ScreensOnlyTheFirstValueAndOnlyItsFourParameters) {
    expectPage("/servlet?p=status&acc=1&acc=x");
    expectPage("/servlet?p=status&q=a.b&Acc=x&JUMPTO=.");
}

TEST_F(Service, KeepsTheStatusWhenItRefuses) {
    get("/servlet?p=status&q=reboot");
    get("/servlet?p=status&acc=x");
    get("/servlet?p=status&now=true&q=<");
    EXPECT_EQ(statusWord(), "reboot");
}

TEST_F(Service, SetsTheStatusFromARequestThatFindsNoPage) {
    get("/servlet?q=reboot");
    EXPECT_EQ(messages(), Records{kNoPage});
    EXPECT_EQ(statusWord(), "reboot");
    get("/servlet?key=1");
    EXPECT_EQ(statusWord(), "idle");
}

TEST_F(Service, SetsTheStatusFromAnEventWithoutItsParameter) {
    get("/servlet?keyboard=1&q=reboot");
    EXPECT_EQ(messages(), Records{kNoPage});
    EXPECT_EQ(statusWord(), "reboot");
    EXPECT_EQ(get("/servlet?pushed=1&now=true&p=status"), 200);
    EXPECT_EQ(statusWord(), "autoprovision");
}

TEST_F(Service, SetsTheStatusAfterItHasReadThePageAndBeforeItReadsAnEvent) {
    const Names first = {
        "JSESSIONID: session idle, device idle", "jumpto: session busy, device idle",
        "acc: session busy, device idle",        "p: session busy, device idle",
        "model: session busy, device idle",      "p: session busy, device idle",
    };
    const Names byListeners(3, "refuse: session busy, device reboot");
    EXPECT_EQ(lookUpsOf("/servlet?p=status&q=reboot"),
              joined(joined(first, byListeners),
                     {"p: session busy, device reboot", "text: session busy, device reboot"}));
    get("/servlet?p=status");
    EXPECT_EQ(lookUpsOf("/servlet?key=1&q=reboot"),
              joined(joined(first, {"key: session busy, device reboot"}), byListeners));
    get("/servlet?p=status");
    EXPECT_EQ(lookUpsOf("/servlet?csta&q=reboot"), joined(first, byListeners));
}

TEST_F(Service, AnswersANoticeWithTheStatusWord) {
    const std::pair<const char*, const char*> cases[] = {
        {"p=status", "idle"},
        {"p=status&reboot=true", "reboot"},
        {"p=status&q=reboot", "reboot"},
        {"p=settings-upgrade&q=reset", "reset"},
        {"p=settings-config&q=import", "configration"},
        {"p=settings-config&q=localconfig&type=import", "configration"},
        {"p=settings-config&q=localconfig&type=remove", "configration"},
        {"p=settings-config&q=import&x=1", "idle"},
    };
    for (const auto& [query, word] : cases) {
        SCOPED_TRACE(query);
        get(std::string("/servlet?") + query);
        for (int again = 0; again < 2; ++again) {
            EXPECT_EQ(get("/servlet?p=notice"), 200);
            EXPECT_EQ(output, std::string("ContentType: text/html \r\n\r\n") + word);
            EXPECT_EQ(ends(), kFlushedAndFinished);
            EXPECT_EQ(messages(), Records{});
            EXPECT_EQ(events(), kAllListeners);
        }
    }
}

TEST_F(Service, AnswersANoticeWithTheStatusAfterItsListeners) {
    const char* query = "q=reboot";
    plugin_watch::OnEvent otherRequest([&](const std::string& event) {
        if (event == "C 1 onRequest")
            controller().setStatus(query);
    });
    EXPECT_EQ(get("/servlet?p=notice"), 200);
    EXPECT_EQ(output, "ContentType: text/html \r\n\r\nreboot");
    query = "now=true";
    EXPECT_EQ(get("/servlet?p=notice"), 200);
    EXPECT_EQ(output, "\r\n<other without text>");
    query = "p=status";
    EXPECT_EQ(get("/servlet?p=notice"), 200);
    EXPECT_EQ(output, "ContentType: text/html \r\n\r\nidle");
}

TEST_F(Service, AnswersANoticeEvenWithWordsThatNoRequestSets) {
    for (const auto& [code, word] : {std::pair(4, "upgrade"), {6, "unkown"}, {-1, "unkown"}}) {
        status() = code;
        EXPECT_EQ(get("/servlet?p=notice"), 200);
        EXPECT_EQ(output, std::string("ContentType: text/html \r\n\r\n") + word);
    }
}

TEST_F(Service, PassesANoticeToItsServletDuringAutoprovisioning) {
    get("/servlet?p=status&now=true");
    EXPECT_EQ(statusWord(), "autoprovision");
    EXPECT_EQ(get("/servlet?p=notice"), 200);
    EXPECT_EQ(output, "\r\n<other without text>");
    EXPECT_EQ(events(),
              joined(kAllListeners, {"other 1 created", "other 1 init", "other 1 service"}));
    EXPECT_EQ(statusWord(), "autoprovision");
}

TEST_F(Service, AnswersOnlyThePageNamedExactlyNotice) {
    for (const char* page : {"notices", "Notice", "notic", "notice-"}) {
        EXPECT_EQ(get(std::string("/servlet?p=") + page), 404) << page;
        EXPECT_EQ(messages(), Records{kNoServlet}) << page;
    }
}

TEST_F(Service, DeletesTheRequestAndThenTheResponseOfEveryRequest) {
    for (const char* query : {"p=status", "p=unknown", "p=notice", "key=1", "q=1", "acc=x"}) {
        SCOPED_TRACE(query);
        MemoryRequest request = kit::testing::get(std::string("/servlet?") + query).inMemory();
        freed_storage::start();
        controller().doService(request.get());
        const std::vector<FreedStorage> freed = freed_storage::stop();
        const std::size_t first = freed_storage::indexOfSize(freed, sizeof(HttpRequestImpl));
        const std::size_t second = freed_storage::indexOfSize(freed, sizeof(HttpResponseImpl));
        EXPECT_LT(first, second);
        EXPECT_LT(second, freed.size());
    }
}

TEST_F(Service, SendsTheCookieOfASessionOnlyWhenAPageMakesOne) {
    get("/servlet?p=status");
    EXPECT_EQ(output.find("JSESSIONID"), std::string::npos);
    EXPECT_EQ(controller().getSessionFactory()->sessionNum(), 1);
}

// Writes a plug-in configuration with these elements; returns its path.
std::string configurationOf(const std::string& elements) {
    const std::string path = SCRATCH_FOLDER "/incomplete.xml";
    std::ofstream(path) << "<plugins path=\"" TEST_PLUGIN "\">" << elements << "</plugins>";
    return path;
}

bool isCompleteWith(const std::string& configuration) {
    ServletController controller(configuration.c_str());
    controller.init();
    const ListenersOf listeners(controller);
    return controller.isComplete();
}

TEST_F(Service, IsCompleteWithAllListeners) {
    EXPECT_TRUE(controller().isComplete());
    EXPECT_TRUE(isCompleteWith(configurationOf("")));
    EXPECT_TRUE(isCompleteWith(configurationOf("<listener createfunction='createA'/>")));
}

TEST_F(Service, IsIncompleteWithoutAListener) {
    EXPECT_FALSE(isCompleteWith(configurationOf("<listener createfunction='createA'/>"
                                                "<listener createfunction='createMissing'/>")));
    EXPECT_FALSE(isCompleteWith(configurationOf("<listener createfunction='createMissing'/>"
                                                "<listener createfunction='createA'/>")));
}

TEST_F(Service, IsIncompleteWithoutAConfiguration) {
    EXPECT_FALSE(isCompleteWith(SCRATCH_FOLDER "/missing.xml"));
}

using ServiceDeathTest = Service;

TEST_F(ServiceDeathTest, AbortsForANullRequest) {
    EXPECT_EXIT(controller().doService(nullptr), testing::KilledBySignal(SIGABRT),
                "servlet_controller.cpp:90: int ServletController::doService\\(FCGX_Request\\*\\): "
                "Assertion `frequest != __null' failed\\.");
}

TEST_F(Service, ExpiresNoSessionInOnTimer) {
    session().m_bInRequest = false;
    test_clock::advanceSeconds(1000);
    EXPECT_EQ(controller().onTimer(), 0);
    EXPECT_EQ(controller().getSessionFactory()->sessionNum(), 1);
    EXPECT_EQ(recorded_log::records(), Records{});
    controller().getSessionFactory()->onTimer();
    EXPECT_EQ(controller().getSessionFactory()->sessionNum(), 0);
    watchedSession = nullptr;
}

TEST_F(Service, DestroysServletsThenSessions) {
    get("/servlet?p=status");
    recorded_log::clear();
    EXPECT_EQ(controller().destroy(), 0);
    watchedSession = nullptr;
    EXPECT_EQ(recorded_log::records(),
              (Records{plugin_watch::event("page 1 destroy"), webDebug("setUser", "(null)")}));
    EXPECT_EQ(controller().getSessionFactory()->sessionNum(), 0);
}

TEST_F(Service, DropsItsListenersAfterTheServletsAndBeforeTheSessions) {
    get("/servlet?p=status");
    auto* servlets = static_cast<ServletContainer*>(member(1));
    const auto& listeners = *static_cast<std::list<void*>**>(member(2))[1];
    const void* const servlet = servlets->getServlet("status");
    const void* const listenerEntry = &listeners.front();
    const void* const lastSession = &session();
    watchedSession = nullptr;
    freed_storage::start();
    controller().destroy();
    const std::vector<FreedStorage> freed = freed_storage::stop();
    EXPECT_LT(freed_storage::indexOf(freed, servlet), freed_storage::indexOf(freed, listenerEntry));
    EXPECT_LT(freed_storage::indexOf(freed, listenerEntry),
              freed_storage::indexOf(freed, lastSession));
    EXPECT_LT(freed_storage::indexOf(freed, lastSession), freed.size());
}

TEST_F(Service, HasNoListenersAfterDestroyAndCreatesServletsAgain) {
    get("/servlet?p=status");
    EXPECT_EQ(controller().destroy(), 0);
    watchedSession = nullptr;
    MemoryRequest request = kit::testing::get("/servlet?p=status&refuse=A").inMemory();
    recorded_log::clear();
    EXPECT_EQ(controller().doService(request.get()), 200);
    EXPECT_EQ(events(), (Names{"page 2 created", "page 2 init", "page 2 service"}));
}

TEST_F(Service, IsDestroyedInTheOrderOfItsMembers) {
    controller().destroy();
    const void* const members[] = {member(0), member(1), member(2), member(3)};
    recorded_log::clear();
    std::vector<FreedStorage> freed;
    {
        plugin_watch::OnEvent markUnloading([](const std::string&) { freed_storage::mark(); });
        freed_storage::start();
        deleteController();
        freed = freed_storage::stop();
    }
    std::vector<std::size_t> order;
    for (const void* storage : members)
        order.push_back(freed_storage::indexOf(freed, storage));
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end())) << testing::PrintToString(order);
    EXPECT_LT(order.back(), freed.size());
    // The loader's destructor closes the library; its own storage is freed after that.
    const std::size_t unloading = freed_storage::indexOf(freed, nullptr);
    EXPECT_LT(order[2], unloading);
    EXPECT_LT(unloading, order[3]);
    EXPECT_EQ(events(), Names{"unloaded"});
}

TEST_F(Service, HasItsMembersInTheirPlaces) {
    const auto virtualTable = [](const void* object) { return *static_cast<void* const*>(object); };
    const SessionFactory sessions;
    const ServletContainer servlets;
    const ListenerContainer listeners;
    const PluginLoader loader("");
    EXPECT_EQ(member(0), controller().getSessionFactory());
    EXPECT_EQ(virtualTable(member(0)), virtualTable(&sessions));
    EXPECT_EQ(virtualTable(member(1)), virtualTable(&servlets));
    EXPECT_EQ(virtualTable(member(2)), virtualTable(&listeners));
    EXPECT_EQ(virtualTable(member(3)), virtualTable(&loader));
    controller().setStatus("q=reset");
    EXPECT_EQ(status(), 0);
    controller().setStatus("p=settings-upgrade&q=reset");
    EXPECT_EQ(status(), 2);
}

TEST(ServiceStart, ReadsTheConfigurationFirstAndCreatesTheListenersInInit) {
    recorded_log::clear();
    ServletController controller(SERVLET_XML);
    const Records constructed = recorded_log::records();
    ASSERT_FALSE(constructed.empty());
    EXPECT_EQ(constructed.front(),
              webDebug("info", "PluginLoader::loadConfigFile Begin.configfile =" SERVLET_XML));
    EXPECT_EQ(constructed.back(), webDebug("info", "PluginLoader::init End"));
    EXPECT_EQ(events(), Names{});

    // A status for init() to reset.
    controller.setStatus("q=reboot");
    recorded_log::clear();
    controller.init();
    char word[64] = {};
    controller.getStatus(word);
    EXPECT_STREQ(word, "idle");
    EXPECT_EQ(recorded_log::records(),
              (Records{plugin_watch::event("A 1 created"), plugin_watch::event("A 1 init"),
                       plugin_watch::event("B 1 created"), plugin_watch::event("B 1 init"),
                       plugin_watch::event("C 1 created"), plugin_watch::event("C 1 init")}));

    const ListenersOf listeners(controller);
    controller.destroy();
}

} // namespace
