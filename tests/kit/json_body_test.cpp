#include "kit/json_body.h"

#include "served.h"

#include <gtest/gtest.h>

#include <string>

using namespace kit::testing;

namespace {

const Request kPost = post("/servlet?p=x");

std::string errorOf(const std::string& text) {
    return kit::parseJson(text).error();
}

std::string readBack(const std::string& text) {
    const kit::JsonBody body = kit::parseJson(text);
    EXPECT_TRUE(body) << body.error();
    return (*body).serialized();
}

std::string nested(std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
}

// Returns the response of a page that echoes JSON or refuses it.
Response echo(const Request& request) {
    return answerTo(request, [](kit::Request& seen, kit::Response& response) {
        const kit::JsonBody body = kit::readJson(seen);
        if (!body) {
            return body.refuse(response);
        }
        response.json(*body);
    });
}

} // namespace

TEST(ParseJson, ReadsEveryType) {
    for (const char* text :
         {"null", "true", "false", "0", "-1", "18446744073709551615", "-9223372036854775808", "0.5",
          "\"\"", "\"text\"", "[]", "{}", "[1,[2,[]],{}]", R"({"a":{"b":[true,null]},"":0})"}) {
        EXPECT_EQ(readBack(text), text);
    }
    EXPECT_EQ(readBack(" \t\r\n{ \"a\" : [ 1 , 2 ] } \n"), "{\"a\":[1,2]}");
    EXPECT_EQ(readBack("18446744073709551616"), "18446744073709551616") << "as a double";
}

TEST(ParseJson, DecodesEscapes) {
    const std::string all = R"("\"\\\/\b\f\n\r\t\u0041\u00e9\ud83d\udcde\u0000")";
    EXPECT_EQ((*kit::parseJson(all)).string(),
              std::string_view("\"\\/\b\f\n\r\tA\xC3\xA9\xF0\x9F\x93\x9E\0", 16));
}

TEST(ParseJson, RoundTripsEveryCharacter) {
    for (int code = 0; code < 0x80; ++code) {
        const std::string text(1, static_cast<char>(code));
        EXPECT_EQ((*kit::parseJson(kit::Json(text).serialized())).string(), text) << code;
    }
}

TEST(ParseJson, RejectsAnythingButJson) {
    for (const char* text :
         {"",        " ",        "{",   "{\"a\":}",    "{\"a\":1,}",  "[1 2]", "[1,]",
          "\"\n\"",  "\"\xff\"", "01",  "1.",          "-",           "nul",   "{} x",
          "\"\\x\"", "{a:1}",    "'a'", "\"\\ud800\"", "\"\\udc00\"", "NaN",   "Infinity",
          "1e999",   "// a\n1",  "\"a", "]",           "\xC0\xAF",    "[1}"}) {
        const kit::JsonBody body = kit::parseJson(text);
        EXPECT_FALSE(body) << text;
        EXPECT_FALSE(body.error().empty()) << text;
    }
    EXPECT_FALSE(kit::parseJson(std::string_view("1\0", 2)));
}

TEST(ParseJson, NamesThePlaceOfAnError) {
    EXPECT_EQ(errorOf("{\"a\": 1,\n \"b\" 2}").substr(0, 18), "line 2, column 6: ");
    EXPECT_EQ(errorOf("[\"\xC3\xA9\", x]").substr(0, 18), "line 1, column 7: ")
        << "columns count characters";
    EXPECT_EQ(errorOf("").substr(0, 18), "line 1, column 1: ");
    EXPECT_EQ(errorOf("{\"tasks\": [1, {\"x\": 1, \"x\": 2}]}"),
              "tasks[1].x: this name occurs twice");
    EXPECT_EQ(errorOf("{\"a\":" + nested(17) + "}"),
              "a[0][0][0][0][0][0][0][0][0][0][0][0][0][0][0]: more than 16 levels deep");
    EXPECT_EQ(errorOf(std::string(65537, ' ')), "more than 65536 bytes");
}

TEST(ParseJson, NeverRepeatsLongTextsInAnError) {
    const std::string longName(50000, 'n');
    for (const std::string& text :
         {"\"" + longName, longName, "{\"" + longName + "\":" + nested(16) + "}",
          "{\"" + longName + "\":1,\"" + longName + "\":2}"}) {
        const std::string error = errorOf(text.substr(0, 60000));
        EXPECT_FALSE(error.empty());
        EXPECT_LT(error.size(), 250u) << error;
    }
}

TEST(ParseJson, LimitsTheDepth) {
    EXPECT_TRUE(kit::parseJson(nested(16)));
    EXPECT_FALSE(kit::parseJson(nested(17)));
    EXPECT_FALSE(kit::parseJson(std::string(60000, '[')));
    EXPECT_FALSE(kit::parseJson(nested(2), {100, 1}));
}

TEST(ParseJson, LimitsTheSize) {
    EXPECT_TRUE(kit::parseJson("[1]", {3, 1}));
    EXPECT_EQ(kit::parseJson("[12]", {3, 1}).error(), "more than 3 bytes");
}

TEST(ReadJson, ReadsTheBodyOfARequest) {
    const Response response = echo(kPost.body("{\"a\": [1, \"b\"]}", "application/json"));
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "{\"a\":[1,\"b\"]}");
    EXPECT_EQ(echo(kPost.body("[ 1 ]", "Application/JSON ; charset=utf-8").inPieces(1)).body,
              "[1]");
    EXPECT_EQ(echo(Request("PUT", "/servlet?p=x").body("1", "application/json")).body, "1");
}

// A page of another site can send other content types without asking the device.
TEST(ReadJson, RefusesOtherContentTypes) {
    for (const char* type : {"text/plain", "", "application/jsonp", "text/json",
                             "application/octet-stream", "multipart/form-data; boundary=x"}) {
        const Response response = echo(kPost.body("{}", type));
        EXPECT_EQ(response.status, 415) << type;
        EXPECT_EQ(response.body, "{\"error\":\"the content type is not application/json\"}");
    }
    EXPECT_EQ(echo(kPost).status, 415);
}

TEST(ReadJson, RefusesABodyThatIsWrong) {
    const Response response = echo(kPost.body("{\"a\":\n tru}", "application/json"));
    EXPECT_EQ(response.status, 400);
    EXPECT_EQ(response.header("Content-Type"), "application/json");
    EXPECT_EQ(response.body.rfind("{\"error\":\"line 2, column ", 0), 0u) << response.body;
}

TEST(ReadJson, RefusesABodyThatIsTooLarge) {
    const std::string large = '"' + std::string(65535, 'x') + '"';
    EXPECT_EQ(echo(kPost.body(large.substr(1), "application/json")).status, 400) << "65,536 bytes";
    EXPECT_EQ(echo(kPost.body(large, "application/json")).status, 413);
    const Request chunked = kPost.body(large, "application/json").without("CONTENT_LENGTH");
    EXPECT_EQ(echo(chunked).status, 413);
    EXPECT_EQ(echo(chunked).body, "{\"error\":\"more than 65536 bytes\"}");
}

TEST(ReadJson, RefusesABodyThatWasCutOff) {
    const Response response = echo(kPost.body("12345", "application/json").cutOffAfter(3));
    EXPECT_EQ(response.status, 400) << "123 is JSON too";
    EXPECT_EQ(response.body, "{\"error\":\"the body is incomplete\"}");
}
