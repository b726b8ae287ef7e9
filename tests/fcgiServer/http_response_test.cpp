// The header block of a response, and a response's binary layout for compiled plug-ins.
#include "binary_layout.h"
#include "http_request.h"
#include "http_response.h"
#include "recorded_device.h"
#include <kit/testing/memory_stream.h>
#include <kit/testing/recorded_log.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using namespace kit::testing;

using binary_layout::callSlot;
using binary_layout::memberAt;
using Calls = std::vector<std::string>;
using Logs = std::vector<LogRecord>;
using Headers = std::vector<std::pair<std::string, std::string>>;

static_assert(std::is_abstract_v<HttpResponse>);
static_assert(!std::has_virtual_destructor_v<HttpResponse>);
static_assert(std::has_virtual_destructor_v<HttpResponseImpl>);

// A response without a request, and what it sends.
class ResponseHeaders : public testing::Test {
protected:
    ResponseHeaders() : m_fcgi({}), m_response(m_fcgi.get()) {
        recorded_device::reset();
        recorded_log::clear();
    }

    // Writes and returns the header block.
    std::string sent() {
        m_response.commitHeader();
        return m_fcgi.out().text();
    }

    MemoryRequest m_fcgi;
    HttpResponseImpl m_response;
};

// Returns one line per header, in the order of their buckets, and newest first within a bucket: the
// expected order, computed in the simplest way.
std::uint32_t bucketOf(const std::string& name) {
    std::uint64_t hash = 0;
    for (unsigned char byte : name)
        hash = (hash * 131 + byte) % 4294967296;
    return static_cast<std::uint32_t>(hash % 2147483648 % 100);
}

std::string blockOf(Headers headers) {
    std::reverse(headers.begin(), headers.end());
    std::stable_sort(headers.begin(), headers.end(), [](const auto& a, const auto& b) {
        return bucketOf(a.first) < bucketOf(b.first);
    });
    std::string block;
    for (const auto& [name, value] : headers)
        block += name + ": " + value + " \r\n";
    return block + "\r\n";
}

TEST_F(ResponseHeaders, AreOnlyAnEmptyLineIfNoneIsSet) {
    EXPECT_EQ(sent(), "\r\n");
}

TEST_F(ResponseHeaders, AreLinesWithABlankBeforeTheEndOfTheLine) {
    m_response.setHeader("X", "1");
    EXPECT_EQ(sent(), "X: 1 \r\n\r\n");
}

TEST_F(ResponseHeaders, AreSentInTheOrderOfTheirHashesAndNotAsTheyWereSet) {
    m_response.setStatus(302);
    m_response.addCookie("a", "1");
    m_response.setContextType("text/html");
    m_response.sendRedirect("/x");
    EXPECT_EQ(sent(), "Location: /x \r\n"
                      "ContentType: text/html \r\n"
                      "Set-Cookie: a=1  \r\n"
                      "Status: 302 \r\n"
                      "\r\n");
}

TEST_F(ResponseHeaders, AreSentNewestFirstWithinABucket) {
    ASSERT_EQ(bucketOf("Cache-Control"), bucketOf("Connection"));
    m_response.setHeader("Cache-Control", "no-store");
    m_response.setHeader("Connection", "close");
    EXPECT_EQ(sent(), "Connection: close \r\nCache-Control: no-store \r\n\r\n");
}

TEST_F(ResponseHeaders, AreTheNewestOfTheirBucketWhenSetAgain) {
    m_response.setHeader("Cache-Control", "no-store");
    m_response.setHeader("Connection", "close");
    m_response.setHeader("Cache-Control", "no-cache");
    EXPECT_EQ(sent(), "Cache-Control: no-cache \r\nConnection: close \r\n\r\n");
}

TEST_F(ResponseHeaders, KeepTheirPlaceInTheBucketWhenAddedTo) {
    m_response.addHeader("Cache-Control", "no-store");
    m_response.addHeader("Connection", "close");
    m_response.addHeader("Cache-Control", ", private");
    EXPECT_EQ(sent(), "Connection: close \r\nCache-Control: no-store, private \r\n\r\n");
}

TEST_F(ResponseHeaders, CanBeMany) {
    Headers headers;
    for (int i = 0; i < 250; ++i) {
        headers.emplace_back("X-" + std::to_string(i), std::to_string(i * i));
        m_response.setHeader(headers.back().first.c_str(), headers.back().second.c_str());
    }
    EXPECT_EQ(sent(), blockOf(headers));
}

TEST_F(ResponseHeaders, CanHaveNamesAndValuesOfAnyBytes) {
    const Headers headers{
        {"", "no name"},
        {"Empty", ""},
        {"100%", "%s%n%d"},
        {"Spaces ", "  in and around  "},
        {"Gr\xc3\xbc\xdf", "\xff\xfe"},
        {"Two", "li\r\nnes"},
    };
    for (const auto& [name, value] : headers)
        m_response.setHeader(name.c_str(), value.c_str());
    EXPECT_EQ(sent(), blockOf(headers));
}

TEST_F(ResponseHeaders, CanBeLong) {
    const std::string name(3000, 'n');
    const std::string value(100000, 'v');
    m_response.setHeader(name.c_str(), value.c_str());
    EXPECT_EQ(sent(), name + ": " + value + " \r\n\r\n");
}

TEST_F(ResponseHeaders, AreCopies) {
    char name[] = "X";
    char value[] = "1";
    m_response.setHeader(name, value);
    m_response.addHeader(name, value);
    name[0] = value[0] = '#';
    EXPECT_EQ(sent(), "X: 11 \r\n\r\n");
}

TEST_F(ResponseHeaders, HaveTheSecondValueWhenSetTwice) {
    m_response.setHeader("X", "1");
    m_response.setHeader("X", "2");
    EXPECT_EQ(sent(), "X: 2 \r\n\r\n");
}

TEST_F(ResponseHeaders, HaveBothValuesConcatenatedWhenAddedTwice) {
    m_response.addHeader("X", "1");
    m_response.addHeader("X", "2");
    m_response.addHeader("X", "");
    m_response.addHeader("X", "3");
    EXPECT_EQ(sent(), "X: 123 \r\n\r\n");
}

TEST_F(ResponseHeaders, AreReplacedBySettingAndExtendedByAdding) {
    m_response.addHeader("X", "1");
    m_response.addHeader("X", "2");
    m_response.setHeader("X", "3");
    m_response.addHeader("X", "4");
    EXPECT_EQ(sent(), "X: 34 \r\n\r\n");
}

TEST_F(ResponseHeaders, HaveCaseSensitiveNames) {
    m_response.setHeader("Location", "/a");
    EXPECT_FALSE(m_response.containsHeader("location"));
    EXPECT_FALSE(m_response.containsHeader("LOCATION"));
    EXPECT_FALSE(m_response.containsHeader("Location "));
    m_response.setHeader("location", "/b");
    m_response.removeHeader("LOCATION");
    EXPECT_EQ(sent(), blockOf({{"Location", "/a"}, {"location", "/b"}}));
}

TEST_F(ResponseHeaders, AreContainedUntilTheyAreRemoved) {
    EXPECT_FALSE(m_response.containsHeader("X"));
    m_response.setHeader("X", "");
    EXPECT_TRUE(m_response.containsHeader("X"));
    m_response.removeHeader("X");
    EXPECT_FALSE(m_response.containsHeader("X"));
    m_response.addHeader("X", "1");
    EXPECT_TRUE(m_response.containsHeader("X"));
    EXPECT_EQ(sent(), "X: 1 \r\n\r\n");
}

TEST_F(ResponseHeaders, CanBeRemovedOneByOne) {
    for (const char* name : {"Cache-Control", "Connection", "X"})
        m_response.setHeader(name, "1");
    m_response.removeHeader("Cache-Control");
    m_response.removeHeader("Unknown");
    m_response.removeHeader("X");
    m_response.removeHeader("X");
    EXPECT_EQ(sent(), "Connection: 1 \r\n\r\n");
}

TEST_F(ResponseHeaders, LeaveTheEmptyLineWhenAllAreRemoved) {
    m_response.setHeader("X", "1");
    m_response.removeHeader("X");
    EXPECT_EQ(sent(), "\r\n");
}

TEST_F(ResponseHeaders, AreUnchangedWhenANullIsSetWhichIsLogged) {
    m_response.setHeader("X", "1");
    m_response.setHeader("X", nullptr);
    m_response.setHeader(nullptr, "1");
    m_response.setHeader(nullptr, nullptr);
    const LogRecord record = recorded_log::appLog(4, "HttpResponseImpl::setHeader End1\n");
    EXPECT_EQ(recorded_log::records(), (Logs{record, record, record}));
    EXPECT_EQ(sent(), "X: 1 \r\n\r\n");
}

TEST_F(ResponseHeaders, AreUnchangedWhenANullIsAddedWhichIsLogged) {
    m_response.addHeader("X", "1");
    m_response.addHeader("X", nullptr);
    m_response.addHeader(nullptr, "1");
    m_response.addHeader(nullptr, nullptr);
    const LogRecord record = recorded_log::appLog(4, "HttpResponseImpl::addHeader End\n");
    EXPECT_EQ(recorded_log::records(), (Logs{record, record, record}));
    EXPECT_EQ(sent(), "X: 1 \r\n\r\n");
}

TEST_F(ResponseHeaders, LogNothingForANullNameThatIsQueriedOrRemoved) {
    m_response.setHeader("", "1");
    EXPECT_FALSE(m_response.containsHeader(nullptr));
    m_response.removeHeader(nullptr);
    EXPECT_EQ(recorded_log::records(), Logs{});
    EXPECT_EQ(sent(), ": 1 \r\n\r\n");
}

TEST_F(ResponseHeaders, LogANullContentTypeOrLocationAsSetHeader) {
    m_response.setContextType(nullptr);
    m_response.sendRedirect(nullptr);
    const LogRecord record = recorded_log::appLog(4, "HttpResponseImpl::setHeader End1\n");
    EXPECT_EQ(recorded_log::records(), (Logs{record, record}));
    EXPECT_EQ(sent(), "\r\n");
}

TEST_F(ResponseHeaders, NameTheContentTypeWithoutAHyphen) {
    m_response.setContextType("text/plain");
    m_response.setContextType("text/html");
    EXPECT_EQ(sent(), "ContentType: text/html \r\n\r\n");
}

TEST_F(ResponseHeaders, HaveTheLastLocationAndNoStatusForARedirection) {
    m_response.sendRedirect("/old");
    m_response.sendRedirect("/new?a=b&c");
    EXPECT_FALSE(m_response.containsHeader("Status"));
    EXPECT_EQ(sent(), "Location: /new?a=b&c \r\n\r\n");
}

TEST_F(ResponseHeaders, ShareOneLineAmongCookies) {
    m_response.addCookie("a", "1");
    m_response.addCookie("b", "2");
    EXPECT_EQ(sent(), "Set-Cookie: a=1 b=2  \r\n\r\n");
}

TEST_F(ResponseHeaders, KeepACookieAsItIs) {
    m_response.addCookie("", "");
    m_response.addCookie("a=b", "%41; Path=/");
    EXPECT_EQ(sent(), "Set-Cookie: = a=b=%41; Path=/  \r\n\r\n");
}

TEST_F(ResponseHeaders, HaveTheStatusInDecimals) {
    const std::pair<int, const char*> rows[] = {
        {200, "200"}, {0, "0"}, {-1, "-1"}, {INT_MAX, "2147483647"}, {INT_MIN, "-2147483648"}};
    for (const auto& [code, text] : rows) {
        MemoryRequest fcgi({});
        HttpResponseImpl response(fcgi.get());
        response.setStatus(code);
        response.commitHeader();
        EXPECT_EQ(fcgi.out().text(), std::string("Status: ") + text + " \r\n\r\n");
    }
}

TEST_F(ResponseHeaders, HaveTheDigitsOfASecondStatusAfterTheFirst) {
    m_response.setStatus(200);
    m_response.setStatus(404);
    EXPECT_EQ(sent(), "Status: 200404 \r\n\r\n");
}

TEST_F(ResponseHeaders, AreWrittenOnceAndNotFlushed) {
    m_response.setHeader("X", "1");
    EXPECT_FALSE(m_response.isHeaderCommited());
    EXPECT_EQ(m_fcgi.out().text(), "");
    m_response.commitHeader();
    EXPECT_TRUE(m_response.isHeaderCommited());
    m_response.commitHeader();
    EXPECT_EQ(m_fcgi.out().text(), "X: 1 \r\n\r\n");
    EXPECT_EQ(m_fcgi.out().flushedText(), "");
}

TEST_F(ResponseHeaders, ChangedAfterTheyWereWrittenAreKeptButNotSent) {
    m_response.setHeader("X", "1");
    m_response.commitHeader();
    m_response.setHeader("Y", "2");
    m_response.addHeader("X", "3");
    m_response.addCookie("a", "1");
    m_response.commitHeader();
    EXPECT_TRUE(m_response.containsHeader("X"));
    EXPECT_TRUE(m_response.containsHeader("Y"));
    EXPECT_TRUE(m_response.containsHeader("Set-Cookie"));
    m_response.removeHeader("Y");
    EXPECT_FALSE(m_response.containsHeader("Y"));
    EXPECT_TRUE(m_response.isHeaderCommited());
    EXPECT_EQ(m_fcgi.out().text(), "X: 1 \r\n\r\n");
}

TEST_F(ResponseHeaders, CountAsCommittedBeforeTheFirstByteIsSent) {
    static HttpResponseImpl* sender;
    static void (*send)(FCGX_Stream*, int);
    static std::vector<bool> committed;
    sender = &m_response;
    send = m_fcgi.out().stream()->emptyBuffProc;
    committed.clear();
    m_fcgi.out().stream()->emptyBuffProc = [](FCGX_Stream* stream, int close) {
        committed.push_back(sender->isHeaderCommited());
        send(stream, close);
    };
    const std::string value(700, 'v'); // more than the stream's buffer holds
    m_response.setHeader("X", value.c_str());
    EXPECT_EQ(sent(), "X: " + value + " \r\n\r\n");
    EXPECT_EQ(committed, std::vector<bool>{true});
}

TEST_F(ResponseHeaders, CountAsCommittedEvenWhenTheFrontServerHasHungUp) {
    m_fcgi.out().breakPipe();
    m_response.setHeader("X", "1");
    m_response.commitHeader();
    EXPECT_TRUE(m_response.isHeaderCommited());
    EXPECT_EQ(m_fcgi.out().text(), "");
    EXPECT_EQ(recorded_log::records(), Logs{});
}

TEST_F(ResponseHeaders, AreNotCommittedByPlainFormattedOutput) {
    m_response.setHeader("X", "1");
    EXPECT_EQ(m_response.webPrintf("%s-%d%%", "a", 7), 4);
    EXPECT_FALSE(m_response.isHeaderCommited());
    EXPECT_EQ(m_fcgi.out().text(), "a-7%");
    EXPECT_EQ(m_fcgi.out().flushedText(), "");
}

TEST_F(ResponseHeaders, MakeNoCallToTheDevice) {
    m_response.setStatus(200);
    m_response.addCookie("a", "1");
    sent();
    EXPECT_EQ(recorded_device::calls(), Calls{});
}

TEST_F(ResponseHeaders, CallTheMostDerivedClass) {
    class Watched : public HttpResponseImpl {
    public:
        using HttpResponseImpl::HttpResponseImpl;
        void setHeader(const char* name, const char* value) override {
            m_calls.push_back(std::string("set ") + name + '|' + value);
        }
        void addHeader(const char* name, const char* value) override {
            m_calls.push_back(std::string("add ") + name + '|' + value);
        }
        Calls m_calls;
    };
    Watched response(m_fcgi.get());
    response.setContextType("text/html");
    response.sendRedirect("/x");
    response.setStatus(404);
    response.addCookie("a", "1");
    EXPECT_EQ(response.m_calls, (Calls{"set ContentType|text/html", "set Location|/x",
                                       "add Status|404", "add Set-Cookie|a=1 "}));
    response.commitHeader();
    EXPECT_EQ(m_fcgi.out().text(), "\r\n");
}

class DeviceType : public ResponseHeaders {
protected:
    // Returns the device type that a template set now receives.
    std::string shown() {
        m_response.setTemplate("page.html", nullptr);
        const std::string call = recorded_device::calls().back();
        const std::size_t start = call.find("'devtype', '") + 12;
        return call.substr(start, call.find('\'', start) - start);
    }
    void set(std::string type) { m_response.setDevtype(type.data()); }
};

TEST_F(DeviceType, IsEmptyAtFirst) {
    EXPECT_EQ(shown(), "");
}

TEST_F(DeviceType, IsACopyOfTheTextThatWasSetLast) {
    char type[] = "T9000";
    m_response.setDevtype(type);
    type[0] = '#';
    EXPECT_EQ(shown(), "T9000");
    set("T1");
    EXPECT_EQ(shown(), "T1");
    set("");
    EXPECT_EQ(shown(), "");
}

TEST_F(DeviceType, HasAtMost31Characters) {
    for (std::size_t length : {1, 30, 31, 32, 33, 100, 5000}) {
        set(std::string(length, 't'));
        EXPECT_EQ(shown(), std::string(std::min<std::size_t>(length, 31), 't')) << length;
    }
    EXPECT_EQ(recorded_log::records(), Logs{});
}

TEST_F(DeviceType, IsUnchangedWhenNullIsSetWhichIsLogged) {
    set("T9000");
    m_response.setDevtype(nullptr);
    EXPECT_EQ(recorded_log::records(),
              Logs{recorded_log::webDebug("error", "HttpResponseImpl::setDevtype() para error.")});
    EXPECT_EQ(shown(), "T9000");
}

// The tests below call the operations as an already compiled plug-in calls them.

class ResponseVirtualTable : public ResponseHeaders {
protected:
    template <class Result, class... Arguments>
    Result call(int slot, Arguments... arguments) {
        HttpResponse* response = &m_response;
        return callSlot<Result>(response, slot, arguments...);
    }
};

TEST_F(ResponseVirtualTable, HasTheHeaderOperationsInTheirPlaces) {
    call<void>(0, "text/html");
    call<void>(1, "X", "1");
    call<void>(1, "X", "2");
    call<void>(2, "Y", "3");
    call<void>(2, "Y", "4");
    EXPECT_TRUE(call<bool>(3, "X"));
    EXPECT_FALSE(call<bool>(3, "Z"));
    call<void>(5, "/x");
    call<void>(6, "a", "1");
    call<void>(7, 302);
    EXPECT_FALSE(call<bool>(13));
    EXPECT_EQ(sent(), blockOf({{"ContentType", "text/html"},
                               {"X", "2"},
                               {"Y", "34"},
                               {"Location", "/x"},
                               {"Set-Cookie", "a=1 "},
                               {"Status", "302"}}));
    EXPECT_TRUE(call<bool>(13));
}

TEST_F(ResponseVirtualTable, HasTheBodyOperationsInTheirPlaces) {
    char url[] = "/x";
    recorded_device::answers().encodedUrl = url;
    EXPECT_EQ(call<char*>(4, "/x y"), url);

    HttpResponse* response = &m_response;
    auto* print = binary_layout::slot<int(void*, const char*, ...)>(response, 8);
    EXPECT_EQ(print(response, "%d,", 5), 2);
    EXPECT_EQ((call<unsigned int, const void*>(9, "abcdef", 2u, 3u)), 3u);
    EXPECT_EQ(call<int>(10, int{'!'}), '!');
    EXPECT_EQ(m_fcgi.out().text(), "\r\n5,abcdef!");
}

TEST_F(ResponseVirtualTable, HasTheTemplateOperationsInTheirPlaces) {
    char type[] = "T9000";
    EXPECT_EQ(call<TMPL_varlist*>(12), nullptr);
    call<void>(14, &type[0]);
    call<void>(11, "page.html", static_cast<TMPL_varlist*>(nullptr));
    EXPECT_EQ(recorded_device::nameOf(call<TMPL_varlist*>(12)), "variables 1");
    EXPECT_EQ(recorded_device::calls(),
              Calls{"TMPL_add_var(null, 'devtype', 'T9000', null) = variables 1"});
}

TEST_F(ResponseVirtualTable, EndsWithTheTwoDestructors) {
    static int deletions;
    struct Counted : HttpResponseImpl {
        using HttpResponseImpl::HttpResponseImpl;
        static void operator delete(void* storage) {
            ++deletions;
            ::operator delete(storage);
        }
        ~Counted() override { m_events->push_back("destroyed"); }
        Calls* m_events = nullptr;
    };
    Calls events;
    void* storage = ::operator new(sizeof(Counted));
    deletions = 0;
    for (int slot : {15, 16}) {
        auto* response = new (storage) Counted(m_fcgi.get());
        response->m_events = &events;
        response->setHeader("X", "1");
        callSlot<void>(response, slot);
        EXPECT_EQ(deletions, slot == 16 ? 1 : 0);
    }
    EXPECT_EQ(events, (Calls{"destroyed", "destroyed"}));
}

using ResponseObject = ResponseHeaders;

TEST_F(ResponseObject, HasItsMembersInTheirPlaces) {
    using HeaderMap = QKHashMap<std::string, std::string, INT_HASH<std::string>>;
    MemoryRequest fcgi({"REQUEST_METHOD=GET"});
    alignas(HttpResponseImpl) unsigned char storage[sizeof(HttpResponseImpl)];
    std::memset(storage, '#', sizeof storage);
    auto* response = new (storage) HttpResponseImpl(fcgi.get());
    HttpRequestImpl request(fcgi.get(), nullptr, response);
    constexpr std::size_t kPointer = sizeof(void*);
    constexpr std::size_t kName = 2 * kPointer;
    constexpr std::size_t kList = kName + sizeof(std::string);
    constexpr std::size_t kType = kList + 4 * kPointer;

    EXPECT_EQ(storage[kPointer], 0);
    EXPECT_EQ(memberAt<const char*>(storage, kName), // a short text lies in the string itself
              reinterpret_cast<const char*>(storage) + kName + 2 * kPointer);
    EXPECT_EQ(memberAt<std::size_t>(storage, kName + kPointer), 0u);
    EXPECT_EQ(memberAt<void*>(storage, kList), nullptr);
    EXPECT_EQ(memberAt<FCGX_Request*>(storage, kList + kPointer), fcgi.get());
    response->setHttpRequest(&request);
    EXPECT_EQ(memberAt<HttpRequestImpl*>(storage, kList + 2 * kPointer), &request);
    auto* headers = memberAt<HeaderMap*>(storage, kList + 3 * kPointer);
    EXPECT_EQ(headers->m_nHashTableSize, 100u);
    EXPECT_EQ(headers->m_nBlockSize, 10);
    EXPECT_FALSE(headers->m_bMultiValue);
    EXPECT_EQ(headers->m_nCount, 0);
    EXPECT_EQ(std::string(storage + kType, storage + kType + 32), std::string(32, '\0'));
    EXPECT_EQ(sizeof *response, kType + 32);

    char type[] = "T9000";
    response->setDevtype(type);
    response->setTemplate("page.html", nullptr);
    response->setHeader("X", "1");
    response->commitHeader();
    EXPECT_EQ(storage[kPointer], 1);
    EXPECT_EQ(memberAt<std::size_t>(storage, kName + kPointer), std::strlen("page.html"));
    EXPECT_EQ(memberAt<TMPL_varlist*>(storage, kList), response->getMainVarList());
    EXPECT_EQ(headers->getAssoc("X")->value, "1");
    EXPECT_STREQ(reinterpret_cast<char*>(storage) + kType, "T9000");
    response->~HttpResponseImpl();
}

} // namespace
