// The phone's pages as a person meets them: the plug-in library in the container, with its
// listeners, templates and the order of servlet.xml, and a phone on files of the test's own.
//
//     TEST_F(SignedInTest, SavesTheHostName) {
//         EXPECT_EQ(me.submit("network", {{"hostname", "hall"}, ...}).status, 303);
//         EXPECT_EQ(me.page("network").field("hostname"), "hall");
//     }
#ifndef PHONE_TEST_H
#define PHONE_TEST_H

#include "model/temporary_folder.h"
#include "page_reader.h"

#include "model/device.h"

#include <kit/testing/browser.h>
#include <kit/testing/recorded_log.h>
#include <kit/testing/test_clock.h>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>

using kit::testing::Fields;
using kit::testing::get;
using kit::testing::post;
using kit::testing::Request;

constexpr const char* kPassword = "admin";
constexpr const char* kSignInForm = "/servlet?p=login&q=loginForm";

// What came back, and what somebody reads in it.
struct Answer : kit::testing::Response, PageReader {
    explicit Answer(kit::testing::Response response)
        : Response(std::move(response)), PageReader(body) {}
    std::string location() const { return header("Location").value_or(""); }
};

// Somebody with a browser.
class Visitor {
public:
    explicit Visitor(kit::testing::Runner& runner,
                     const std::string& address = kit::testing::kClientAddress)
        : m_browser(runner, address) {}

    Answer send(const Request& request);

    // Keeps the token, if that was right.
    Answer signIn(const std::string& password = kPassword, const std::string& user = "admin");

    // "network" asks for /servlet?p=network, and so on; what follows the page's id may hold more.
    Answer page(const std::string& query) { return send(get("/servlet?p=" + query)); }
    // As a form of the page does: with the token.
    Answer submit(const std::string& query, Fields fields = {});
    Answer submitWithoutToken(const std::string& query, const Fields& fields = {}) {
        return send(post("/servlet?p=" + query).form(fields));
    }
    Answer upload(const std::string& query, const kit::testing::Part& file) {
        return send(uploading(query, file));
    }
    Request uploading(const std::string& query, const kit::testing::Part& file) const;

    const std::string& token() const { return m_token; }
    std::optional<std::string> cookie(const std::string& name) const {
        return m_browser.cookie(name);
    }

private:
    kit::testing::Browser m_browser;
    std::string m_token;
};

// A phone as it left the factory, but for its contacts: Anna 100, Björn 200, Carol 300.
class PhoneTest : public testing::Test {
protected:
    PhoneTest();

    // Switches the phone off and on. Whoever used the container that there was needs a new browser.
    void restart();

    // Nothing can be written any more.
    void breakTheDisk();
    void repairTheDisk();

    // What a phone would find that is switched on now.
    std::shared_ptr<const phone::State> saved() const;
    // The state's file, byte for byte.
    std::string savedText() const { return textOfFile(folder.file("phone/state.xml")); }

    // What somebody gets who asks what the phone is doing: any address and any time will do.
    std::string notice() { return Visitor(*container).page("notice").body; }

    // An event, as the device next door sends it.
    Answer event(const std::string& query, const std::string& from = "127.0.0.1") {
        return Visitor(*container, from).send(get("/servlet?" + query));
    }

    TemporaryFolder folder;
    std::unique_ptr<kit::testing::Container> container;
};

class SignedInTest : public PhoneTest {
protected:
    SignedInTest() : me(*container) { EXPECT_EQ(me.signIn().location(), "/servlet?p=status"); }

    Visitor me;
};

#endif
