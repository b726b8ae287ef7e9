// What a request returns about its environment, and its binary layout for compiled plug-ins.
#include "HttpSession.h"
#include "binary_layout.h"
#include "http_request.h"
#include "http_response.h"
#include "recorded_device.h"
#include "session_factory.h"
#include <kit/testing/memory_stream.h>
#include <kit/testing/recorded_log.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using namespace kit::testing;

using binary_layout::callSlot;
using binary_layout::memberAt;

static_assert(std::is_abstract_v<HttpRequest>);
static_assert(!std::has_virtual_destructor_v<HttpRequest>);
static_assert(!std::is_default_constructible_v<HttpRequestImpl>);
static_assert(std::has_virtual_destructor_v<HttpRequestImpl>);

struct FreshDevice {
    FreshDevice() {
        recorded_device::reset();
        recorded_log::clear();
    }
};

// A request with these variables.
class Request {
public:
    explicit Request(std::vector<std::string> environment)
        : m_fcgi(std::move(environment)), m_request(m_fcgi.get(), nullptr, nullptr) {}

    HttpRequestImpl* operator->() { return &m_request; }
    char** environment() { return m_fcgi.get()->envp; }

private:
    FreshDevice m_device;
    MemoryRequest m_fcgi;
    HttpRequestImpl m_request;
};

struct TextGetter {
    const char* variable;
    char* (HttpRequest::*get)();
};

const TextGetter kTextGetters[] = {
    {"QUERY_STRING", &HttpRequest::getQueryString},
    {"HTTP_COOKIE", &HttpRequest::getCookie},
    {"FCGI_ROLE", &HttpRequest::getRole},
    {"REQUEST_URI", &HttpRequest::getRequestURI},
    {"DOCUMENT_ROOT", &HttpRequest::getDocumentRoot},
    {"REMOTE_ADDR", &HttpRequest::getRemoteAddr},
    {"REMOTE_HOST", &HttpRequest::getRemoteHost},
    {"SERVER_NAME", &HttpRequest::getServerName},
    {"CONTENT_TYPE", &HttpRequest::getContextType},
    {"SERVER_PROTOCOL", &HttpRequest::getProtocal},
    {"REFFERER", &HttpRequest::getRefferer},
    {"USER_AGENT", &HttpRequest::getUserAgent},
    {"REQUEST_METHOD", &HttpRequest::getMethod},
    {"CONTEXT_PATH", &HttpRequest::getContextPath},
    {"SCRIPT_NAME", &HttpRequest::getServletPath},
    {"HTTP_ACCEPT", &HttpRequest::getAccept},
    {"HTTP_ACCEPT_LANGUAGE", &HttpRequest::getAcceptLanguage},
    {"HTTP_ACCEPT_ENCODING", &HttpRequest::getAcceptEncoding},
    {"HTTP_ACCEPT_CHARSET", &HttpRequest::getAcceptCharset},
};

std::string valueOf(const std::string& variable) {
    return "the " + variable;
}

// Every variable that a request reads, and some that it must not, but for the one left out.
std::vector<std::string> fullEnvironment(const std::string& leftOut = "") {
    std::vector<std::string> environment{
        "HTTP_REFERER=no",  "HTTP_REFFERER=no", "REFERER=no",       "HTTP_USER_AGENT=no",
        "HTTPS=on",         "COOKIE=no",        "ACCEPT=no",        "PATH_INFO=x",
        "REQUEST_URI_2=no", "METHOD=no",        "SERVER_PORT=8080", "CONTENT_LENGTH=17"};
    for (const TextGetter& getter : kTextGetters)
        if (getter.variable != leftOut)
            environment.push_back(getter.variable + ("=" + valueOf(getter.variable)));
    return environment;
}

TEST(RequestEnvironment, EachGetterReadsExactlyItsVariable) {
    Request request(fullEnvironment());
    for (const TextGetter& getter : kTextGetters)
        EXPECT_EQ((*request.operator->().*getter.get)(), valueOf(getter.variable));
}

TEST(RequestEnvironment, ReturnsNullForAnAbsentVariable) {
    for (const TextGetter& getter : kTextGetters) {
        Request request(fullEnvironment(getter.variable));
        EXPECT_EQ((*request.operator->().*getter.get)(), nullptr) << getter.variable;
    }
}

TEST(RequestEnvironment, ReturnsAnEmptyTextForAnEmptyVariable) {
    for (const TextGetter& getter : kTextGetters) {
        Request request({std::string(getter.variable) + "="});
        EXPECT_STREQ((*request.operator->().*getter.get)(), "") << getter.variable;
    }
}

TEST(RequestEnvironment, ReturnsTheEnvironmentsOwnTextAndReadsItAtEachCall) {
    Request request({"REQUEST_METHOD=GET", "SERVER_NAME=phone"});
    EXPECT_EQ(request->getServerName(), request.environment()[1] + std::strlen("SERVER_NAME="));
    char renamed[] = "SERVER_NAME=desk";
    request.environment()[1] = renamed;
    EXPECT_STREQ(request->getServerName(), "desk");
}

struct NumberRow {
    const char* text;
    int number;
};

const NumberRow kNumbers[] = {
    {"0", 0},      {"80", 80},  {"2147483647", 2147483647},
    {"-5", -5},    {"+7", 7},   {" 42", 42},
    {"12abc", 12}, {"0x1f", 0}, {"010", 10},
    {"abc", 0},    {"", 0},
};

TEST(RequestEnvironment, ReadsTheLeadingDigitsOfLengthAndPort) {
    for (const NumberRow& row : kNumbers) {
        Request length({std::string("CONTENT_LENGTH=") + row.text, "SERVER_PORT=1"});
        EXPECT_EQ(length->getContentLength(), row.number) << row.text;
        Request port({std::string("SERVER_PORT=") + row.text, "CONTENT_LENGTH=1"});
        EXPECT_EQ(port->getServerPort(), row.number) << row.text;
    }
}

TEST(RequestEnvironment, ReturnsZeroForAnAbsentLengthOrPort) {
    Request request({"REQUEST_METHOD=GET"});
    EXPECT_EQ(request->getContentLength(), 0);
    EXPECT_EQ(request->getServerPort(), 0);
}

TEST(RequestEnvironment, IsSecureIfTheScriptNameIsANumberOtherThanZero) {
    const struct {
        const char* scriptName;
        bool secure;
    } rows[] = {{"/index", false}, {"", false},        {"0", false},   {"00", false},
                {"on", false},     {"/1", false},      {"1", true},    {"-1", true},
                {" 7", true},      {"12/index", true}, {"0x1", false}, {"256", true}};
    for (const auto& row : rows) {
        Request request({std::string("SCRIPT_NAME=") + row.scriptName, "HTTPS=on"});
        EXPECT_EQ(request->isSecure(), row.secure) << row.scriptName;
    }
    Request nameless({"HTTPS=on", "SERVER_PORT=443"});
    EXPECT_FALSE(nameless->isSecure());
}

TEST(RequestEnvironment, SaturatesNumbersWiderThanAnInt) {
    Request request({"CONTENT_LENGTH=4294967301", "SERVER_PORT=-99999999999999999999"});
    EXPECT_EQ(request->getContentLength(), INT_MAX);
    EXPECT_EQ(request->getServerPort(), INT_MIN);
}

// A long of 64 bits holds it, though its lower half is zero; one of 32 bits is capped.
TEST(RequestEnvironment, IsSecureEvenIfTheNumberIsWiderThanAnInt) {
    Request request({"SCRIPT_NAME=4294967296"});
    EXPECT_TRUE(request->isSecure());
}

TEST(RequestEnvironment, StripsThePrefixOfAnIPv4AddressMappedIntoIPv6) {
    const struct {
        const char* variable;
        const char* address;
    } rows[] = {
        {"::ffff:192.168.1.2", "192.168.1.2"},
        {"::ffff:10.0.0.5", "10.0.0.5"},
        {"::ffff:", ""},
        {"::ffff:::ffff:1.2.3.4", "::ffff:1.2.3.4"},
        {"::ffff", "::ffff"},
        {"::FFFF:10.0.0.5", "::FFFF:10.0.0.5"},
        {" ::ffff:10.0.0.5", " ::ffff:10.0.0.5"},
        {"::1", "::1"},
        {"10.0.0.5", "10.0.0.5"},
        {"", ""},
    };
    for (const auto& row : rows) {
        Request request({std::string("REMOTE_ADDR=") + row.variable});
        EXPECT_STREQ(request->getRemoteAddr(), row.address) << row.variable;
    }
}

TEST(RequestEnvironment, ReturnsNullForAnAbsentRemoteAddress) {
    Request request({"REQUEST_METHOD=GET"});
    EXPECT_EQ(request->getRemoteAddr(), nullptr);
}

struct LanguageRow {
    const char* acceptLanguage; // null: absent
    int size;
    const char* locale; // null: it does not fit
};

const LanguageRow kLanguages[] = {
    {nullptr, 128, "en"},
    {nullptr, 3, "en"},
    {nullptr, 2, nullptr},
    {nullptr, 0, nullptr},
    {nullptr, -1, nullptr},
    {"de-DE,de;q=0.9,en", 128, "de-DE"},
    {"de-DE,de;q=0.9,en", 6, "de-DE"},
    {"de-DE,de;q=0.9,en", 5, nullptr},
    {"de-DE,de;q=0.9,en", 0, nullptr},
    {"en-US;q=0.9,de", 128, "en-US;q=0.9"},
    {" DE , fr", 128, " DE "},
    {",de", 1, ""},
    {",de", 0, nullptr},
    {"fr", 128, "fr"},
    {"fr", 3, "fr"},
    {"fr", 2, nullptr},
    {"fr", 0, nullptr},
    {"Fr;q=0.5", 128, "Fr;q=0.5"},
    {"", 1, ""},
    {"", 0, nullptr},
    // A negative size is smaller than any entry before a comma, yet larger than any whole text.
    {"de-DE,de", -1, nullptr},
    {",de", -1, nullptr},
    {"de-DE", -1, "de-DE"},
    {"", -1, ""},
};

std::vector<std::string> languageEnvironment(const char* acceptLanguage) {
    std::vector<std::string> environment{"REQUEST_METHOD=GET"};
    if (acceptLanguage != nullptr)
        environment.push_back(std::string("HTTP_ACCEPT_LANGUAGE=") + acceptLanguage);
    return environment;
}

TEST(RequestLocale, IsTheFirstAcceptedLanguageIfTheBufferHoldsIt) {
    for (const LanguageRow& row : kLanguages) {
        SCOPED_TRACE(testing::Message()
                     << (row.acceptLanguage ? row.acceptLanguage : "(absent)") << ' ' << row.size);
        Request request(languageEnvironment(row.acceptLanguage));
        char buffer[128];
        std::memset(buffer, '#', sizeof buffer);
        const char* locale = request->getLocale(buffer, row.size);
        const std::size_t used = row.locale != nullptr ? std::strlen(row.locale) + 1 : 0;
        if (row.locale == nullptr) {
            EXPECT_EQ(locale, nullptr);
        } else {
            EXPECT_EQ(locale, buffer);
            EXPECT_STREQ(locale, row.locale);
        }
        EXPECT_EQ(std::string(buffer + used, buffer + sizeof buffer),
                  std::string(sizeof buffer - used, '#'));
    }
}

TEST(RequestLocale, IsTheTextThatWasSetWhateverTheBuffer) {
    Request request({"REQUEST_METHOD=GET", "HTTP_ACCEPT_LANGUAGE=de"});
    request->setLocal("zh_CN");
    char buffer[8] = "#######";
    EXPECT_STREQ(request->getLocale(buffer, sizeof buffer), "zh_CN");
    EXPECT_STREQ(buffer, "#######");
    const char* stored = request->getLocale(nullptr, 0);
    EXPECT_STREQ(stored, "zh_CN");
    EXPECT_EQ(request->getLocale(buffer, -1), stored);
}

TEST(RequestLocale, CanBeSetToTheEmptyText) {
    Request request({"REQUEST_METHOD=GET"});
    request->setLocal("");
    EXPECT_STREQ(request->getLocale(nullptr, 0), "");
}

TEST(RequestLocale, IsACopyOfTheTextThatWasSet) {
    Request request({"REQUEST_METHOD=GET"});
    char text[] = "fr_FR";
    request->setLocal(text);
    std::memset(text, '#', sizeof text - 1);
    EXPECT_STREQ(request->getLocale(nullptr, 0), "fr_FR");
}

TEST(RequestLocale, IsUnchangedWhenNullIsSet) {
    Request request({"REQUEST_METHOD=GET", "HTTP_ACCEPT_LANGUAGE=de"});
    char buffer[8];
    request->setLocal(nullptr);
    EXPECT_STREQ(request->getLocale(buffer, sizeof buffer), "de");
    request->setLocal("fr");
    request->setLocal(nullptr);
    EXPECT_STREQ(request->getLocale(buffer, sizeof buffer), "fr");
}

TEST(RequestLocale, CanBeSetTwiceWhileTheFirstTextStaysReadable) {
    Request request({"REQUEST_METHOD=GET"});
    request->setLocal("fr");
    char* first = request->getLocale(nullptr, 0);
    request->setLocal("de");
    EXPECT_STREQ(request->getLocale(nullptr, 0), "de");
    EXPECT_STREQ(first, "fr");
    std::free(first); // which the request leaks
}

TEST(RequestLocale, AsksTheMostDerivedClassForTheAcceptedLanguage) {
    class Polyglot : public HttpRequestImpl {
    public:
        using HttpRequestImpl::HttpRequestImpl;
        char* getAcceptLanguage() override { return m_languages; }

    private:
        char m_languages[6] = "it,fr";
    };
    FreshDevice device;
    MemoryRequest fcgi({"REQUEST_METHOD=GET", "HTTP_ACCEPT_LANGUAGE=de"});
    Polyglot request(fcgi.get(), nullptr, nullptr);
    char buffer[8];
    EXPECT_STREQ(request.getLocale(buffer, sizeof buffer), "it");
}

// The tests below call the operations as an already compiled plug-in calls them.

class RequestVirtualTable : public testing::Test {
protected:
    RequestVirtualTable() : m_fcgi(fullEnvironment()), m_response(m_fcgi.get()) {
        recorded_device::answers().cookies = {{"JSESSIONID", "an id"}};
        recorded_device::answers().queryFields = {{"a", "1"}, {"a", "2"}};
        m_request.emplace(m_fcgi.get(), &m_factory, &m_response);
        recorded_device::name(m_buffer, "the buffer");
        recorded_device::name(m_fcgi.in().stream(), "the body");
    }
    ~RequestVirtualTable() override {
        m_request.reset();
        m_factory.destory();
    }

    template <class Result, class... Arguments>
    Result call(int slot, Arguments... arguments) {
        HttpRequest* request = &*m_request;
        return callSlot<Result>(request, slot, arguments...);
    }
    std::string textOf(int slot) { return call<char*>(slot); }
    static std::string lastCall() { return recorded_device::calls().back(); }

    FreshDevice m_device;
    MemoryRequest m_fcgi;
    SessionFactory m_factory;
    HttpResponseImpl m_response;
    std::optional<HttpRequestImpl> m_request;
    char m_buffer[16] = "";
};

TEST_F(RequestVirtualTable, HasTheGettersInTheirPlaces) {
    EXPECT_STREQ(call<char*>(0, "a"), "1");
    EXPECT_STREQ(call<char**>(1, "a")[1], "2");
    const char* const variables[] = {"QUERY_STRING",  "HTTP_COOKIE", "FCGI_ROLE",  "REQUEST_URI",
                                     "DOCUMENT_ROOT", "REMOTE_ADDR", "REMOTE_HOST"};
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(textOf(2 + i), valueOf(variables[i]));
    EXPECT_EQ(call<int>(9), 8080);
    EXPECT_EQ(textOf(10), valueOf("SERVER_NAME"));
    EXPECT_EQ(textOf(11), valueOf("CONTENT_TYPE"));
    EXPECT_EQ(call<int>(12), 17);
    const char* const more[] = {"SERVER_PROTOCOL", "REFFERER",     "USER_AGENT",
                                "REQUEST_METHOD",  "CONTEXT_PATH", "SCRIPT_NAME"};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(textOf(13 + i), valueOf(more[i]));
    EXPECT_FALSE(call<bool>(19));
    const char* const accepted[] = {"HTTP_ACCEPT", "HTTP_ACCEPT_LANGUAGE", "HTTP_ACCEPT_ENCODING",
                                    "HTTP_ACCEPT_CHARSET"};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(textOf(22 + i), valueOf(accepted[i]));
}

TEST_F(RequestVirtualTable, HasIsSecureInItsPlace) {
    char numeric[] = "SCRIPT_NAME=1";
    for (char** variable = m_fcgi.get()->envp; *variable != nullptr; ++variable)
        if (std::strncmp(*variable, "SCRIPT_NAME=", 12) == 0)
            *variable = numeric;
    EXPECT_TRUE(call<bool>(19));
}

TEST_F(RequestVirtualTable, HasTheLocaleInItsPlaces) {
    EXPECT_EQ(call<char*>(20, &m_buffer[0], 3), nullptr);
    call<void>(21, "fr");
    EXPECT_STREQ(call<char*>(20, &m_buffer[0], 3), "fr");
}

TEST_F(RequestVirtualTable, HasTheSessionInItsPlaces) {
    EXPECT_STREQ(call<const char*>(26), "an id");
    EXPECT_EQ(call<HttpSession*>(27, false), nullptr);
    EXPECT_EQ(call<HttpSession*>(27, true)->getId(), call<const char*>(26));
}

TEST_F(RequestVirtualTable, HasTheUploadsInTheirPlaces) {
    recorded_device::answers().received = 9;
    recorded_device::answers().blockSize = 10;
    CGI_varlist* list = call<CGI_varlist*>(28, "/tmp/x");
    EXPECT_EQ(lastCall(), "CGI_fileupload(list 2, 'the CONTENT_TYPE', '/tmp/x', the body) = " +
                              recorded_device::nameOf(list));
    EXPECT_EQ(call<int>(29, &m_buffer[0], 16ul), 9);
    EXPECT_EQ(lastCall().substr(0, 20), "CGI_fileupload_data(");
    EXPECT_EQ(call<int>(30, &m_buffer[0], 15ul), 10);
    EXPECT_EQ(lastCall(), "CGI_readblock(the buffer, 15, the body)");
}

TEST_F(RequestVirtualTable, EndsWithTheTwoDestructors) {
    static int deletions;
    struct Counted : HttpRequestImpl {
        using HttpRequestImpl::HttpRequestImpl;
        static void operator delete(void* storage) {
            ++deletions;
            ::operator delete(storage);
        }
    };
    const std::vector<std::string> freed{"CGI_free_varlist(null)", "CGI_free_varlist(null)"};
    recorded_device::reset();
    MemoryRequest fcgi({});
    void* storage = ::operator new(sizeof(Counted));
    deletions = 0;

    callSlot<void>(new (storage) Counted(fcgi.get(), nullptr, nullptr), 31);
    EXPECT_EQ(recorded_device::calls(), freed);
    EXPECT_EQ(deletions, 0);

    recorded_device::reset();
    callSlot<void>(new (storage) Counted(fcgi.get(), nullptr, nullptr), 32);
    EXPECT_EQ(recorded_device::calls(), freed);
    EXPECT_EQ(deletions, 1);
}

TEST(RequestObject, HasItsMembersInTheirPlaces) {
    FreshDevice device;
    recorded_device::answers().cookies = {{"JSESSIONID", "an id"}};
    recorded_device::answers().queryFields = {{"a", "1"}};
    MemoryRequest fcgi({"REQUEST_METHOD=GET"});
    SessionFactory factory;
    HttpResponseImpl response(fcgi.get());
    HttpRequestImpl request(fcgi.get(), &factory, &response);
    constexpr std::size_t kPointer = sizeof(void*);
    const HttpResponse* interface = &response;

    EXPECT_EQ(memberAt<SessionFactory*>(&request, 1 * kPointer), &factory);
    EXPECT_EQ(memberAt<HttpResponse*>(&request, 2 * kPointer), interface);
    EXPECT_EQ(memberAt<FCGX_Request*>(&request, 3 * kPointer), fcgi.get());
    EXPECT_EQ(recorded_device::nameOf(memberAt<void*>(&request, 4 * kPointer)), "list 2");
    EXPECT_EQ(recorded_device::nameOf(memberAt<void*>(&request, 5 * kPointer)), "list 1");
    EXPECT_EQ(memberAt<char*>(&request, 6 * kPointer), nullptr);
    request.setLocal("fr");
    EXPECT_EQ(memberAt<char*>(&request, 6 * kPointer), request.getLocale(nullptr, 0));
    EXPECT_EQ(request.getSessionId(), reinterpret_cast<char*>(&request) + 7 * kPointer);
    EXPECT_EQ(sizeof request, 7 * kPointer + 64);
}

TEST(RequestObject, HasAnEmptySessionIdAndNoListsWithoutAMethod) {
    FreshDevice device;
    MemoryRequest fcgi({});
    alignas(HttpRequestImpl) unsigned char storage[sizeof(HttpRequestImpl)];
    std::memset(storage, '#', sizeof storage);
    auto* request = new (storage) HttpRequestImpl(fcgi.get(), nullptr, nullptr);
    constexpr std::size_t kPointer = sizeof(void*);
    for (int member = 4; member <= 6; ++member)
        EXPECT_EQ(memberAt<void*>(request, member * kPointer), nullptr) << member;
    EXPECT_EQ(std::string(storage + 7 * kPointer, storage + 7 * kPointer + 64),
              std::string(64, '\0'));
    request->~HttpRequestImpl();
}

TEST(RequestEnvironment, ReturnsAnyVariableByName) {
    Request request({"HTTP_ORIGIN=http://phone", "HTTPS="});
    EXPECT_STREQ(requestVariable(*request.operator->(), "HTTP_ORIGIN"), "http://phone");
    EXPECT_STREQ(requestVariable(*request.operator->(), "HTTPS"), "");
    EXPECT_EQ(requestVariable(*request.operator->(), "HTTP_ORIGI"), nullptr);
}

} // namespace
