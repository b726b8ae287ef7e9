// The test kit's Request, as a servlet receives it.
#include <kit/testing/request.h>
#include <kit/testing/runner.h>

#include "pages.h"

#include <cgi.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

using namespace kit::testing;
using Value = std::optional<std::string>;

// Returns what `read` returns for the request that a servlet receives.
std::string seen(const Request& request, const std::function<std::string(HttpRequest*)>& read) {
    std::string result;
    Page page([&](HttpRequest* arrived, HttpResponse*) { result = read(arrived); });
    ServletRunner(page).serve(request);
    return result;
}

std::string seenParameter(const Request& request, const char* name) {
    return seen(request, [&](HttpRequest* arrived) { return parameter(arrived, name); });
}

// Returns the raw body; for content types that the container does not decode.
std::string seenBody(const Request& request) {
    return seen(request, [](HttpRequest* arrived) {
        std::string body;
        char block[7];
        for (int size = arrived->receiveBlockData(block, sizeof block); size > 0;
             size = arrived->receiveBlockData(block, sizeof block))
            body.append(block, static_cast<std::size_t>(size));
        return body;
    });
}

// Returns the name of the file in the field "firmware", and its content.
std::string seenFile(const Request& request) {
    return seen(request, [](HttpRequest* arrived) {
        char content[256];
        const int size = arrived->receiveUploadData(content, sizeof content);
        return parameter(arrived, "firmware") + ": " +
               std::string(content, static_cast<std::size_t>(size));
    });
}

TEST(Request, HasTheVariablesThatAFrontServerSends) {
    const Request request = get("/servlet?p=hello&name=you");
    const struct {
        const char* name;
        Value value;
    } rows[] = {
        {"REQUEST_METHOD", "GET"},
        {"REQUEST_URI", "/servlet?p=hello&name=you"},
        {"QUERY_STRING", "p=hello&name=you"},
        {"SCRIPT_NAME", "/servlet"},
        {"CONTENT_LENGTH", "0"},
        {"CONTENT_TYPE", std::nullopt},
        {"REMOTE_ADDR", kClientAddress},
        {"SERVER_NAME", "192.0.2.1"},
        {"SERVER_PORT", "80"},
        {"SERVER_PROTOCOL", "HTTP/1.1"},
        {"GATEWAY_INTERFACE", "CGI/1.1"},
        {"DOCUMENT_ROOT", "/phone/www"},
        {"FCGI_ROLE", "RESPONDER"},
        {"HTTP_HOST", "192.0.2.1"},
        {"HTTP_COOKIE", std::nullopt},
    };
    for (const auto& row : rows)
        EXPECT_EQ(request.valueOf(row.name), row.value) << row.name;
}

TEST(Request, HasAnEmptyQueryWithoutAQuestionMark) {
    EXPECT_EQ(get("/servlet").valueOf("QUERY_STRING"), "");
    EXPECT_EQ(get("/servlet").valueOf("SCRIPT_NAME"), "/servlet");
    EXPECT_EQ(get("/servlet?").valueOf("QUERY_STRING"), "");
    EXPECT_EQ(get("/servlet?a=?").valueOf("QUERY_STRING"), "a=?");
}

TEST(Request, SendsItsUriUnchanged) {
    EXPECT_EQ(get("no slash%zz<").valueOf("REQUEST_URI"), "no slash%zz<");
}

TEST(Request, CanHaveAnyMethod) {
    EXPECT_EQ(Request("HEAD", "/").valueOf("REQUEST_METHOD"), "HEAD");
    EXPECT_EQ(post("/").valueOf("REQUEST_METHOD"), "POST");
}

TEST(Request, PassesHeadersOnAsVariables) {
    const Request request = get("/")
                                .header("Accept-Language", "de,en;q=0.5")
                                .header("x-phone", "1")
                                .header("content-type", "text/plain")
                                .header("Content-Length", "17");
    EXPECT_EQ(request.valueOf("HTTP_ACCEPT_LANGUAGE"), "de,en;q=0.5");
    EXPECT_EQ(request.valueOf("HTTP_X_PHONE"), "1");
    EXPECT_EQ(request.valueOf("CONTENT_TYPE"), "text/plain");
    EXPECT_EQ(request.valueOf("CONTENT_LENGTH"), "17");
    EXPECT_EQ(request.valueOf("HTTP_CONTENT_TYPE"), std::nullopt);
    EXPECT_EQ(request.valueOf("HTTP_CONTENT_LENGTH"), std::nullopt);
    EXPECT_EQ(seen(request, [](HttpRequest* arrived) { return arrived->getAcceptLanguage(); }),
              "de,en;q=0.5");
}

TEST(Request, SendsItsCookiesInOneHeader) {
    EXPECT_EQ(get("/").cookie("lang", "de").valueOf("HTTP_COOKIE"), "lang=de");
    EXPECT_EQ(get("/").cookie("lang", "de").cookie("size", "2").valueOf("HTTP_COOKIE"),
              "lang=de; size=2");
    const Request request = get("/").cookie("lang", "de").cookie("JSESSIONID", "7");
    EXPECT_EQ(seen(request, [](HttpRequest* arrived) { return arrived->getSessionId(); }), "7");
}

TEST(Request, ComesFromTheGivenAddress) {
    const auto address = [](HttpRequest* arrived) { return arrived->getRemoteAddr(); };
    EXPECT_EQ(seen(get("/"), address), "192.0.2.7");
    EXPECT_EQ(seen(get("/").from("::ffff:198.51.100.1"), address), "198.51.100.1");
}

TEST(Request, SetsVariablesByTheirOwnNames) {
    const auto port = [](HttpRequest* arrived) { return std::to_string(arrived->getServerPort()); };
    EXPECT_EQ(seen(get("/").variable("SERVER_PORT", "443"), port), "443");
    EXPECT_EQ(seen(get("/").without("SERVER_PORT"), port), "0");
    EXPECT_EQ(get("/").without("REMOTE_ADDR").valueOf("REMOTE_ADDR"), std::nullopt);
    EXPECT_EQ(get("/").without("UNKNOWN").valueOf("SERVER_PORT"), "80");
}

TEST(Request, IsNotChangedByItsOperations) {
    const Request request = get("/").cookie("a", "1");
    const Request other = request.cookie("b", "2").form({{"c", "3"}}).without("SERVER_PORT");
    EXPECT_EQ(request.valueOf("HTTP_COOKIE"), "a=1");
    EXPECT_EQ(request.valueOf("CONTENT_LENGTH"), "0");
    EXPECT_EQ(request.valueOf("SERVER_PORT"), "80");
    EXPECT_EQ(other.valueOf("CONTENT_LENGTH"), "3");
}

TEST(Request, RejectsInvalidVariables) {
    const std::string zero(1, '\0');
    EXPECT_THROW((void)get("/").variable("", "x"), std::invalid_argument);
    EXPECT_THROW((void)get("/").variable("A=B", "x"), std::invalid_argument);
    EXPECT_THROW((void)get("/").variable("A" + zero, "x"), std::invalid_argument);
    EXPECT_THROW((void)get("/").variable("A", "x" + zero), std::invalid_argument);
    EXPECT_THROW((void)get("/").header("", "x"), std::invalid_argument);
    EXPECT_THROW((void)get("/").cookie("a", zero), std::invalid_argument);
    EXPECT_THROW((void)get("/" + zero), std::invalid_argument);
    EXPECT_NO_THROW((void)get("/").variable("A", ""));
}

// Forms

TEST(FormBody, IsUrlEncodedAndArrivesUnchanged) {
    const Fields rows[] = {
        {{"user", "a&b"}, {"password", "x"}},
        {{"user", "a b+c=d%20;"}, {"password", ""}},
        {{"user", "\xC3\xA4\r\n\"<>"}, {"password", "*-._~"}},
    };
    for (const Fields& fields : rows) {
        const Request request = post("/servlet?p=login").form(fields);
        EXPECT_EQ(seenParameter(request, "user"), fields[0].second);
        EXPECT_EQ(seenParameter(request, "password"), fields[1].second);
        EXPECT_EQ(seenParameter(request, "p"), "login");
    }
}

TEST(FormBody, IsEncodedAsBrowsersDo) {
    const Request request =
        post("/").form({{"a b", "1+1=2"}, {"\xC3\xA4", "~*"}}).header("Content-Type", "text/plain");
    EXPECT_EQ(seenBody(request), "a+b=1%2B1%3D2&%C3%A4=%7E*");
}

TEST(FormBody, SetsContentTypeAndLength) {
    const Request request = post("/").form({{"a", "&"}});
    EXPECT_EQ(request.valueOf("CONTENT_TYPE"), "application/x-www-form-urlencoded");
    EXPECT_EQ(request.valueOf("CONTENT_LENGTH"), "5");
    EXPECT_EQ(post("/").form({}).valueOf("CONTENT_LENGTH"), "0");
}

TEST(FormBody, CanRepeatAName) {
    const Request request = post("/").form({{"a", "1"}, {"a", "2"}});
    EXPECT_EQ(seen(request,
                   [](HttpRequest* arrived) {
                       char** values = arrived->getParameterValues("a");
                       return std::string(values[0]) + values[1];
                   }),
              "12");
}

// Multipart forms

TEST(MultipartBody, ArrivesWithItsFieldsAndItsFile) {
    const std::string bytes("\0\r\n--\xff image", 12);
    const Request request =
        post("/").multipart({field("token", "a&b"), file("firmware", "name.img", bytes)});
    EXPECT_EQ(seenFile(request), "name.img: " + bytes);
    EXPECT_EQ(seen(request,
                   [](HttpRequest* arrived) {
                       char content[256];
                       arrived->receiveUploadData(content, sizeof content);
                       return parameter(arrived, "token");
                   }),
              "a&b");
}

TEST(MultipartBody, ArrivesInPiecesOfAnySize) {
    for (const std::size_t size : {1u, 2u, 3u, 7u, 64u, 100000u}) {
        const Request request =
            post("/")
                .multipart({field("token", "7"), file("firmware", "a", "bytes")})
                .inPieces(size);
        EXPECT_EQ(seenFile(request), "a: bytes") << size;
    }
}

TEST(MultipartBody, HasABoundaryThatItsFileDoesNotContain) {
    const std::string first = *post("/").multipart({}).valueOf("CONTENT_TYPE");
    const std::string boundary = first.substr(first.find('=') + 1);
    const std::string bytes = "\r\n--" + boundary + "--\r\n";
    EXPECT_EQ(seenFile(post("/").multipart({file("firmware", "a", bytes)})), "a: " + bytes);
}

TEST(MultipartBody, QuotesItsNames) {
    const Request request = post("/")
                                .multipart({file("firmware", "a\"b\r\n.img", "x")})
                                .header("Content-Type", "text/plain");
    EXPECT_NE(seenBody(request).find("filename=\"a%22b%0D%0A.img\"\r\n"), std::string::npos);
}

TEST(MultipartBody, IsAFailedUploadIfItIsCutOff) {
    const Request request = post("/").multipart({file("firmware", "a", "bytes")});
    const std::size_t length = std::stoul(*request.valueOf("CONTENT_LENGTH"));
    EXPECT_EQ(seenFile(request.cutOffAfter(length)), "a: bytes");
    for (const std::size_t size : {std::size_t{0}, std::size_t{20}, length / 2, length - 10}) {
        EXPECT_EQ(seenFile(request.cutOffAfter(size)), "(none): ") << size;
        EXPECT_EQ(request.cutOffAfter(size).valueOf("CONTENT_LENGTH"), std::to_string(length));
    }
}

// Bodies

TEST(RequestBody, ArrivesUnchanged) {
    const std::string bytes("{\"a\": \0}", 8);
    const Request request = post("/").body(bytes, "application/json");
    EXPECT_EQ(request.valueOf("CONTENT_TYPE"), "application/json");
    EXPECT_EQ(request.valueOf("CONTENT_LENGTH"), "8");
    EXPECT_EQ(seenBody(request), bytes);
    for (const std::size_t size : {1u, 3u, 8u})
        EXPECT_EQ(seenBody(request.inPieces(size)), bytes) << size;
}

TEST(RequestBody, BuffersAtMostOnePiece) {
    const Request request = post("/").body("texts", "text/plain");
    for (const std::size_t size : {1u, 3u, 5u, 100u}) {
        MemoryRequest arriving = request.inPieces(size).inMemory();
        const FCGX_Stream* in = arriving.in().stream();
        EXPECT_EQ(FCGX_GetChar(arriving.get()->in), 't');
        EXPECT_EQ(static_cast<std::size_t>(in->stop - in->rdNext),
                  std::min<std::size_t>(size, 5) - 1);
    }
}

TEST(RequestBody, ReplacesAnEarlierBody) {
    const Request request = post("/").form({{"a", "1"}}).body("text", "text/plain");
    EXPECT_EQ(seenBody(request), "text");
    EXPECT_EQ(request.valueOf("CONTENT_LENGTH"), "4");
}

TEST(RequestBody, CanAnnounceAWrongLength) {
    const Request form = post("/").form({{"a", "1"}});
    EXPECT_EQ(seenParameter(form, "a"), "1");
    EXPECT_EQ(seenParameter(form.variable("CONTENT_LENGTH", "4"), "a"), "(none)");
    EXPECT_EQ(seenParameter(form.variable("CONTENT_LENGTH", "2"), "a"), "(none)");
    EXPECT_EQ(seenParameter(form.cutOffAfter(2), "a"), "(none)");
}

TEST(RequestBody, EndsWhereItIsCutOff) {
    const Request request = post("/").body("text", "text/plain");
    EXPECT_EQ(seenBody(request.cutOffAfter(3)), "tex");
    EXPECT_EQ(seenBody(request.cutOffAfter(3).inPieces(1)), "tex");
    EXPECT_EQ(seenBody(request.cutOffAfter(0)), "");
    EXPECT_EQ(seenBody(request.cutOffAfter(100)), "text");
}

TEST(RequestBody, CallsAnActionOnceItIsRead) {
    int calls = 0;
    const Request request = post("/").body("text", "text/plain").onceRead([&] { ++calls; });
    MemoryRequest arriving = request.inPieces(2).inMemory();
    for (const char expected : {'t', 'e', 'x', 't'}) {
        EXPECT_EQ(FCGX_GetChar(arriving.get()->in), expected);
        EXPECT_EQ(calls, 0);
    }
    EXPECT_EQ(FCGX_GetChar(arriving.get()->in), EOF);
    EXPECT_EQ(FCGX_GetChar(arriving.get()->in), EOF);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(seenBody(request), "text");
    EXPECT_EQ(calls, 2) << "once for each time it is served";
}

TEST(RequestBody, RejectsAPieceSizeOfZero) {
    EXPECT_THROW((void)post("/").inPieces(0), std::invalid_argument);
}

} // namespace
