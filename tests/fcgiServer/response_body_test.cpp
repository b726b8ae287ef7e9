// The body of a response: what a servlet writes directly, and the template rendered at the end.
#include "http_request.h"
#include "http_response.h"
#include "recorded_device.h"
#include <kit/testing/memory_stream.h>
#include <kit/testing/recorded_log.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

// What has been passed to libfcgi for output, whether or not it was sent.
struct Passed {
    std::string text;            // of FCGX_PutStr() and FCGX_VFPrintF()
    std::vector<int> sizes;      // of FCGX_PutStr()
    std::vector<int> characters; // of FCGX_PutChar()
};
Passed passed;

// A test passes a size that no memory holds, which nothing may read.
constexpr int kReadable = 1 << 20;

} // namespace

// The linker puts these in the place of libfcgi's functions.
extern "C" {
int __real_FCGX_PutStr(const char* data, int size, FCGX_Stream* out);
int __real_FCGX_PutChar(int character, FCGX_Stream* out);
int __real_FCGX_VFPrintF(FCGX_Stream* out, const char* format, va_list arguments);

int __wrap_FCGX_PutStr(const char* data, int size, FCGX_Stream* out) {
    passed.sizes.push_back(size);
    if (size > kReadable)
        return size;
    passed.text.append(data, static_cast<std::size_t>(size));
    return __real_FCGX_PutStr(data, size, out);
}
int __wrap_FCGX_PutChar(int character, FCGX_Stream* out) {
    passed.characters.push_back(character);
    return __real_FCGX_PutChar(character, out);
}
int __wrap_FCGX_VFPrintF(FCGX_Stream* out, const char* format, va_list arguments) {
    char text[1024];
    va_list again;
    va_copy(again, arguments);
    std::vsnprintf(text, sizeof text, format, again);
    va_end(again);
    passed.text += text;
    return __real_FCGX_VFPrintF(out, format, arguments);
}
}

namespace {

using namespace kit::testing;

using Calls = std::vector<std::string>;
using Logs = std::vector<LogRecord>;
using recorded_device::answers;
using recorded_device::calls;
using recorded_device::nameOf;

class ResponseBody : public testing::Test {
protected:
    ResponseBody() : m_fcgi({}), m_response(m_fcgi.get()) {
        recorded_device::reset();
        recorded_log::clear();
        passed = Passed();
    }
    std::string sent() { return m_fcgi.out().text(); }
    std::string flushed() { return m_fcgi.out().flushedText(); }

    MemoryRequest m_fcgi;
    HttpResponseImpl m_response;
};

TEST_F(ResponseBody, ComesAfterTheHeadersWhicheverWayItIsWrittenFirst) {
    void (*const writers[])(HttpResponseImpl&) = {
        [](HttpResponseImpl& response) { response.print("b"); },
        [](HttpResponseImpl& response) { response.write("b", 1, 1); },
        [](HttpResponseImpl& response) { response.write('b'); }};
    for (auto* write : writers) {
        MemoryRequest fcgi({});
        HttpResponseImpl response(fcgi.get());
        response.setHeader("X", "1");
        write(response);
        EXPECT_TRUE(response.isHeaderCommited());
        response.setHeader("Y", "2");
        write(response);
        EXPECT_EQ(fcgi.out().text(), "X: 1 \r\n\r\nbb");
    }
}

TEST_F(ResponseBody, ComesAfterAnEmptyLineWhenThereAreNoHeaders) {
    m_response.print("b");
    EXPECT_EQ(sent(), "\r\nb");
}

TEST_F(ResponseBody, IsFlushedWithTheHeadersByPrint) {
    m_response.setHeader("X", "1");
    EXPECT_EQ(m_response.print("%d", 5), 1);
    EXPECT_EQ(flushed(), "X: 1 \r\n\r\n5");
    EXPECT_EQ(m_response.print("%s and %c%%", "six", '7'), 10);
    EXPECT_EQ(flushed(), "X: 1 \r\n\r\n5six and 7%");
}

TEST_F(ResponseBody, FlushesTheHeadersEvenIfPrintWritesNothing) {
    EXPECT_EQ(m_response.print("%s", ""), 0);
    EXPECT_EQ(flushed(), "\r\n");
}

TEST_F(ResponseBody, CanBePrintedInAnyLength) {
    const std::string text(20000, 'b');
    EXPECT_EQ(m_response.print("%s", text.c_str()), 20000);
    EXPECT_EQ(flushed(), "\r\n" + text);
}

TEST_F(ResponseBody, IsNotFlushedByWrite) {
    m_response.write("abc", 1, 3);
    m_response.write('d');
    EXPECT_EQ(sent(), "\r\nabcd");
    EXPECT_EQ(flushed(), "");
    m_response.print("e");
    EXPECT_EQ(flushed(), "\r\nabcde");
}

TEST_F(ResponseBody, IsCountedInWholeItems) {
    EXPECT_EQ(m_response.write("abcdefghijkl", 4, 3), 3u);
    EXPECT_EQ(m_response.write("mnopqrstuvwx", 12, 1), 1u);
    EXPECT_EQ(m_response.write("yz", 1, 2), 2u);
    EXPECT_EQ(sent(), "\r\nabcdefghijklmnopqrstuvwxyz");
    EXPECT_EQ(recorded_log::records(), Logs{});
}

TEST_F(ResponseBody, KeepsZeroBytesAndPercentSigns) {
    const std::string bytes("a\0%s\r\n\xff", 7);
    EXPECT_EQ(m_response.write(bytes.data(), 7, 1), 1u);
    EXPECT_EQ(sent(), "\r\n" + bytes);
}

TEST_F(ResponseBody, CanBeLargerThanTheStreamsBuffer) {
    const std::string bytes(100000, 'b');
    EXPECT_EQ(m_response.write(bytes.data(), 1000, 100), 100u);
    EXPECT_EQ(sent(), "\r\n" + bytes);
}

TEST_F(ResponseBody, IsEmptyAfterTheHeadersForNoItemsOrEmptyItems) {
    const struct {
        unsigned int size;
        unsigned int count;
    } rows[] = {{0, 1}, {0, 0}, {1, 0}, {4, 0}, {0, UINT_MAX}};
    for (const auto& row : rows) {
        MemoryRequest fcgi({});
        HttpResponseImpl response(fcgi.get());
        EXPECT_EQ(response.write("abc", row.size, row.count), 0u);
        EXPECT_TRUE(response.isHeaderCommited());
        EXPECT_EQ(fcgi.out().text(), "\r\n");
    }
}

TEST_F(ResponseBody, IsPassedToLibfcgiEvenWithoutItems) {
    m_response.commitHeader();
    passed = Passed();
    EXPECT_EQ(m_response.write("abc", 4, 0), 0u);
    EXPECT_EQ(passed.sizes, std::vector<int>{0});
}

TEST_F(ResponseBody, MayHaveAsManyBytesAsAnIntCounts) {
    const struct {
        unsigned int size;
        unsigned int count;
    } rows[] = {{INT_MAX, 1}, {1, INT_MAX}, {INT_MAX / 3, 3}};
    for (const auto& row : rows) {
        m_response.commitHeader();
        passed = Passed();
        EXPECT_EQ(m_response.write("abc", row.size, row.count), row.count);
        EXPECT_EQ(passed.sizes, std::vector<int>{static_cast<int>(row.size * row.count)});
    }
}

TEST_F(ResponseBody, RefusesMoreBytesThanAnIntCountsAfterTheHeaders) {
    const struct {
        unsigned int size;
        unsigned int count;
    } rows[] = {{INT_MAX + 1u, 1},    {1, INT_MAX + 1u}, {65536, 32768}, {65536, 65536},
                {UINT_MAX, UINT_MAX}, {1, UINT_MAX},     {4, 1u << 30}};
    for (const auto& row : rows) {
        MemoryRequest fcgi({});
        HttpResponseImpl response(fcgi.get());
        EXPECT_EQ(response.write("abc", row.size, row.count), 0u);
        EXPECT_TRUE(response.isHeaderCommited());
        EXPECT_EQ(fcgi.out().text(), "\r\n");
    }
}

TEST_F(ResponseBody, RefusesAndLogsNullDataAfterTheHeaders) {
    const LogRecord record =
        recorded_log::appLog(4, "HttpResponseImpl::write() End. ptr == NULL\n");
    m_response.setHeader("X", "1");
    EXPECT_EQ(m_response.write(nullptr, 1, 1), 0u);
    EXPECT_EQ(recorded_log::records(), Logs{record});
    EXPECT_TRUE(m_response.isHeaderCommited());
    EXPECT_EQ(m_response.write(nullptr, 0, 0), 0u);
    EXPECT_EQ(recorded_log::records(), (Logs{record, record}));
    EXPECT_EQ(sent(), "X: 1 \r\n\r\n");
}

TEST_F(ResponseBody, ReturnsAWrittenCharacterAsAByte) {
    EXPECT_EQ(m_response.write('A'), 'A');
    EXPECT_EQ(m_response.write(0), 0);
    EXPECT_EQ(m_response.write(0xff), 0xff);
    EXPECT_EQ(m_response.write(0x142), 'B');
    EXPECT_EQ(m_response.write(-1), 0xff);
    EXPECT_EQ(sent(), std::string("\r\nA\0\xff"
                                  "B\xff",
                                  7));
    // Which byte is written is left to libfcgi.
    EXPECT_EQ(passed.characters, (std::vector<int>{'A', 0, 0xff, 0x142, -1}));
}

TEST_F(ResponseBody, IsPassedToLibfcgiBehindItsHeadersWhenTheFrontServerHasHungUp) {
    m_fcgi.out().breakPipe();
    m_fcgi.get()->out->FCGI_errno = EPIPE;
    m_response.setHeader("X", "1");
    m_response.write("body", 1, 4);
    EXPECT_EQ(passed.text, "X: 1 \r\n\r\nbody");
    EXPECT_EQ(sent(), "");
}

TEST_F(ResponseBody, ReturnsTheLargestCountWhenTheFrontServerHasHungUp) {
    m_fcgi.out().breakPipe();
    EXPECT_EQ(m_response.write('A'), -1);
    EXPECT_LT(m_response.print("%d", 5), 0);
    // A failed write returns -1, which the division treats as the largest unsigned number.
    EXPECT_EQ(m_response.write("abcdefgh", 1, 8), UINT_MAX);
    EXPECT_EQ(m_response.write("abcdefgh", 4, 2), UINT_MAX / 4);
    EXPECT_EQ(m_response.write("abcdefgh", 8, 1), UINT_MAX / 8);
    EXPECT_TRUE(m_response.isHeaderCommited());
    EXPECT_EQ(sent(), "");
    EXPECT_EQ(recorded_log::records(), Logs{});
}

TEST_F(ResponseBody, EncodesAUrlButNotTheDelimitersOfPathsAndQueries) {
    char encoded[] = "/a%20b?c=d&e";
    answers().encodedUrl = encoded;
    EXPECT_EQ(m_response.encodeURL("/a b?c=d&e"), encoded);
    answers().encodedUrl = nullptr;
    EXPECT_EQ(m_response.encodeURL(nullptr), nullptr);
    EXPECT_EQ(calls(),
              (Calls{"CGI_encode_url('/a b?c=d&e', '/=?&')", "CGI_encode_url(null, '/=?&')"}));
    EXPECT_FALSE(m_response.isHeaderCommited());
    EXPECT_EQ(sent(), "");
}

// A response with its request, as the controller flushes it.
class Page : public testing::Test {
protected:
    Page() { receive({"REQUEST_METHOD=GET"}); }

    // Starts again with a request that has these variables.
    template <class Request = HttpRequestImpl>
    Request& receive(std::vector<std::string> environment) {
        recorded_device::reset();
        recorded_log::clear();
        m_response.reset();
        m_request.reset();
        m_fcgi = std::make_unique<MemoryRequest>(std::move(environment));
        m_response.emplace(m_fcgi->get());
        auto request = std::make_unique<Request>(m_fcgi->get(), nullptr, &*m_response);
        Request& received = *request;
        m_response->setHttpRequest(request.get());
        m_request = std::move(request);
        recorded_device::name(m_fcgi->out().stream(), "the output");
        m_atStart = calls().size();
        return received;
    }
    // Returns the calls since the request was received.
    Calls newCalls() {
        const Calls all = calls();
        return Calls(all.begin() + static_cast<std::ptrdiff_t>(m_atStart), all.end());
    }
    // Returns the language that the page is rendered in.
    std::string flushedLocale() {
        m_response->flush();
        const std::string call = newCalls().front();
        const std::size_t start = call.find("'local', '") + 10;
        return call.substr(start, call.find('\'', start) - start);
    }

    std::unique_ptr<MemoryRequest> m_fcgi;
    std::optional<HttpResponseImpl> m_response;
    std::unique_ptr<HttpRequestImpl> m_request;
    std::size_t m_atStart = 0;
};

TEST_F(Page, IsRenderedWithTheDeviceTypeAndTheLanguageBehindTheHeaders) {
    char type[] = "T9000";
    answers().page = "<p>page</p>";
    m_response->setHeader("X", "1");
    m_response->setDevtype(type);
    m_response->setTemplate("/phone/www/page.html", nullptr);
    m_response->flush();
    EXPECT_EQ(newCalls(),
              (Calls{
                  "TMPL_add_var(null, 'devtype', 'T9000', null) = variables 1",
                  "TMPL_add_var(variables 1, 'local', 'en', null) = variables 2",
                  "TMPL_web_write('/phone/www/page.html', null, null, variables 2, the output,"
                  " stderr)",
                  "TMPL_free_varlist(variables 2)",
              }));
    EXPECT_EQ(m_fcgi->out().text(), "X: 1 \r\n\r\n<p>page</p>");
    EXPECT_EQ(recorded_log::records(), Logs{});
}

TEST_F(Page, BuildsAndFreesItsListEvenWithoutATemplate) {
    m_response->flush();
    EXPECT_EQ(newCalls(), (Calls{"TMPL_add_var(null, 'local', 'en', null) = variables 1",
                                 "TMPL_free_varlist(variables 1)"}));
    EXPECT_EQ(m_fcgi->out().text(), "\r\n");
    EXPECT_TRUE(m_response->isHeaderCommited());
}

TEST_F(Page, IsNotRenderedIfItsTemplateHasNoName) {
    m_response->setTemplate("", nullptr);
    m_response->flush();
    EXPECT_EQ(newCalls(), (Calls{"TMPL_add_var(null, 'devtype', '', null) = variables 1",
                                 "TMPL_add_var(variables 1, 'local', 'en', null) = variables 2",
                                 "TMPL_free_varlist(variables 2)"}));
}

TEST_F(Page, IsNotFlushedToTheFrontServer) {
    answers().page = "page";
    m_response->setTemplate("page.html", nullptr);
    m_response->flush();
    EXPECT_EQ(m_fcgi->out().flushedText(), "");
}

TEST_F(Page, FollowsWhatWasWrittenDirectlyWithoutSecondHeaders) {
    answers().page = "page";
    m_response->setHeader("X", "1");
    m_response->print("first ");
    m_response->setHeader("Y", "2");
    m_response->setTemplate("page.html", nullptr);
    m_response->flush();
    EXPECT_EQ(m_fcgi->out().text(), "X: 1 \r\n\r\nfirst page");
    EXPECT_TRUE(m_response->containsHeader("Y"));
}

TEST_F(Page, LogsAFailureToRenderAndFreesItsList) {
    for (int result : {1, 2, -7}) {
        receive({"REQUEST_METHOD=GET"});
        answers().renderResult = result;
        answers().page = "so far";
        m_response->setTemplate("missing.html", nullptr);
        m_response->flush();
        EXPECT_EQ(recorded_log::records(),
                  Logs{recorded_log::appLog(4, "HttpResponseImpl::flush() TMPL_write error =" +
                                                   std::to_string(result) + "!\n")});
        EXPECT_EQ(newCalls().back(), "TMPL_free_varlist(variables 2)");
        EXPECT_EQ(m_fcgi->out().text(), "\r\nso far");
    }
}

TEST_F(Page, CopiesTheNameOfItsTemplate) {
    char name[] = "page.html";
    m_response->setTemplate(name, nullptr);
    name[0] = '#';
    m_response->flush();
    EXPECT_EQ(newCalls()[2].substr(0, 26), "TMPL_web_write('page.html'");
}

TEST_F(Page, AddsToTheServletsVariablesAndFreesThem) {
    TMPL_varlist* servlets = TMPL_add_var(nullptr, "a", "1", static_cast<char*>(nullptr));
    EXPECT_EQ(m_response->getMainVarList(), nullptr);
    m_response->setTemplate("page.html", servlets);
    EXPECT_EQ(nameOf(m_response->getMainVarList()), "variables 2");
    m_response->flush();
    EXPECT_EQ(newCalls(),
              (Calls{
                  "TMPL_add_var(null, 'a', '1', null) = variables 1",
                  "TMPL_add_var(variables 1, 'devtype', '', null) = variables 2",
                  "TMPL_add_var(variables 2, 'local', 'en', null) = variables 3",
                  "TMPL_web_write('page.html', null, null, variables 3, the output, stderr)",
                  "TMPL_free_varlist(variables 3)",
              }));
}

TEST_F(Page, HasTheServletsListBeforeTheDeviceTypeIsAdded) {
    TMPL_varlist* servlets = TMPL_add_var(nullptr, "a", "1", static_cast<char*>(nullptr));
    const TMPL_varlist* before = nullptr;
    answers().duringAddVar = [&] { before = m_response->getMainVarList(); };
    m_response->setTemplate("page.html", servlets);
    EXPECT_EQ(before, servlets);
}

TEST_F(Page, UsesTheSecondTemplateAndDoesNotFreeTheFirstList) {
    m_response->setTemplate("first.html", nullptr);
    m_response->setTemplate("second.html", nullptr);
    EXPECT_EQ(nameOf(m_response->getMainVarList()), "variables 2");
    m_response->flush();
    EXPECT_EQ(newCalls(),
              (Calls{
                  "TMPL_add_var(null, 'devtype', '', null) = variables 1",
                  "TMPL_add_var(null, 'devtype', '', null) = variables 2",
                  "TMPL_add_var(variables 2, 'local', 'en', null) = variables 3",
                  "TMPL_web_write('second.html', null, null, variables 3, the output, stderr)",
                  "TMPL_free_varlist(variables 3)",
              }));
}

TEST_F(Page, ShowsNoDeviceTypeThatIsSetAfterTheTemplate) {
    char type[] = "T9000";
    m_response->setTemplate("page.html", nullptr);
    m_response->setDevtype(type);
    m_response->flush();
    EXPECT_EQ(newCalls()[0], "TMPL_add_var(null, 'devtype', '', null) = variables 1");
    EXPECT_EQ(newCalls()[1], "TMPL_add_var(variables 1, 'local', 'en', null) = variables 2");
}

TEST_F(Page, SendsNothingWhenItsTemplateIsSet) {
    m_response->setTemplate("page.html", nullptr);
    EXPECT_FALSE(m_response->isHeaderCommited());
    EXPECT_EQ(m_fcgi->out().text(), "");
}

TEST_F(Page, FreesNoListUnlessItIsFlushed) {
    m_response->setTemplate("page.html", nullptr);
    m_response.reset();
    EXPECT_EQ(newCalls(), Calls{"TMPL_add_var(null, 'devtype', '', null) = variables 1"});
}

TEST_F(Page, FreesItsListOnlyWhenItIsFlushed) {
    m_response->setTemplate("page.html", nullptr);
    m_response->flush();
    const Calls flushed = newCalls();
    EXPECT_EQ(std::count(flushed.begin(), flushed.end(), "TMPL_free_varlist(variables 2)"), 1);
    m_response.reset();
    EXPECT_EQ(newCalls(), flushed);
}

TEST_F(Page, IsInTheFirstAcceptedLanguage) {
    receive({"REQUEST_METHOD=GET", "HTTP_ACCEPT_LANGUAGE=de-DE,de;q=0.9,en"});
    EXPECT_EQ(flushedLocale(), "de-DE");
}

TEST_F(Page, IsInEnglishWhenTheLanguageIsLongerThan127Characters) {
    const std::string longest(127, 'l');
    receive({"REQUEST_METHOD=GET", "HTTP_ACCEPT_LANGUAGE=" + longest});
    EXPECT_EQ(flushedLocale(), longest);
    receive({"REQUEST_METHOD=GET", "HTTP_ACCEPT_LANGUAGE=" + longest + "l"});
    EXPECT_EQ(flushedLocale(), "en");
    receive({"REQUEST_METHOD=GET", "HTTP_ACCEPT_LANGUAGE=" + longest + ",en"});
    EXPECT_EQ(flushedLocale(), longest);
    receive({"REQUEST_METHOD=GET", "HTTP_ACCEPT_LANGUAGE=" + longest + "l,fr"});
    EXPECT_EQ(flushedLocale(), "en");
}

TEST_F(Page, IsInTheFirst127CharactersOfTheLanguageThatWasSet) {
    for (std::size_t length : {0, 5, 126, 127, 128, 200, 5000}) {
        receive({"REQUEST_METHOD=GET", "HTTP_ACCEPT_LANGUAGE=de"});
        m_request->setLocal(std::string(length, 'l').c_str());
        EXPECT_EQ(flushedLocale(), std::string(std::min<std::size_t>(length, 127), 'l'));
    }
}

// Returns a locale to flush() in each way that getLocale() can.
class Localised : public HttpRequestImpl {
public:
    using HttpRequestImpl::HttpRequestImpl;

    char* getLocale(char* buffer, int size) override {
        m_asked += std::to_string(size);
        m_bufferWasClear = std::all_of(buffer, buffer + size, [](char c) { return c == '\0'; });
        m_sentBefore = m_fcgi->out().text();
        std::snprintf(buffer, static_cast<std::size_t>(size), "in the buffer");
        return m_answer == kBuffer ? buffer : m_answer;
    }

    static char kBuffer[];
    char* m_answer = nullptr;
    MemoryRequest* m_fcgi = nullptr;
    std::string m_asked;
    std::string m_sentBefore;
    bool m_bufferWasClear = false;
};
char Localised::kBuffer[] = "";

class PageLanguage : public Page {
protected:
    std::string flushedLocaleFor(char* answer) {
        m_localised = &receive<Localised>({"REQUEST_METHOD=GET", "HTTP_ACCEPT_LANGUAGE=de"});
        m_localised->m_fcgi = m_fcgi.get();
        m_localised->m_answer = answer;
        m_response->setHeader("X", "1");
        return flushedLocale();
    }
    Localised* m_localised = nullptr;
};

TEST_F(PageLanguage, IsRequestedOnceAfterTheHeadersWithAnEmptyBuffer) {
    flushedLocaleFor(nullptr);
    EXPECT_EQ(m_localised->m_asked, "128");
    EXPECT_TRUE(m_localised->m_bufferWasClear);
    EXPECT_EQ(m_localised->m_sentBefore, "X: 1 \r\n\r\n");
}

TEST_F(PageLanguage, IsTheTextThatTheRequestReturnsInTheBufferOrElsewhere) {
    char text[] = "it";
    EXPECT_EQ(flushedLocaleFor(Localised::kBuffer), "in the buffer");
    EXPECT_EQ(flushedLocaleFor(text), "it");
}

TEST_F(PageLanguage, IsEnglishIfTheRequestReturnsNullWhateverIsInTheBuffer) {
    EXPECT_EQ(flushedLocaleFor(nullptr), "en");
}

} // namespace
