// CSRF protection: every change requires a POST with the token of the same session.
#include "json_reader.h"
#include "phone_test.h"

#include "model/configuration.h"

#include <algorithm>
#include <vector>

using kit::testing::file;
using kit::testing::Part;

namespace {

constexpr const char* kNothingDone = "This request did not come from a form of your current "
                                     "session, so nothing was changed.";

constexpr const char* kReset = "settings-upgrade&q=reset";

// A request that changes something if it has a valid token.
struct Change {
    const char* query;
    Fields fields;
    std::optional<Part> upload{};

    Request with(Fields token) const {
        const Request request = post(std::string("/servlet?p=") + query);
        token.insert(token.end(), fields.begin(), fields.end());
        if (upload) {
            std::vector<Part> parts;
            for (const auto& [name, value] : token) {
                parts.push_back(kit::testing::field(name, value));
            }
            parts.push_back(*upload);
            return request.multipart(parts);
        }
        return request.form(token);
    }
};

std::string configuration(int ringVolume) {
    phone::Settings settings = phone::factorySettings();
    settings.audio.ringVolume = ringVolume;
    return phone::configurationText(settings);
}

std::vector<Change> allChanges(const std::string& image) {
    return {
        {"phone&q=key", {{"key", "5"}}},
        {"phone", {{"number", "123"}}},
        {"phone", {{"command", "message_on"}}},
        {"accounts&q=save&acc=2",
         {{"label", "New"}, {"port", "5061"}, {"transport", "tls"}, {"expiry", "60"}}},
        {"network&q=save", {{"mode", "dhcp"}, {"hostname", "hall"}}},
        {"audio&q=save",
         {{"ringtone", "bell"},
          {"ringVolume", "1"},
          {"speakerVolume", "1"},
          {"handsetVolume", "1"},
          {"micGain", "1"},
          {"codec", "opus"}}},
        {"security&q=access", {{"idleSeconds", "60"}, {"remoteAddresses", "192.0.2.1"}}},
        {"security&q=password",
         {{"oldPassword", kPassword},
          {"newPassword", "quiet harbour"},
          {"repeat", "quiet harbour"}}},
        {"contacts&q=add", {{"name", "Emil"}, {"number", "500"}}},
        {"contacts&q=remove", {{"name", "Anna"}}},
        {"contacts&q=search", {{"search", "Carol"}}},
        {"contacts-preview&q=preview", {}, file("contacts", "d.csv", "Emil,500\r\n")},
        {"contacts-preview&q=apply", {}},
        {"settings-config&q=import", kConfirmed, file("config", "c.xml", configuration(9))},
        {"settings-config&q=localconfig&type=import", kConfirmed},
        {"settings-config&q=localconfig&type=remove", {}},
        {"settings-upgrade&q=upload", kConfirmed, file("firmware", "a.img", image)},
        {"settings-autop&q=save", {{"server", "http://192.0.2.5/"}}},
        {"settings-autop&now=true", {}},
        {"settings-upgrade&q=discard", {}},
        {"network&q=confirm", {}},
        {"network&q=undo", {}},
        {"settings-upgrade&q=reboot", {{"confirm", "1"}, {"endCall", "1"}}},
        {kReset, kConfirmed},
    };
}

class CsrfToken : public SignedInFixture {
protected:
    CsrfToken() : m_other(*container, "192.0.2.8") {
        m_other.signIn();
        // A local copy to restore, and a preview to import.
        me.upload("settings-config&q=import", file("config", "c.xml", configuration(3)),
                  kConfirmed);
        me.page("settings-config"); // shows the message, once
        setProvisioningServer();
        m_image = me.page("settings-upgrade&q=download").body;
        preview();
    }

    // Everything that a change can affect. Polls like a page's script, which keeps the preview.
    std::string everything() {
        const auto data = readJson(me.page("status-data&quiet=p=notice").body);
        std::string all = savedText() + me.page("contacts-preview").text() +
                          me.page("contacts&quiet=p=notice").text();
        for (const char* value : {"desk.lineLabel", "desk.screen", "desk.digits", "desk.state",
                                  "desk.lamps.message", "busy.word"}) {
            all += "\n" + data.at(value);
        }
        std::vector<std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(folder.file("phone"))) {
            files.push_back(entry.path().filename());
        }
        std::sort(files.begin(), files.end());
        for (const std::string& name : files) {
            all += "\n" + name;
        }
        return all;
    }

    void preview() {
        me.upload("contacts-preview&q=preview", file("contacts", "c.csv", "Dora,400\r\n"));
    }

    Visitor m_other;
    std::string m_image;
};

using SignInListener = SignedInFixture;

TEST_F(CsrfToken, MustBeTheOneOfTheSameSession) {
    const std::string before = everything();
    const Fields tokens[] = {{},
                             {{"token", ""}},
                             {{"token", "0123456789abcdef0123456789abcdef"}},
                             {{"token", me.token() + "0"}},
                             {{"token", me.token().substr(1)}},
                             {{"token", m_other.token()}}};
    for (const Change& change : allChanges(m_image)) {
        for (const Fields& token : tokens) {
            const Answer answer = me.send(change.with(token));
            EXPECT_EQ(answer.status, 403) << change.query;
            EXPECT_EQ(answer.alert(), kNothingDone) << change.query;
            EXPECT_EQ(notice(), "idle") << change.query;
        }
    }
    preview(); // opening other pages dropped it
    EXPECT_EQ(everything(), before);
}

TEST_F(CsrfToken, DoesNotAllowChangesByGet) {
    const std::string before = everything();
    for (const Change& change : allChanges(m_image)) {
        std::string query = change.query;
        for (const auto& [name, value] : change.fields) {
            query += "&" + name + "=" + value;
        }
        const Answer answer = me.page(query + "&token=" + me.token());
        EXPECT_TRUE(answer.status == 200 || answer.status == 403) << query;
        EXPECT_EQ(notice(), "idle") << query;
    }
    preview(); // opening other pages dropped it
    EXPECT_EQ(everything(), before);
}

TEST_F(CsrfToken, DoesNotAllowChangesWithoutSigningIn) {
    const std::string before = everything();
    for (const Change& change : allChanges(m_image)) {
        for (const Fields& token : {Fields(), Fields{{"token", me.token()}}}) {
            Visitor stranger(*container, "192.0.2.66");
            const Answer answer = stranger.send(change.with(token));
            EXPECT_EQ(answer.status, 303) << change.query;
            EXPECT_EQ(answer.location().rfind(kSignInForm, 0), 0U) << answer.location();
            EXPECT_EQ(notice(), "idle") << change.query;
        }
    }
    EXPECT_EQ(everything(), before) << "the preview is still there";
}

// The phone's pages check the sign-in a second time, so only another page shows what the listener
// does.
TEST_F(SignInListener, StopsStrangersBeforeThePage) {
    EXPECT_EQ(me.page("unguarded").body, "shown");
    for (const Request& request : {get("/servlet?p=unguarded"), post("/servlet?p=unguarded")}) {
        const Answer answer = Visitor(*container, "192.0.2.66").send(request);
        EXPECT_EQ(answer.status, 303);
        EXPECT_EQ(answer.location(), kSignInForm);
        EXPECT_EQ(answer.body.find("shown"), std::string::npos);
    }
}

TEST_F(CsrfToken, AllowsChanges) {
    for (const Change& change : allChanges(m_image)) {
        preview();
        const std::string before = everything();
        const Answer answer = me.send(change.with({{"token", me.token()}}));
        EXPECT_TRUE(answer.status == 200 || answer.status == 303)
            << change.query << ": " << answer.status;
        if (change.query == kReset) {
            // Before that, the pages that show everything are closed.
            me.submit("security&q=password", {{"oldPassword", kFactoryPassword},
                                              {"newPassword", kPassword},
                                              {"repeat", kPassword}});
        }
        EXPECT_NE(everything(), before) << change.query;
        kit::testing::test_clock::advanceSeconds(10); // let tasks finish
    }
}

TEST_F(CsrfToken, MayBeInTheAddressOfAPost) {
    const std::string query = "contacts&q=remove&token=" + me.token();
    EXPECT_EQ(me.submitWithoutToken(query, {{"name", "Anna"}}).status, 303);
    EXPECT_EQ(saved()->directory.find("Anna"), nullptr);
}

} // namespace
