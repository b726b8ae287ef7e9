#include "kit/json.h"

#include "served.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

using kit::Json;
using kit::Problem;

namespace {

// A type with a conversion of its own.
struct Task {
    std::string title;
    bool done;
};

Json toJson(const Task& task) {
    return {{"title", task.title}, {"done", task.done}};
}

enum class State { Open, Done };

Json toJson(State state) {
    return state == State::Open ? "open" : "done";
}

std::string textOf(const Json& value) {
    return value.serialized();
}

} // namespace

TEST(Json, IsBuiltFromOrdinaryValues) {
    EXPECT_EQ(textOf(nullptr), "null");
    EXPECT_EQ(textOf(Json()), "null");
    EXPECT_EQ(textOf(true), "true");
    EXPECT_EQ(textOf(false), "false");
    EXPECT_EQ(textOf(-5), "-5");
    EXPECT_EQ(textOf(std::uint8_t(200)), "200");
    EXPECT_EQ(textOf(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
    EXPECT_EQ(textOf(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    EXPECT_EQ(textOf(0.1), "0.1");
    EXPECT_EQ(textOf(1.5F), "1.5");
    EXPECT_EQ(textOf("text"), "\"text\"");
    EXPECT_EQ(textOf(std::string("string")), "\"string\"");
    EXPECT_EQ(textOf(std::string_view("viewed").substr(0, 4)), "\"view\"");
    EXPECT_EQ(textOf(static_cast<const char*>(nullptr)), "null");
}

TEST(Json, WritesNullForNumbersThatJsonDoesNotHave) {
    EXPECT_EQ(textOf(std::nan("")), "null");
    EXPECT_EQ(textOf(std::numeric_limits<double>::infinity()), "null");
}

TEST(Json, IsBuiltFromContainers) {
    EXPECT_EQ(textOf(std::vector<std::string>{}), "[]");
    EXPECT_EQ(textOf(std::vector<std::string>{"a", "b"}), "[\"a\",\"b\"]");
    EXPECT_EQ(textOf(std::vector<bool>{true, false}), "[true,false]");
    EXPECT_EQ(textOf(std::array<int, 2>{1, 2}), "[1,2]");
    EXPECT_EQ(textOf(std::list<double>{0.5}), "[0.5]");
    const int plain[] = {1, 2};
    EXPECT_EQ(textOf(plain), "[1,2]");
    EXPECT_EQ(textOf(std::map<std::string, int>{}), "{}");
    EXPECT_EQ(textOf(std::map<std::string, std::vector<int>>{{"a", {1}}, {"b", {}}}),
              "{\"a\":[1],\"b\":[]}");
    EXPECT_EQ(textOf(std::unordered_map<std::string, int>{{"a", 1}}), "{\"a\":1}");
    EXPECT_EQ(textOf(std::optional<int>()), "null");
    EXPECT_EQ(textOf(std::optional<int>(3)), "3");
}

TEST(Json, IsBuiltFromTypesWithAConversionOfTheirOwn) {
    EXPECT_EQ(textOf(Task{"call", true}), "{\"title\":\"call\",\"done\":true}");
    EXPECT_EQ(textOf(std::vector<Task>{{"call", false}}), "[{\"title\":\"call\",\"done\":false}]");
    EXPECT_EQ(textOf({{"state", State::Done}}), "{\"state\":\"done\"}");
    EXPECT_EQ(textOf(std::map<std::string, State>{{"a", State::Open}}), "{\"a\":\"open\"}");
}

TEST(Json, IsAnObjectIfAllElementsInBracesAreNamesWithValues) {
    EXPECT_EQ(textOf({1, "a", nullptr}), "[1,\"a\",null]");
    EXPECT_EQ(textOf({"a", 1}), "[\"a\",1]");
    EXPECT_EQ(textOf({{"a", 1}}), "{\"a\":1}");
    EXPECT_EQ(textOf({{"a", 1}, {"b", {{"c", {2, 3}}}}}), "{\"a\":1,\"b\":{\"c\":[2,3]}}");
    EXPECT_EQ(textOf({{"a", 1}, {2, 3}}), "[[\"a\",1],[2,3]]");
    EXPECT_EQ(textOf({{"a", Json::array()}, {"b", Json::object()}}), "{\"a\":[],\"b\":{}}");
    EXPECT_EQ(textOf(Json::array({Json::array({"a", 1})})), "[[\"a\",1]]");
}

TEST(Json, KeepsTheOrderOfItsMembers) {
    EXPECT_EQ(textOf({{"text", "x"}, {"large", UINT64_MAX}, {"yes", true}, {"inner", {1}}}),
              "{\"text\":\"x\",\"large\":18446744073709551615,\"yes\":true,\"inner\":[1]}");
    Json object;
    object.set("b", 1).set("a", 2).set("b", 3);
    EXPECT_EQ(textOf(object), "{\"b\":3,\"a\":2}");
    Json array;
    array.append(1).append({{"c", 2}});
    EXPECT_EQ(textOf(array), "[1,{\"c\":2}]");
}

TEST(Json, EscapesHtmlCharacters) {
    EXPECT_EQ(textOf("</script><!--&'\""),
              "\"\\u003c/script\\u003e\\u003c!--\\u0026\\u0027\\u0022\"");
    EXPECT_EQ(textOf({{"<", 1}}), "{\"\\u003c\":1}");
}

TEST(Json, EscapesWhatJsonDoesNotAllowInTexts) {
    EXPECT_EQ(textOf(std::string("a\0\x1F\n\\\x7F", 6)),
              "\"a\\u0000\\u001f\\u000a\\u005c\\u007f\"");
    const std::string others = "\xC2\x80\xC3\xA9\xE2\x80\xA8\xF0\x9F\x93\x9E\xF4\x8F\xBF\xBF";
    EXPECT_EQ(textOf(others), '"' + others + '"');
}

TEST(Json, ReplacesInvalidUtf8) {
    EXPECT_EQ(textOf("a\xff"
                     "b"),
              "\"a\\ufffdb\"");
    EXPECT_EQ(textOf("\xC3"), "\"\\ufffd\"");
    EXPECT_EQ(textOf("\xC0\xAF"), "\"\\ufffd\\ufffd\"");
}

TEST(Json, ReturnsNullForWhatIsNotThere) {
    const Json value = {{"a", {10, 20}}, {"b", "text"}};
    EXPECT_EQ(textOf(value["a"][1]), "20");
    EXPECT_EQ(textOf(value["a"][0]), "10");
    EXPECT_TRUE(value["a"][2].isNull());
    EXPECT_TRUE(value["a"][-1].isNull());
    EXPECT_TRUE(value["c"]["d"][0]["e"].isNull());
    EXPECT_TRUE(value["b"]["x"].isNull());
    EXPECT_TRUE(value["b"][0].isNull());
    EXPECT_TRUE(value["a"]["a"].isNull());
    EXPECT_TRUE(value[std::string("a")].isArray());
}

TEST(Json, IteratesOverTheElementsOfAnArrayOnly) {
    const Json value = {{"a", {1, 2, 3}}, {"b", {{"c", 4}}}};
    int sum = 0;
    for (const Json& element : value["a"]) {
        sum += *element.number(0, 9);
    }
    EXPECT_EQ(sum, 6);
    EXPECT_EQ(value["a"].size(), 3u);
    EXPECT_EQ(value["b"].size(), 1u);
    EXPECT_EQ(value["b"].begin(), value["b"].end());
    for (const Json& other : {Json(), Json("text"), Json(5), Json::array()}) {
        EXPECT_EQ(other.size(), 0u);
        EXPECT_EQ(other.begin(), other.end());
    }
}

TEST(Json, ReadsTexts) {
    const Json value = {{"a", "\xC3\xA9t\xC3\xA9"}, {"lines", "a\nb"}, {"empty", ""}, {"n", 5}};
    EXPECT_EQ(*value["a"].text(1, 3), "\xC3\xA9t\xC3\xA9");
    EXPECT_EQ(value["a"].text(1, 2).problem(), Problem::TooLong);
    EXPECT_EQ(value["lines"].text(1, 9).problem(), Problem::BadCharacters);
    EXPECT_EQ(value["lines"].string(), "a\nb");
    EXPECT_EQ(value["empty"].text(1, 9).problem(), Problem::Missing);
    EXPECT_EQ(value["n"].text(1, 9).problem(), Problem::WrongType);
    EXPECT_EQ(value["n"].string(), std::nullopt);
    EXPECT_EQ(value["none"].text(0, 9).problem(), Problem::Missing);
    EXPECT_EQ(*value["a"].choice({"no", "\xC3\xA9t\xC3\xA9"}), "\xC3\xA9t\xC3\xA9");
    EXPECT_EQ(value["a"].choice({"no"}).problem(), Problem::NotAChoice);
    EXPECT_EQ(value["n"].choice({"5"}).problem(), Problem::WrongType);
}

TEST(Json, ReadsBools) {
    EXPECT_TRUE(*Json(true).boolean());
    EXPECT_FALSE(*Json(false).boolean());
    EXPECT_EQ(Json(1).boolean().problem(), Problem::WrongType);
    EXPECT_EQ(Json().boolean().problem(), Problem::Missing);
}

TEST(Json, ReadsNumbersOfAnyType) {
    EXPECT_EQ(*Json(5).number(0, 9), 5);
    EXPECT_EQ(*Json(5u).number(-9, 9), 5);
    EXPECT_EQ(*Json(-5).number(-9L, 9L), -5);
    EXPECT_EQ(*Json(5.0).number(0, 9), 5) << "5.0 and 5e0 are the same number";
    EXPECT_EQ(*Json(5).number(0.0, 9.0), 5.0);
    EXPECT_EQ(*Json(0.5).number(0.0, 1.0), 0.5);
    EXPECT_EQ(*Json(UINT64_MAX).number<std::uint64_t>(0, UINT64_MAX), UINT64_MAX);
    EXPECT_EQ(*Json(INT64_MIN).number<std::int64_t>(INT64_MIN, 0), INT64_MIN);
}

TEST(Json, RefusesNumbersOutsideTheRange) {
    EXPECT_EQ(Json(-1).number<unsigned>(0, 9).problem(), Problem::TooSmall);
    EXPECT_EQ(Json(10).number(0, 9).problem(), Problem::TooLarge);
    EXPECT_EQ(Json(UINT64_MAX).number<std::int64_t>(0, INT64_MAX).problem(), Problem::TooLarge);
    EXPECT_EQ(Json(INT64_MIN).number<std::uint64_t>(0, 9).problem(), Problem::TooSmall);
    EXPECT_EQ(Json(1e300).number<std::int64_t>(0, INT64_MAX).problem(), Problem::TooLarge);
    EXPECT_EQ(Json(-1e300).number<std::int64_t>(INT64_MIN, 0).problem(), Problem::TooSmall);
    EXPECT_EQ(Json(1.5).number(0, 9).problem(), Problem::NotANumber);
    EXPECT_EQ(Json(1.5).number(0.0, 1.0).problem(), Problem::TooLarge);
    EXPECT_EQ(Json("5").number(0, 9).problem(), Problem::WrongType);
    EXPECT_EQ(Json().number(0, 9).problem(), Problem::Missing);
}

TEST(Json, IsSentByAResponse) {
    using namespace kit::testing;
    const Response response = answerTo(get("/servlet?p=x"), [](kit::Request&, kit::Response& out) {
        out.status(201).json({{"name", "<you>"}, {"counts", std::vector<int>{1, 2}}});
    });
    EXPECT_EQ(response.status, 201);
    EXPECT_EQ(response.header("Content-Type"), "application/json");
    EXPECT_EQ(response.header("Cache-Control"), "no-store");
    EXPECT_EQ(response.body, "{\"name\":\"\\u003cyou\\u003e\",\"counts\":[1,2]}");
}
