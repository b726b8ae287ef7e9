#include "served.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

using namespace kit::testing;

namespace {

// Calls `look` with the request that a page receives.
void lookAt(const Request& request, const std::function<void(kit::Request&)>& look) {
    bool looked = false;
    answerTo(request, [&](kit::Request& seen, kit::Response&) {
        look(seen);
        looked = true;
    });
    EXPECT_TRUE(looked);
}

} // namespace

TEST(KitRequest, DistinguishesAbsentFromEmpty) {
    lookAt(get("/servlet?p=x&empty=&full=a%26b"), [](kit::Request& request) {
        EXPECT_EQ(request.parameter("absent"), std::nullopt);
        EXPECT_EQ(request.parameter("empty"), "");
        EXPECT_EQ(request.parameter("full"), "a&b");
        EXPECT_EQ(request.page(), "x");
    });
}

TEST(KitRequest, ReturnsAllValuesOfAName) {
    lookAt(get("/servlet?p=x&a=1&b=2&a=3"), [](kit::Request& request) {
        EXPECT_EQ(request.parameters("a"), (std::vector<std::string_view>{"1", "3"}));
        EXPECT_TRUE(request.parameters("c").empty());
    });
}

TEST(KitRequest, ReadsTypedValues) {
    lookAt(get("/servlet?p=x&port=70000&name=abc&way=up&on=1"), [](kit::Request& request) {
        EXPECT_EQ(request.number<int>("port", 1, 65535).problem(), kit::Problem::TooLarge);
        EXPECT_EQ(*request.number<int>("port", 1, 99999), 70000);
        EXPECT_EQ(request.number<int>("none", 1, 9).problem(), kit::Problem::Missing);
        EXPECT_EQ(*request.text("name", 1, 3), "abc");
        EXPECT_EQ(request.text("name", 1, 2).problem(), kit::Problem::TooLong);
        EXPECT_EQ(*request.choice("way", {"up", "down"}), "up");
        EXPECT_TRUE(request.isChecked("on"));
        EXPECT_FALSE(request.isChecked("off"));
    });
}

TEST(KitRequest, ReadsTheFormBeforeTheQuery) {
    lookAt(post("/servlet?p=x&name=query").form({{"name", "form"}}), [](kit::Request& request) {
        EXPECT_EQ(request.parameter("name"), "form");
        EXPECT_TRUE(request.isPost());
    });
    lookAt(get("/servlet?p=x"), [](kit::Request& request) { EXPECT_FALSE(request.isPost()); });
}

TEST(KitRequest, ReturnsTheMethod) {
    for (const char* method : {"GET", "PATCH", "x"}) {
        lookAt(Request(method, "/servlet?p=x"),
               [&](kit::Request& request) { EXPECT_EQ(request.method(), method); });
    }
}

TEST(KitRequest, ReturnsHeadersWhateverTheCaseOfTheirNames) {
    const Request sent = get("/servlet?p=x")
                             .header("If-None-Match", "\"1\"")
                             .header("X-Empty", "")
                             .body("", "text/plain; charset=utf-8");
    lookAt(sent, [](kit::Request& request) {
        EXPECT_EQ(request.header("If-None-Match"), "\"1\"");
        EXPECT_EQ(request.header("if-none-match"), "\"1\"");
        EXPECT_EQ(request.header("X-Empty"), "");
        EXPECT_EQ(request.header("Content-Type"), "text/plain; charset=utf-8");
        EXPECT_EQ(request.header("content-length"), "0");
        for (const char* none : {"Authorization", "", "If None Match", "If-None-Match=", "X\n"}) {
            EXPECT_EQ(request.header(none), std::nullopt) << none;
        }
    });
}

TEST(KitRequest, ReturnsTheContentTypeAndLength) {
    lookAt(post("/servlet?p=x").body("12345", "Text/CSV;charset=utf-8"), [](kit::Request& request) {
        EXPECT_EQ(request.contentType(), "Text/CSV;charset=utf-8");
        EXPECT_TRUE(request.hasContentType("text/csv"));
        EXPECT_FALSE(request.hasContentType("text/cs"));
        EXPECT_FALSE(request.hasContentType("text"));
        EXPECT_EQ(request.contentLength(), 5u);
    });
    lookAt(post("/servlet?p=x").variable("CONTENT_LENGTH", "-5"), [](kit::Request& request) {
        EXPECT_EQ(request.contentType(), "");
        EXPECT_FALSE(request.hasContentType("text/csv"));
        EXPECT_EQ(request.contentLength(), 0u);
    });
}

TEST(KitRequest, ReturnsTheWholeBody) {
    const std::string bytes = std::string(10000, 'x') + '\0' + "end";
    const Request sent = post("/servlet?p=x").body(bytes, "text/plain");
    const auto bodyOf = [](const Request& request, std::size_t maxBytes) {
        std::optional<kit::Reading<std::string>> body;
        lookAt(request, [&](kit::Request& seen) { body = seen.body(maxBytes); });
        return *body;
    };
    EXPECT_EQ(*bodyOf(sent, bytes.size()), bytes);
    EXPECT_EQ(*bodyOf(sent.inPieces(1), 20000), bytes);
    EXPECT_EQ(*bodyOf(sent.without("CONTENT_LENGTH"), 20000), bytes);
    EXPECT_EQ(*bodyOf(get("/servlet?p=x"), 0), "");
    EXPECT_EQ(bodyOf(sent, bytes.size() - 1).problem(), kit::Problem::TooLong);
    EXPECT_EQ(bodyOf(sent.without("CONTENT_LENGTH"), 5).problem(), kit::Problem::TooLong);
    EXPECT_EQ(bodyOf(sent.cutOffAfter(9999), 20000).problem(), kit::Problem::Incomplete);
    EXPECT_EQ(bodyOf(sent.variable("CONTENT_LENGTH", "99999999999"), 20000).problem(),
              kit::Problem::TooLong);
}

TEST(KitRequest, ReadsALargeBodyPieceByPiece) {
    const std::string bytes(100000, 'x');
    lookAt(post("/servlet?p=x").body(bytes, "text/plain"), [&](kit::Request& request) {
        kit::BodyReader body = request.bodyReader(bytes.size());
        std::string read;
        std::size_t pieces = 0;
        for (auto piece = body.next(); !piece.empty(); piece = body.next()) {
            read += piece;
            ++pieces;
        }
        EXPECT_EQ(read, bytes);
        EXPECT_GT(pieces, 10u);
        EXPECT_EQ(body.problem(), kit::Problem::None);
        EXPECT_TRUE(body.next().empty());
    });
    lookAt(post("/servlet?p=x").body(bytes, "text/plain").without("CONTENT_LENGTH"),
           [](kit::Request& request) {
               kit::BodyReader body = request.bodyReader(50000);
               std::size_t size = 0;
               for (auto piece = body.next(); !piece.empty(); piece = body.next()) {
                   size += piece.size();
               }
               EXPECT_LE(size, 50000u);
               EXPECT_EQ(body.problem(), kit::Problem::TooLong);
               EXPECT_TRUE(body.next().empty());
           });
}

TEST(KitRequest, ReturnsTheClientsLanguage) {
    const Request sent = get("/servlet?p=x").header("Accept-Language", "fr, de-AT;q=0.8, en;q=0.5");
    lookAt(sent, [](kit::Request& request) {
        EXPECT_EQ(request.language({"en", "de"}), "de");
        EXPECT_EQ(request.language({"zh", "it"}), "zh") << "the first one";
        request.setLanguage("zh");
        EXPECT_EQ(request.language({"en", "zh"}), "zh");
        EXPECT_EQ(request.language({"en", "de"}), "en");
    });
    lookAt(get("/servlet?p=x"), [](kit::Request& request) {
        EXPECT_EQ(request.language({"de", "en"}), "de");
        request.setLanguage("en");
        EXPECT_EQ(request.language({"de", "en"}), "en");
    });
}

TEST(KitRequest, CreatesASession) {
    lookAt(get("/servlet?p=x"), [](kit::Request& request) {
        EXPECT_EQ(request.session(), nullptr);
        HttpSession& session = request.createSession();
        EXPECT_EQ(request.session(), &session);
        EXPECT_EQ(&request.createSession(), &session);
    });
}

TEST(KitRequest, DiscardsWhatIsLeftOfABody) {
    const std::string body(10000, 'x');
    lookAt(post("/servlet?p=x").body(body, "application/octet-stream"), [](kit::Request& request) {
        char byte = 0;
        EXPECT_EQ(request.raw().receiveBlockData(&byte, 1), 1);
        request.discardBody();
        EXPECT_EQ(request.raw().receiveBlockData(&byte, 1), 0);
        request.discardBody();
    });
}

TEST(KitRequest, ReadsCookies) {
    lookAt(get("/servlet?p=x").cookie("lang", "de").cookie("other", "a%20b"),
           [](kit::Request& request) {
               EXPECT_EQ(request.cookie("lang"), "de");
               EXPECT_EQ(request.cookie("other"), "a b");
               EXPECT_EQ(request.cookie("Lang"), std::nullopt);
           });
    lookAt(get("/servlet?p=x"),
           [](kit::Request& request) { EXPECT_EQ(request.cookie("lang"), std::nullopt); });
}

TEST(KitRequest, ReturnsTheClientsAddress) {
    lookAt(get("/servlet?p=x").from("198.51.100.4"), [](kit::Request& request) {
        EXPECT_EQ(request.remoteAddress(), kClientAddress) << "the browser sets its own address";
        EXPECT_EQ(request.session(), nullptr);
    });
}

TEST(KitRequest, HasAnEmptyAddressIfTheFrontServerSendsNone) {
    FunctionPage page([](kit::Request& request, kit::Response&) {
        EXPECT_EQ(request.remoteAddress(), "");
        EXPECT_EQ(request.page(), "");
    });
    kit::internal::ServletHandle servlet(page, "createPage");
    ServletRunner(servlet).serve(get("/servlet").without("REMOTE_ADDR"));
}
