// The kit's copy of the container's rules, compared with the container's own.
#include "kit/container_rules.h"

#include "kit/plugin.h"
#include "request_rules.h"

#include <kit/testing/runner.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

using namespace kit::testing;

namespace {

class Inspector final : public kit::Listener {
public:
    using Inspect = std::function<void(kit::Request&)>;
    explicit Inspector(Inspect inspect) : m_inspect(std::move(inspect)) {}

    bool admit(kit::Request& request, kit::Response&) override {
        m_inspect(request);
        return true;
    }

private:
    const Inspect m_inspect;
};

void inspect(const Request& request, Inspector::Inspect how) {
    ListenerRunner runner(*kit::newListener(std::make_unique<Inspector>(std::move(how))));
    runner.serve(request);
}

std::string containersQuery(kit::Request& request) {
    return rules::queryOf(request.raw().getRequestURI());
}

void expectSameEvent(kit::Request& request) {
    const std::string query = containersQuery(request);
    const rules::Event theirs = rules::eventOf(request.raw(), query.c_str());
    const auto ours = kit::eventOf(request);
    ASSERT_EQ(ours.has_value(), theirs.value != nullptr);
    if (ours) {
        EXPECT_EQ(ours->name, theirs.name);
        EXPECT_EQ(ours->value, ours->name == "csta" ? "" : theirs.value);
    }
}

void expectSameStatus(const std::string& query) {
    const auto theirs = rules::requestedStatus(query.c_str());
    const auto ours = kit::requestedStatus(query);
    ASSERT_EQ(ours.has_value(), theirs.has_value());
    if (ours) {
        EXPECT_EQ(static_cast<int>(*ours), static_cast<int>(*theirs));
    }
}

// URLs of one and of two of these pieces in every order, behind several beginnings.
std::vector<std::string> urls() {
    const char* const kPieces[] = {
        "key=1",
        "key",
        "&key=2",
        "number=30",
        "phonecfg=x",
        "redirectcall=1",
        "forward=",
        "Server=a",
        "server=a",
        "push=1",
        "download=1",
        "command=ring",
        "csta",
        "csta=x",
        "p=notice",
        "p=status",
        "&q=reboot",
        "&reboot=true",
        "&now=true",
        "p=settings-upgrade&q=reset",
        "p=settings-config&q=import",
        "p=settings-config&q=localconfig&type=import",
        "p=settings-config&q=localconfig&type=remove",
        "&p=settings-config",
    };
    std::vector<std::string> urls{"", "/", "/servlet", "/servlet?"};
    const auto add = [&](const char* start, const char* one, const char* join, const char* two) {
        urls.push_back(std::string(start).append(one).append(join).append(two));
    };
    for (const char* start : {"", "/servlet?", "/servlet?p=x&", "/servlets?"}) {
        for (const char* one : kPieces) {
            add(start, one, "", "");
            for (const char* two : kPieces) {
                add(start, one, "", two);
                add(start, one, "&", two);
            }
        }
    }
    return urls;
}

} // namespace

TEST(ContainerRules, ReadTheQueryAndTheEventAsTheContainerDoes) {
    for (const std::string& url : urls()) {
        SCOPED_TRACE(url);
        inspect(get(url), [](kit::Request& request) {
            EXPECT_EQ(kit::containerQuery(request), containersQuery(request));
            expectSameEvent(request);
        });
    }
}

TEST(ContainerRules, RequestTheStatusThatTheContainerSets) {
    for (const std::string& url : urls()) {
        SCOPED_TRACE(url);
        inspect(get(url),
                [](kit::Request& request) { expectSameStatus(containersQuery(request)); });
    }
}

TEST(ContainerRules, NameEachStatusAsTheContainerDoes) {
    for (int status = -1; status <= 99; ++status) {
        EXPECT_STREQ(kit::statusWord(static_cast<kit::DeviceStatus>(status)),
                     rules::statusWord(status))
            << status;
    }
}

TEST(ContainerRules, FindNoEventInARequestWithoutAUrl) {
    inspect(get("/servlet?key=1").without("REQUEST_URI"), [](kit::Request& request) {
        EXPECT_EQ(kit::containerQuery(request), "");
        EXPECT_FALSE(kit::eventOf(request).has_value());
    });
}

TEST(ContainerRules, TakeAnEventWithAFormField) {
    inspect(post("/servlet?key").form({{"key", "OK"}}), [](kit::Request& request) {
        expectSameEvent(request);
        ASSERT_TRUE(kit::eventOf(request));
        EXPECT_EQ(kit::eventOf(request)->value, "OK");
    });
}
