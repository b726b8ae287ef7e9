// How a request decodes cookies, form, query and uploads, and finds its session.
#include "http_request.h"
#include "http_response.h"
#include "http_session.h"
#include "recorded_device.h"
#include "session_factory.h"
#include <kit/testing/memory_stream.h>
#include <kit/testing/recorded_log.h>
#include <kit/testing/test_clock.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using namespace kit::testing;

using Calls = std::vector<std::string>;
using Logs = std::vector<LogRecord>;
using recorded_device::answers;
using recorded_device::calls;
using recorded_device::nameOf;

// Makes one request at a time, and records its calls of the device.
class RequestFixture : public testing::Test {
protected:
    RequestFixture() {
        recorded_device::reset();
        recorded_log::clear();
    }
    ~RequestFixture() override {
        m_request.reset();
        m_factory.destory();
    }

    template <class Request = HttpRequestImpl>
    Request& receive(std::vector<std::string> environment, const std::string& body = "") {
        m_request.reset();
        m_fcgi = std::make_unique<MemoryRequest>(std::move(environment), body);
        recorded_device::name(m_fcgi->in().stream(), "the body");
        m_response = std::make_unique<HttpResponseImpl>(m_fcgi->get());
        auto request = std::make_unique<Request>(m_fcgi->get(), &m_factory, m_response.get());
        Request& received = *request;
        m_request = std::move(request);
        return received;
    }
    void finishRequest() { m_request.reset(); }

    // Returns the calls since the last time.
    Calls newCalls() {
        const Calls all = calls();
        Calls fresh(all.begin() + static_cast<std::ptrdiff_t>(m_seen), all.end());
        m_seen = all.size();
        return fresh;
    }
    std::string sentHeaders() {
        m_response->commitHeader();
        return m_fcgi->out().text();
    }

    SessionFactory m_factory;
    std::unique_ptr<MemoryRequest> m_fcgi;
    std::unique_ptr<HttpResponseImpl> m_response;
    std::unique_ptr<HttpRequestImpl> m_request;

private:
    std::size_t m_seen = 0;
};

using RequestDecoding = RequestFixture;

TEST_F(RequestDecoding, ReadsCookiesThenTheFormThenTheQueryThenLooksForTheSession) {
    answers().cookies = {{"c", "3"}};
    answers().formFields = {{"a", "1"}};
    answers().queryFields = {{"b", "2"}};
    receive({"REQUEST_METHOD=POST", "HTTP_COOKIE=c=3", "QUERY_STRING=b=2", "CONTENT_LENGTH=3",
             "CONTENT_TYPE=application/x-www-form-urlencoded"},
            "a=1");
    EXPECT_EQ(calls(), (Calls{
                           "CGI_get_cookie(null, 'c=3') = list 1",
                           "CGI_get_post(null, 'application/x-www-form-urlencoded', 3, the body)"
                           " = list 2",
                           "CGI_decode_query(list 2, 'b=2') = list 3",
                           "CGI_lookup(list 1, 'JSESSIONID')",
                       }));
}

TEST_F(RequestDecoding, CallsTheDeviceEvenWhenTheClientSentNothing) {
    receive({"REQUEST_METHOD=POST"});
    EXPECT_EQ(calls(), (Calls{
                           "CGI_get_cookie(null, null) = null",
                           "CGI_get_post(null, null, 0, the body) = null",
                           "CGI_decode_query(null, null) = null",
                           "CGI_lookup(null, 'JSESSIONID')",
                       }));
}

TEST_F(RequestDecoding, ReadsABodyOnlyForTheMethodPostInCapitals) {
    for (const char* method :
         {"GET", "HEAD", "PUT", "post", "Post", "POS", "POSTS", " POST", "POST ", ""}) {
        recorded_device::reset();
        receive({std::string("REQUEST_METHOD=") + method, "HTTP_COOKIE=c=3", "QUERY_STRING=b=2",
                 "CONTENT_LENGTH=3"},
                "a=1");
        EXPECT_EQ(calls(), (Calls{
                               "CGI_get_cookie(null, 'c=3') = null",
                               "CGI_decode_query(null, 'b=2') = null",
                               "CGI_lookup(null, 'JSESSIONID')",
                           }))
            << method;
        EXPECT_EQ(m_fcgi->in().unread(), "a=1") << method;
        finishRequest();
    }
}

TEST_F(RequestDecoding, LogsAMissingMethodAndDecodesNothing) {
    answers().cookies = {{"JSESSIONID", "an id"}};
    answers().queryFields = {{"b", "2"}};
    HttpRequestImpl& request = receive({"HTTP_COOKIE=JSESSIONID=an id", "QUERY_STRING=b=2"});
    EXPECT_EQ(calls(), Calls{});
    EXPECT_EQ(recorded_log::records(),
              Logs{recorded_log::appLog(4, "HttpRequestImpl::init() End1\n")});
    EXPECT_EQ(request.getSessionId(), nullptr);
    EXPECT_EQ(request.getParameter("b"), nullptr);
    EXPECT_EQ(request.getParameterValues("b"), nullptr);
    EXPECT_EQ(request.getSession(false), nullptr);
    EXPECT_STREQ(request.getQueryString(), "b=2");
    EXPECT_EQ(request.doProcessData(), -1);
}

TEST_F(RequestDecoding, SucceedsWithAndWithoutASessionCookie) {
    EXPECT_EQ(receive({"REQUEST_METHOD=GET"}).doProcessData(), 0);
    answers().cookies = {{"JSESSIONID", "an id"}};
    EXPECT_EQ(receive({"REQUEST_METHOD=GET"}).doProcessData(), 0);
    EXPECT_EQ(recorded_log::records(), Logs{});
}

TEST_F(RequestDecoding, CallsTheGettersOfTheMostDerivedClass) {
    class Rewritten : public HttpRequestImpl {
    public:
        using HttpRequestImpl::HttpRequestImpl;
        char* getMethod() override { return m_method; }
        char* getCookie() override { return m_cookie; }
        char* getContextType() override { return m_type; }
        int getContentLength() override { return 99; }
        char* getQueryString() override { return m_query; }

    private:
        char m_method[5] = "POST";
        char m_cookie[7] = "cookie";
        char m_type[5] = "type";
        char m_query[6] = "query";
    };
    answers().cookies = {{"c", "3"}};
    answers().queryFields = {{"b", "2"}};
    Rewritten& request = receive<Rewritten>({"REQUEST_METHOD=GET"});
    newCalls();
    EXPECT_EQ(request.doProcessData(), 0);
    EXPECT_EQ(newCalls(), (Calls{
                              "CGI_get_cookie(list 1, 'cookie') = list 3",
                              "CGI_get_post(list 2, 'type', 99, the body) = list 4",
                              "CGI_decode_query(list 4, 'query') = list 5",
                              "CGI_lookup(list 3, 'JSESSIONID')",
                          }));
}

using RequestParameters = RequestFixture;

TEST_F(RequestParameters, ComeFromTheFormAndTheQuery) {
    answers().formFields = {{"a", "1"}, {"x", "form"}};
    answers().queryFields = {{"b", "2"}, {"x", "query"}};
    HttpRequestImpl& request = receive({"REQUEST_METHOD=POST"});
    newCalls();
    EXPECT_STREQ(request.getParameter("a"), "1");
    EXPECT_STREQ(request.getParameter("b"), "2");
    EXPECT_STREQ(request.getParameter("x"), "form");
    EXPECT_EQ(request.getParameter("A"), nullptr);
    char** values = request.getParameterValues("x");
    EXPECT_STREQ(values[0], "form");
    EXPECT_STREQ(values[1], "query");
    EXPECT_EQ(values[2], nullptr);
    EXPECT_EQ(request.getParameterValues("y"), nullptr);
    EXPECT_EQ(newCalls(), (Calls{"CGI_lookup(list 2, 'a')", "CGI_lookup(list 2, 'b')",
                                 "CGI_lookup(list 2, 'x')", "CGI_lookup(list 2, 'A')",
                                 "CGI_lookup_all(list 2, 'x')", "CGI_lookup_all(list 2, 'y')"}));
}

TEST_F(RequestParameters, DoNotIncludeCookies) {
    answers().cookies = {{"c", "3"}};
    HttpRequestImpl& request = receive({"REQUEST_METHOD=GET"});
    EXPECT_EQ(request.getParameter("c"), nullptr);
}

TEST_F(RequestParameters, AreLookedUpByANullNameToo) {
    HttpRequestImpl& request = receive({"REQUEST_METHOD=GET"});
    newCalls();
    EXPECT_EQ(request.getParameter(nullptr), nullptr);
    EXPECT_EQ(request.getParameterValues(nullptr), nullptr);
    EXPECT_EQ(newCalls(), (Calls{"CGI_lookup(null, null)", "CGI_lookup_all(null, null)"}));
}

TEST_F(RequestParameters, AreFreedBeforeTheCookiesWithTheRequest) {
    answers().cookies = {{"c", "3"}};
    answers().queryFields = {{"b", "2"}};
    receive({"REQUEST_METHOD=GET"});
    newCalls();
    finishRequest();
    EXPECT_EQ(newCalls(), (Calls{"CGI_free_varlist(list 2)", "CGI_free_varlist(list 1)"}));
}

TEST_F(RequestParameters, AreFreedEvenIfThereAreNone) {
    receive({"REQUEST_METHOD=GET"});
    newCalls();
    finishRequest();
    EXPECT_EQ(newCalls(), (Calls{"CGI_free_varlist(null)", "CGI_free_varlist(null)"}));
}

TEST_F(RequestParameters, AreFreedWithoutTheSessionAndTheResponse) {
    HttpRequestImpl& request = receive({"REQUEST_METHOD=GET", "REMOTE_ADDR=10.0.0.5"});
    auto* session = static_cast<HttpSessionImpl*>(request.getSession(true));
    finishRequest();
    EXPECT_EQ(m_factory.sessionNum(), 1);
    EXPECT_TRUE(session->isValidate());
    EXPECT_TRUE(m_response->containsHeader("Set-Cookie"));
    EXPECT_EQ(recorded_log::records(), Logs{});
}

class Uploads : public RequestFixture {
protected:
    Uploads() {
        answers().queryFields = {{"b", "2"}};
        answers().uploadFields = {{"file", "phone.bin"}};
        recorded_device::name(m_buffer, "the buffer");
        m_upload = &receive(
            {"REQUEST_METHOD=POST", "CONTENT_TYPE=multipart/form-data", "CONTENT_LENGTH=70"});
        newCalls();
    }

    HttpRequestImpl* m_upload;
    char m_buffer[8] = "";
};

TEST_F(Uploads, AddTheFieldsOfAFileUploadToTheParameters) {
    CGI_varlist* list = m_upload->receiveUploadFile("/tmp/x");
    EXPECT_EQ(newCalls(), Calls{"CGI_fileupload(list 1, 'multipart/form-data', '/tmp/x', the body)"
                                " = list 2"});
    EXPECT_EQ(nameOf(list), "list 2");
    EXPECT_STREQ(m_upload->getParameter("file"), "phone.bin");
    EXPECT_STREQ(m_upload->getParameter("b"), "2");
    newCalls();
    finishRequest();
    EXPECT_EQ(newCalls(), (Calls{"CGI_free_varlist(list 2)", "CGI_free_varlist(null)"}));
}

TEST_F(Uploads, PassTheirTargetOnUnchanged) {
    m_upload->receiveUploadFile("");
    m_upload->receiveUploadFile(nullptr);
    m_upload->receiveUploadFile("../../etc/%41");
    EXPECT_EQ(
        newCalls(),
        (Calls{
            "CGI_fileupload(list 1, 'multipart/form-data', '', the body) = list 2",
            "CGI_fileupload(list 2, 'multipart/form-data', null, the body) = list 3",
            "CGI_fileupload(list 3, 'multipart/form-data', '../../etc/%41', the body) = list 4",
        }));
}

TEST_F(Uploads, AddTheFieldsOfAMemoryUploadAndReturnItsSize) {
    answers().received = 6;
    EXPECT_EQ(m_upload->receiveUploadData(m_buffer, 8), 6);
    EXPECT_EQ(newCalls(), Calls{"CGI_fileupload_data(list 1, 'multipart/form-data', the buffer, 8,"
                                " the body) = list 2"});
    EXPECT_STREQ(m_upload->getParameter("file"), "phone.bin");
    answers().received = 0;
    EXPECT_EQ(m_upload->receiveUploadData(nullptr, 0), 0);
    EXPECT_EQ(newCalls().back(), "CGI_fileupload_data(list 2, 'multipart/form-data', null, 0,"
                                 " the body) = list 3");
    finishRequest();
    EXPECT_EQ(newCalls(), (Calls{"CGI_free_varlist(list 3)", "CGI_free_varlist(null)"}));
}

TEST_F(Uploads, ReturnZeroIfTheDeviceReportsNoCount) {
    answers().received = std::nullopt;
    EXPECT_EQ(m_upload->receiveUploadData(m_buffer, 8), 0);
}

TEST_F(Uploads, KeepTheParametersWhenReadAsRawBlocks) {
    for (int size : {8, 0, -1}) {
        answers().blockSize = size;
        EXPECT_EQ(m_upload->receiveBlockData(m_buffer, 8), size);
        EXPECT_EQ(newCalls(), Calls{"CGI_readblock(the buffer, 8, the body)"});
    }
    finishRequest();
    EXPECT_EQ(newCalls(), (Calls{"CGI_free_varlist(list 1)", "CGI_free_varlist(null)"}));
}

TEST_F(Uploads, LogNothingWhenTheyFail) {
    answers() = {};
    m_upload->receiveUploadFile("/tmp/x");
    m_upload->receiveUploadData(m_buffer, 8);
    m_upload->receiveBlockData(m_buffer, 8);
    EXPECT_EQ(recorded_log::records(), Logs{});
}

TEST_F(Uploads, CallTheMostDerivedClassForTheContentType) {
    class Relabelled : public HttpRequestImpl {
    public:
        using HttpRequestImpl::HttpRequestImpl;
        char* getContextType() override { return m_type; }

    private:
        char m_type[5] = "mine";
    };
    auto& upload = receive<Relabelled>({"REQUEST_METHOD=GET", "CONTENT_TYPE=theirs"});
    newCalls();
    upload.receiveUploadFile("/tmp/x");
    upload.receiveUploadData(m_buffer, 8);
    const Calls made = newCalls();
    ASSERT_EQ(made.size(), 2u);
    EXPECT_NE(made[0].find("'mine'"), std::string::npos) << made[0];
    EXPECT_NE(made[1].find("'mine'"), std::string::npos) << made[1];
}

class SessionBinding : public RequestFixture {
protected:
    static constexpr const char* kAddress = "10.0.0.5";

    // A request whose client sends this session id.
    template <class Request = HttpRequestImpl>
    Request& receiveWithCookie(const std::string& id, const std::string& address = kAddress) {
        answers().cookies = {{"JSESSIONID", id}};
        return receive<Request>({"REQUEST_METHOD=GET", "REMOTE_ADDR=" + address});
    }
    HttpRequestImpl& receiveWithoutCookie() {
        answers().cookies = {};
        return receive({"REQUEST_METHOD=GET", std::string("REMOTE_ADDR=") + kAddress});
    }
    HttpSessionImpl* makeSession() {
        std::string address = kAddress;
        return m_factory.createSession(address);
    }
};

TEST_F(SessionBinding, KeepsAnIdOfUpTo63CharactersAndNoLongerOne) {
    for (std::size_t length : {1, 2, 62, 63}) {
        const std::string id(length, 'f');
        EXPECT_EQ(receiveWithCookie(id).getSessionId(), id);
    }
    for (std::size_t length : {64, 65, 200, 5000})
        EXPECT_EQ(receiveWithCookie(std::string(length, 'f')).getSessionId(), nullptr) << length;
}

TEST_F(SessionBinding, TreatsNoCookieAnEmptyOneAndASingleBlankAsNoSession) {
    EXPECT_EQ(receiveWithoutCookie().getSessionId(), nullptr);
    EXPECT_EQ(receiveWithCookie("").getSessionId(), nullptr);
    EXPECT_EQ(receiveWithCookie(" ").getSessionId(), nullptr);
    EXPECT_STREQ(receiveWithCookie("  ").getSessionId(), "  ");
    EXPECT_STREQ(receiveWithCookie(" x").getSessionId(), " x");
    EXPECT_STREQ(receiveWithCookie("\t").getSessionId(), "\t");
}

TEST_F(SessionBinding, UsesTheFirstCookieOfExactlyItsName) {
    answers().cookies = {{"jsessionid", "1"}, {"JSESSIONID", "2"}, {"JSESSIONID", "3"}};
    EXPECT_STREQ(receive({"REQUEST_METHOD=GET"}).getSessionId(), "2");
}

TEST_F(SessionBinding, DoesNotUseAParameterAsTheCookie) {
    answers().formFields = {{"JSESSIONID", "1"}};
    answers().queryFields = {{"JSESSIONID", "2"}};
    EXPECT_EQ(receive({"REQUEST_METHOD=POST"}).getSessionId(), nullptr);
}

TEST_F(SessionBinding, FindsTheSessionOfTheCookieAndSendsNoCookie) {
    HttpSessionImpl* session = makeSession();
    HttpRequestImpl& request = receiveWithCookie(session->getId());
    EXPECT_EQ(request.getSession(false), session);
    EXPECT_EQ(request.getSession(true), session);
    EXPECT_EQ(request.getSessionId(), session->getId());
    EXPECT_EQ(m_factory.sessionNum(), 1);
    EXPECT_EQ(sentHeaders(), "\r\n");
    EXPECT_EQ(recorded_log::records(), Logs{});
}

TEST_F(SessionBinding, FindsTheSessionEvenIfTheAddressIsMappedIntoIPv6) {
    HttpSessionImpl* session = makeSession();
    EXPECT_EQ(receiveWithCookie(session->getId(), "::ffff:10.0.0.5").getSession(false), session);
}

TEST_F(SessionBinding, ReturnsNullForAnUnknownIdUnlessAskedToCreate) {
    HttpRequestImpl& request = receiveWithCookie("unknown");
    EXPECT_EQ(request.getSession(false), nullptr);
    EXPECT_EQ(m_factory.sessionNum(), 0);
    EXPECT_FALSE(m_response->containsHeader("Set-Cookie"));
    EXPECT_STREQ(request.getSessionId(), "unknown");

    HttpSession* session = request.getSession(true);
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(m_factory.sessionNum(), 1);
    EXPECT_EQ(request.getSessionId(), session->getId());
    EXPECT_NE(session->getId(), "unknown");
    EXPECT_EQ(sentHeaders(), "Set-Cookie: JSESSIONID=" + session->getId() + "  \r\n\r\n");
}

TEST_F(SessionBinding, ReturnsTheCreatedSessionToLaterCallsOfTheSameRequest) {
    HttpRequestImpl& request = receiveWithoutCookie();
    HttpSession* session = request.getSession(true);
    EXPECT_EQ(request.getSession(false), session);
    EXPECT_EQ(request.getSession(true), session);
    EXPECT_EQ(m_factory.sessionNum(), 1);
    EXPECT_EQ(sentHeaders(), "Set-Cookie: JSESSIONID=" + session->getId() + "  \r\n\r\n");
}

TEST_F(SessionBinding, ReturnsTheCreatedSessionToTheNextRequest) {
    HttpSession* session = receiveWithoutCookie().getSession(true);
    EXPECT_EQ(receiveWithCookie(session->getId()).getSession(false), session);
}

TEST_F(SessionBinding, ReplacesAnIdThatIsTooLong) {
    HttpRequestImpl& request = receiveWithCookie(std::string(64, 'f'));
    EXPECT_EQ(request.getSession(false), nullptr);
    HttpSession* session = request.getSession(true);
    EXPECT_EQ(request.getSessionId(), session->getId());
}

TEST_F(SessionBinding, OverwritesALongerIdCompletely) {
    HttpRequestImpl& request = receiveWithCookie(std::string(63, 'f'));
    HttpSession* session = request.getSession(true);
    ASSERT_LT(session->getId().size(), 63u);
    EXPECT_EQ(request.getSessionId(), session->getId());
}

TEST_F(SessionBinding, DoesNotReturnASessionToAnotherAddress) {
    HttpSessionImpl* session = makeSession();
    HttpRequestImpl& request = receiveWithCookie(session->getId(), "10.0.0.6");
    EXPECT_EQ(request.getSession(false), nullptr);
    HttpSession* own = request.getSession(true);
    EXPECT_NE(own, session);
    EXPECT_EQ(static_cast<HttpSessionImpl*>(own)->m_remoteAddr, "10.0.0.6");
}

TEST_F(SessionBinding, ReplacesAnExpiredSession) {
    HttpSessionImpl* session = makeSession();
    test_clock::advanceSeconds(180);
    HttpRequestImpl& request = receiveWithCookie(session->getId());
    const LogRecord expired =
        recorded_log::appLog(6, "such session have invalidate,will to create a new session\n");
    EXPECT_EQ(request.getSession(false), nullptr);
    EXPECT_EQ(recorded_log::records(), Logs{expired});
    HttpSession* fresh = request.getSession(true);
    EXPECT_NE(fresh, session);
    EXPECT_EQ(recorded_log::records(), (Logs{expired, expired}));
    EXPECT_EQ(request.getSession(false), fresh);
}

TEST_F(SessionBinding, BindsASessionToTheClientsAddress) {
    HttpSession* session = receiveWithoutCookie().getSession(true);
    EXPECT_EQ(static_cast<HttpSessionImpl*>(session)->m_remoteAddr, kAddress);
}

TEST_F(SessionBinding, BindsASessionToTheEmptyAddressIfTheClientHasNone) {
    HttpRequestImpl& request = receive({"REQUEST_METHOD=GET"});
    HttpSession* session = request.getSession(true);
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(static_cast<HttpSessionImpl*>(session)->m_remoteAddr, "");
    EXPECT_EQ(request.getSessionId(), session->getId());
}

TEST_F(SessionBinding, WorksForARequestWithoutAMethod) {
    HttpRequestImpl& request = receive({std::string("REMOTE_ADDR=") + kAddress});
    HttpSession* session = request.getSession(true);
    EXPECT_EQ(request.getSession(false), session);
}

TEST_F(SessionBinding, SendsTheCookieThroughTheResponsesInterface) {
    class Plain : public HttpResponseImpl {
    public:
        using HttpResponseImpl::HttpResponseImpl;
        void addCookie(const char* name, const char* value) override {
            m_cookies.push_back(std::string(name) + " is " + value);
        }
        std::vector<std::string> m_cookies;
    };
    MemoryRequest fcgi({"REQUEST_METHOD=GET", "REMOTE_ADDR=10.0.0.5"});
    Plain response(fcgi.get());
    HttpRequestImpl request(fcgi.get(), &m_factory, &response);
    HttpSession* session = request.getSession(true);
    request.getSession(true);
    EXPECT_EQ(response.m_cookies, Calls{"JSESSIONID is " + session->getId()});
}

TEST_F(SessionBinding, SendsTheCookieBeforeTheRequestHasTheId) {
    class Plain : public HttpResponseImpl {
    public:
        using HttpResponseImpl::HttpResponseImpl;
        void addCookie(const char*, const char*) override {
            const char* id = m_asked->getSessionId();
            m_idBefore = id != nullptr ? id : "(none)";
        }
        HttpRequest* m_asked = nullptr;
        std::string m_idBefore;
    };
    MemoryRequest fcgi({"REQUEST_METHOD=GET", "REMOTE_ADDR=10.0.0.5"});
    Plain response(fcgi.get());
    answers().cookies = {};
    HttpRequestImpl request(fcgi.get(), &m_factory, &response);
    response.m_asked = &request;
    HttpSession* session = request.getSession(true);
    EXPECT_EQ(response.m_idBefore, "(none)");
    EXPECT_EQ(request.getSessionId(), session->getId());
}

// Counts the calls of its getters; the session factory calls them too when it looks for a session.
class Watched : public HttpRequestImpl {
public:
    using HttpRequestImpl::HttpRequestImpl;
    const char* getSessionId() override {
        ++m_idsAsked;
        return m_id != nullptr ? m_id : HttpRequestImpl::getSessionId();
    }
    char* getRemoteAddr() override {
        ++m_addressesAsked;
        return m_address;
    }
    int m_idsAsked = 0;
    int m_addressesAsked = 0;
    const char* m_id = nullptr;
    char m_address[6] = "their";
};

TEST_F(SessionBinding, DoesNotCallTheFactoryWhenTheIdIsABlank) {
    Watched& request = receiveWithCookie<Watched>(" ");
    EXPECT_EQ(request.getSession(false), nullptr);
    EXPECT_EQ(request.m_idsAsked, 1);
    EXPECT_EQ(request.m_addressesAsked, 1);
    EXPECT_NE(request.getSession(true), nullptr);
    EXPECT_EQ(request.m_idsAsked, 2);
    EXPECT_EQ(request.m_addressesAsked, 2);
    EXPECT_NE(request.getSession(true), nullptr);
    EXPECT_EQ(request.m_idsAsked, 4);
}

TEST_F(SessionBinding, CallsTheMostDerivedClassForTheIdAndTheAddress) {
    std::string address = "their";
    HttpSessionImpl* theirs = m_factory.createSession(address);
    const std::string id = theirs->getId();
    Watched& request = receiveWithCookie<Watched>("unknown");
    request.m_id = id.c_str();
    EXPECT_EQ(request.getSession(false), theirs);
    request.m_id = "another";
    HttpSession* made = request.getSession(true);
    EXPECT_EQ(static_cast<HttpSessionImpl*>(made)->m_remoteAddr, "their");
}

} // namespace
