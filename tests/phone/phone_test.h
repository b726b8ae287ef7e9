// Runs the phone's pages as on the device: the plug-in library in the container, with the listeners
// in the order of servlet.xml and the templates, on a phone with files of its own.
//
//     TEST_F(SignedInFixture, SavesTheHostName) {
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

constexpr const char* kFactoryPassword = "admin";
constexpr const char* kPassword = "garden gate"; // which the owner has set
// The field of a form that asks for a confirmation.
const Fields kConfirmed{{"confirm", "1"}};
constexpr const char* kSignInForm = "/servlet?p=login&q=loginForm";

// A response and the page in it.
struct Answer : kit::testing::Response, PageReader {
    explicit Answer(kit::testing::Response response)
        : Response(std::move(response)), PageReader(body) {}
    std::string location() const { return header("Location").value_or(""); }
};

// A user with a browser.
class Visitor {
public:
    // `host` is the name or address under which the browser opens the phone; empty for the usual.
    explicit Visitor(kit::testing::Runner& runner,
                     const std::string& address = kit::testing::kClientAddress,
                     std::string host = "")
        : m_browser(runner, address), m_host(std::move(host)) {}

    Answer send(const Request& request);

    // Stores the token if signing in succeeded.
    Answer signIn(const std::string& password = kPassword, const std::string& user = "admin");

    // Sends the form for signing in with its token; `more` is added to the address.
    Answer submitSignIn(Fields fields, const std::string& more = "");

    // Requests /servlet?p=QUERY; the query may contain more than the page's id.
    Answer page(const std::string& query) { return send(get("/servlet?p=" + query)); }
    // Sends a form with the token, as the page does.
    Answer submit(const std::string& query, Fields fields = {});
    Answer submitWithoutToken(const std::string& query, const Fields& fields = {}) {
        return send(post("/servlet?p=" + query).form(fields));
    }
    Answer upload(const std::string& query, const kit::testing::Part& file,
                  const Fields& fields = {}) {
        return send(uploading(query, file, fields));
    }
    Request uploading(const std::string& query, const kit::testing::Part& file,
                      const Fields& fields = {}) const;

    const std::string& token() const { return m_token; }
    std::optional<std::string> cookie(const std::string& name) const {
        return m_browser.cookie(name);
    }

private:
    kit::testing::Browser m_browser;
    std::string m_host;
    std::string m_token;
};

// A phone with factory settings and three contacts: Anna 100, Björn 200, Carol 300. Its owner has
// set a password.
class PhoneFixture : public testing::Test {
protected:
    PhoneFixture();

    // Switches the phone off and on. Visitors of the previous container must be created again.
    void restart();

    // Switches it off, resets it, and switches it on.
    void resetAtTheDevice();

    // Makes every write fail.
    void breakTheDisk();
    void repairTheDisk();

    // Returns the state that a phone switched on now would load.
    std::shared_ptr<const phone::State> saved() const;
    // Returns the content of the files with the state and the password.
    std::string savedText() const {
        return textOfFile(folder.file("phone/state.xml")) +
               textOfFile(folder.file("phone/changes.xml")) +
               textOfFile(folder.file("phone/password.1")) +
               textOfFile(folder.file("phone/password.2"));
    }

    // Returns the status word as any client gets it.
    std::string notice() { return Visitor(*container).page("notice").body; }

    // Sends an event as another device does.
    Answer event(const std::string& query, const std::string& from = "127.0.0.1") {
        return Visitor(*container, from).send(get("/servlet?" + query));
    }

    TemporaryFolder folder;
    std::unique_ptr<kit::testing::Container> container;
};

// The same as it is delivered, with the factory password.
class NewPhoneFixture : public PhoneFixture {
protected:
    NewPhoneFixture() { resetAtTheDevice(); }
};

class SignedInFixture : public PhoneFixture {
protected:
    SignedInFixture() : me(*container) { EXPECT_EQ(me.signIn().location(), "/servlet?p=status"); }

    // Saves the address of the server that a provisioning needs.
    void setProvisioningServer();

    Visitor me;
};

#endif
