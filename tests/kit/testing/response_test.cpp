// The test kit's Response, parsed from what was written to the front server.
#include <kit/testing/response.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace {

using namespace kit::testing;

TEST(Response, IsParsedFromWhatTheContainerWrites) {
    const Response response("Status: 403 \r\nContentType: text/html \r\n\r\n<h1>No</h1>\r\n\r\n");
    EXPECT_EQ(response.status, 403);
    ASSERT_EQ(response.headers.size(), 2u);
    EXPECT_EQ(response.headers[1].name, "ContentType");
    EXPECT_EQ(response.headers[1].value, "text/html");
    EXPECT_EQ(response.body, "<h1>No</h1>\r\n\r\n");
}

TEST(Response, IsParsedFromABodyWithoutHeaders) {
    const Response response("\r\nStatus: 404 \r\n\r\n");
    EXPECT_EQ(response.status, 200);
    EXPECT_TRUE(response.headers.empty());
    EXPECT_EQ(response.body, "Status: 404 \r\n\r\n");
}

TEST(Response, KeepsEveryByteOfItsBody) {
    const std::string body("\0\xff\n\n", 4);
    EXPECT_EQ(Response("\r\n" + body).body, body);
    EXPECT_EQ(Response("A: b\n\n" + body).body, body);
}

TEST(Response, HasTheStatusThatTheFrontServerSends) {
    const struct {
        const char* headers;
        int status;
    } rows[] = {
        {"", 200},
        {"A: b\r\n", 200},
        {"Location: /servlet \r\n", 302},
        {"Status: 301 \r\nLocation: /servlet \r\n", 301},
        {"Location: /servlet \r\nStatus: 201 \r\n", 201},
        {"Status: 404 Not Found\r\n", 404},
        {"status: 500\r\n", 500},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Response(std::string(row.headers) + "\r\n").status, row.status) << row.headers;
}

TEST(Response, FindsAHeaderWhateverItsCase) {
    const Response response("Content-Type: text/html; charset=utf-8 \r\nX: \r\nx: 2\r\n\r\n");
    EXPECT_EQ(response.header("content-TYPE"), "text/html; charset=utf-8");
    EXPECT_EQ(response.header("x"), "");
    EXPECT_EQ(response.header("ContentType"), std::nullopt);
    EXPECT_EQ(response.header("Content-Typ"), std::nullopt);
}

TEST(Response, ShowsAHeaderThatAValueInjected) {
    const Response response("X: a\nSet-Cookie: stolen=1 \r\n\r\n");
    EXPECT_EQ(response.header("X"), "a");
    EXPECT_EQ(response.cookie("stolen")->value, "1");
}

TEST(Response, KeepsColonsInValues) {
    EXPECT_EQ(Response("Location: http://a:80/ \r\n\r\n").header("Location"), "http://a:80/");
}

TEST(Response, ThrowsForOutputThatAFrontServerRejects) {
    const char* const rows[] = {
        "",
        "Status: 200 \r\n",
        "text",
        "text\r\n\r\n",
        "Status: \r\n\r\n",
        "Status: ok \r\n\r\n",
        "Status: 20 \r\n\r\n",
        "Status: 200404 \r\n\r\n", // set twice
        "Status: 2x0 \r\n\r\n",
    };
    for (const char* written : rows)
        EXPECT_THROW(Response{written}, std::runtime_error) << written;
}

// Cookies

TEST(ResponseCookie, IsParsedWithItsAttributes) {
    const Response response(
        "Set-Cookie: lang=de ; Path=/; Max-Age = 60;HttpOnly; SameSite=Lax \r\n\r\n");
    const auto cookie = response.cookie("lang");
    ASSERT_TRUE(cookie);
    EXPECT_EQ(cookie->value, "de");
    ASSERT_EQ(cookie->attributes.size(), 4u);
    EXPECT_EQ(cookie->attribute("path"), "/");
    EXPECT_EQ(cookie->attribute("Max-Age"), "60");
    EXPECT_EQ(cookie->attribute("HttpOnly"), "");
    EXPECT_EQ(cookie->attribute("Secure"), std::nullopt);
}

TEST(ResponseCookie, UsesTheLastOfRepeatedAttributes) {
    const Response response("Set-Cookie: a=1; Max-Age=60; max-age=0\r\n\r\n");
    EXPECT_EQ(response.cookie("a")->attribute("Max-Age"), "0");
}

TEST(ResponseCookie, HasAnyValueUpToASemicolon) {
    EXPECT_EQ(Response("Set-Cookie: a=b=c d\r\n\r\n").cookie("a")->value, "b=c d");
    EXPECT_EQ(Response("Set-Cookie: a=\r\n\r\n").cookie("a")->value, "");
}

TEST(ResponseCookie, IsFoundByItsNameWithTheSameCase) {
    const Response response("Set-Cookie: a=1\r\nset-cookie: A=2\r\nSET-COOKIE: a=3\r\n\r\n");
    EXPECT_EQ(response.cookies().size(), 3u);
    EXPECT_EQ(response.cookie("A")->value, "2");
    EXPECT_EQ(response.cookie("a")->value, "3");
    EXPECT_FALSE(response.cookie("b"));
}

TEST(ResponseCookie, NeedsAName) {
    for (const char* header : {"=1", " =1", "a", "", ";a=1", "a;b=1"})
        EXPECT_TRUE(Response("Set-Cookie: " + std::string(header) + "\r\n\r\n").cookies().empty())
            << header;
}

} // namespace
