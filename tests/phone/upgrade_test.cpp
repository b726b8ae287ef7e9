// The page "settings-upgrade".
#include "json_reader.h"
#include "phone_test.h"

#include "model/firmware_image.h"

#include <thread>

using kit::testing::file;
using kit::testing::test_clock::advanceSeconds;

namespace {

std::string image(const std::string& version, const std::string& payload = "payload") {
    std::string bytes;
    phone::writeImage(version, payload, [&](std::string_view piece) {
        bytes += piece;
        return true;
    });
    return bytes;
}

class UpgradePage : public SignedInFixture {
protected:
    Answer upload(const std::string& bytes, const std::string& name = "new.img") {
        return me.upload("settings-upgrade&q=upload", file("firmware", name, bytes), kConfirmed);
    }
    std::string version() {
        const std::string text = me.page("settings-upgrade").text();
        const auto from = text.find("Current firmware Firmware ") + 26;
        return text.substr(from, text.find(' ', from) - from);
    }
    bool shows(const std::string& text) {
        return me.page("settings-upgrade").text().find(text) != std::string::npos;
    }
    std::string callState() { return readJson(me.page("status-data").body).at("desk.state"); }
    bool isInstalled() const {
        return phone::checkImage(folder.file("phone/firmware.img.next")).fault ==
               phone::ImageFault::none;
    }
    // Expects that a failed upload left no file behind.
    void expectNothingLeft() {
        for (const auto& entry : std::filesystem::directory_iterator(folder.file("phone"))) {
            const std::string name = entry.path().filename();
            EXPECT_TRUE(name == "state.xml" || name == "changes.xml" || name == "factory.csv" ||
                        name.rfind("password.", 0) == 0)
                << name;
        }
    }
};

} // namespace

TEST_F(UpgradePage, InstallsAnImageThatRunsFromTheNextRestartOn) {
    const std::string before = version();
    const Answer answer = upload(image("9.8.7"), "C:\\images\\<b>new.img");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.done(), "<b>new.img: Version 9.8.7 was received.");
    EXPECT_EQ(answer.body.find("<b>"), std::string::npos);
    EXPECT_EQ(version(), before);
    EXPECT_NE(before, "9.8.7");
    me.submit("settings-upgrade&q=reboot", {{"confirm", "1"}, {"version", "9.8.7"}});
    advanceSeconds(8);
    EXPECT_EQ(version(), "9.8.7");
    EXPECT_NE(me.page("status").text().find("Firmware 9.8.7"), std::string::npos);
    restart();
    Visitor again(*container);
    again.signIn();
    EXPECT_NE(again.page("status").text().find("Firmware 9.8.7"), std::string::npos);
}

TEST_F(UpgradePage, ShowsTheWaitingVersionUntilTheRestart) {
    const std::string waiting = "Version 9.8.7 will run after a restart.";
    const auto isShown = [&](Visitor& visitor) {
        return visitor.page("settings-upgrade").text().find(waiting) != std::string::npos;
    };
    EXPECT_FALSE(isShown(me));
    EXPECT_NE(upload(image("9.8.7")).text().find(waiting), std::string::npos);
    EXPECT_TRUE(isShown(me));
    EXPECT_EQ(upload("nonsense").status, 422);
    EXPECT_TRUE(isShown(me)) << "a failed upload changes nothing";
    Visitor other(*container, "192.0.2.8");
    other.signIn();
    EXPECT_TRUE(isShown(other));
    me.submit("settings-upgrade&q=reboot", {{"confirm", "1"}, {"version", "9.8.7"}});
    EXPECT_FALSE(isShown(other));
}

TEST_F(UpgradePage, DiscardsTheWaitingImage) {
    const std::string before = version();
    upload(image("9.8.7"));
    EXPECT_EQ(me.submitWithoutToken("settings-upgrade&q=discard").status, 403);
    EXPECT_TRUE(isInstalled());
    EXPECT_EQ(me.submit("settings-upgrade&q=discard").location(), "/servlet?p=settings-upgrade");
    const Answer answer = me.page("settings-upgrade");
    EXPECT_EQ(answer.done(), "The new firmware was discarded.");
    EXPECT_EQ(answer.text().find("will run after a restart"), std::string::npos);
    expectNothingLeft();
    me.submit("settings-upgrade&q=reboot", kConfirmed);
    advanceSeconds(8);
    EXPECT_EQ(version(), before);
    EXPECT_EQ(me.submit("settings-upgrade&q=discard").status, 303) << "nothing is waiting";
}

TEST_F(UpgradePage, ShowsTheProgressOfARestart) {
    EXPECT_EQ(me.page("settings-upgrade&q=restarting").location(), "/servlet?p=settings-upgrade");
    me.submit("settings-upgrade&q=reboot", kConfirmed);
    advanceSeconds(4);
    const Answer answer = me.page("settings-upgrade&q=restarting");
    EXPECT_EQ(answer.status, 200);
    EXPECT_NE(answer.text().find("50 %"), std::string::npos) << answer.text();
    EXPECT_NE(answer.body.find("content=\"4;url=/servlet?p=settings-upgrade&amp;q=restarting\""),
              std::string::npos)
        << "the refresh without JavaScript";
    EXPECT_EQ(notice(), "reboot");
    advanceSeconds(4);
    EXPECT_EQ(me.page("settings-upgrade&q=restarting").location(), "/servlet?p=settings-upgrade");
}

TEST_F(UpgradePage, RejectsAnInvalidImage) {
    const std::string good = image("9.8.7");
    std::string otherModel = good;
    otherModel[8] = 'X';
    std::string damaged = good;
    damaged[46] ^= 1;
    const struct {
        const char* what;
        std::string bytes;
        const char* message;
    } cases[] = {
        {"other model", otherModel,
         "This image is for a different model. The current firmware stays in use."},
        {"damaged", damaged, "The image is damaged. The current firmware stays in use."},
        {"longer", good + "x", "The image is damaged. The current firmware stays in use."},
        {"short", good.substr(0, good.size() - 1),
         "The image was not received completely. The current firmware stays in use."},
        {"header only", good.substr(0, 44),
         "The image was not received completely. The current firmware stays in use."},
        {"something else", std::string(200, 'x'),
         "This is not a firmware image for this phone. The current firmware stays in use."},
        {"empty", "", "The image was not received completely. The current firmware stays in use."},
    };
    for (const auto& wrong : cases) {
        const Answer answer = upload(wrong.bytes);
        EXPECT_EQ(answer.status, 422) << wrong.what;
        EXPECT_EQ(answer.alert(), wrong.message) << wrong.what;
        EXPECT_EQ(answer.done(), "") << wrong.what;
        expectNothingLeft();
    }
}

TEST_F(UpgradePage, KeepsTheInstalledImageIfTheNextIsInvalid) {
    upload(image("9.8.7"));
    upload("nonsense");
    EXPECT_TRUE(isInstalled());
    EXPECT_EQ(phone::checkImage(folder.file("phone/firmware.img.next")).version, "9.8.7");
}

TEST_F(UpgradePage, ReportsAMissingFile) {
    const Answer answer = upload("", "");
    EXPECT_EQ(answer.status, 422);
    EXPECT_EQ(answer.alert(), "The upload failed. The current firmware stays in use.");
    expectNothingLeft();
}

TEST_F(UpgradePage, AcceptsAnImageWithoutAFileName) {
    const Answer answer = upload(image("9.8.7"), "");
    EXPECT_TRUE(isInstalled());
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.done(), "Version 9.8.7 was received.");
    EXPECT_EQ(answer.alert(), "");
}

TEST_F(UpgradePage, IgnoresAnIncompleteUpload) {
    const Request whole = me.uploading("settings-upgrade&q=upload",
                                       file("firmware", "new.img", image("9.8.7")), kConfirmed);
    const std::size_t length = std::stoul(*whole.valueOf("CONTENT_LENGTH"));
    for (std::size_t cut = 0; cut < length - 2; cut += 11) {
        const Answer answer = me.send(whole.cutOffAfter(cut));
        EXPECT_TRUE(answer.status == 422 || answer.status == 403) << cut << " " << answer.status;
        EXPECT_EQ(answer.done(), "") << cut;
    }
    EXPECT_EQ(me.submit("settings-upgrade&q=upload", {{"firmware", "new.img"}}).alert(),
              "The upload failed. The current firmware stays in use.");
    expectNothingLeft();
}

// The attack: whoever has taken a session over keeps it by uploads that never end.
TEST_F(UpgradePage, RefusesTheUploadOfAUserWhoSignedOutMeanwhile) {
    const Request signOut = post("/servlet?p=login&q=logout")
                                .cookie("JSESSIONID", *me.cookie("JSESSIONID"))
                                .cookie("signIn", *me.cookie("signIn"))
                                .form({{"token", me.token()}});
    const auto signOutElsewhere = [&] {
        std::thread([&] { EXPECT_EQ(container->serve(signOut).status, 303); }).join();
    };
    const Answer answer = me.send(
        me.uploading("settings-upgrade&q=upload", file("firmware", "a", image("9.8.7")), kConfirmed)
            .onceRead(signOutElsewhere));
    EXPECT_EQ(answer.status, 403);
    EXPECT_FALSE(isInstalled());
    expectNothingLeft();
}

TEST_F(UpgradePage, ReportsThatAnImageCannotBeStored) {
    breakTheDisk();
    const Answer answer = upload(image("9.8.7"));
    EXPECT_EQ(answer.status, 422);
    EXPECT_EQ(answer.alert(), "The upload failed. The current firmware stays in use.");
}

TEST_F(UpgradePage, LogsWhyAnUploadFailed) {
    using namespace kit::testing;
    const std::string begin = "Page settings-upgrade: the upload of firmware failed: ";
    const auto lines = [] {
        std::vector<std::string> found;
        for (const auto& record : recorded_log::records()) {
            if (record.text.find("upload") != std::string::npos) {
                found.push_back(record.text);
            }
        }
        recorded_log::clear();
        return found;
    };
    recorded_log::clear();
    upload("", "");
    EXPECT_EQ(lines(), std::vector<std::string>{}) << "no file was chosen";
    me.send(me.uploading("settings-upgrade&q=upload", file("firmware", "a", "b"), kConfirmed)
                .cutOffAfter(100));
    EXPECT_EQ(lines(), std::vector{begin + "the form is malformed, or the client has gone"});
    breakTheDisk();
    upload(image("9.8.7"));
    const auto broken = lines();
    ASSERT_EQ(broken.size(), 1u);
    EXPECT_EQ(broken[0].rfind(begin, 0), 0u) << broken[0];
}

TEST_F(UpgradePage, OffersAnImageThatItAccepts) {
    const Answer answer = me.page("settings-upgrade&q=download");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.header("Content-Type"), "application/octet-stream");
    EXPECT_EQ(answer.header("Content-Disposition"),
              "attachment; filename=firmware-" + version() + ".img");
    const Answer taken = upload(answer.body);
    EXPECT_EQ(taken.status, 200);
    EXPECT_NE(taken.done().find("Version " + version() + " was"), std::string::npos)
        << taken.done();
}

TEST_F(UpgradePage, AcceptsOneUploadAtATime) {
    const std::string large = image("9.8.7", std::string(4 * 1024 * 1024, 'x'));
    const Request slow =
        me.uploading("settings-upgrade&q=upload", file("firmware", "slow.img", large), kConfirmed)
            .inPieces(1);
    Visitor other(*container, "192.0.2.8");
    other.signIn();
    int firstStatus = 0;
    // The first upload has begun once its file exists.
    const auto files = [&] {
        return std::distance(std::filesystem::directory_iterator(folder.file("phone")),
                             std::filesystem::directory_iterator());
    };
    const auto before = files();
    std::thread first([&] { firstStatus = me.send(slow).status; });
    while (files() == before) {
        std::this_thread::yield();
    }
    const Answer second = other.upload("settings-upgrade&q=upload",
                                       file("firmware", "second.img", image("5.5.5")), kConfirmed);
    first.join();
    EXPECT_EQ(second.status, 422);
    EXPECT_EQ(second.alert(), "Another transfer is in progress. Try again in a moment.");
    EXPECT_EQ(firstStatus, 200);
    EXPECT_EQ(phone::checkImage(folder.file("phone/firmware.img.next")).version, "9.8.7");
    EXPECT_EQ(other
                  .upload("settings-upgrade&q=upload", file("firmware", "b.img", image("5.5.5")),
                          kConfirmed)
                  .status,
              200);
}

TEST_F(UpgradePage, ReportsARestartUntilItIsOver) {
    advanceSeconds(100);
    const Answer answer = me.submit("settings-upgrade&q=reboot", kConfirmed);
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.title(), "Please wait");
    EXPECT_NE(answer.text().find("The phone will restart now."), std::string::npos);
    EXPECT_EQ(notice(), "reboot");
    advanceSeconds(7);
    EXPECT_EQ(notice(), "reboot");
    advanceSeconds(1);
    EXPECT_EQ(notice(), "idle") << "ended by itself";
    EXPECT_NE(me.page("status").text().find("Uptime less than a minute"), std::string::npos);
}

TEST_F(UpgradePage, RestartsOnlyAfterConfirmation) {
    upload(image("9.8.7"));
    event("command=ring");
    for (const Fields& fields : {Fields(), Fields{{"endCall", "1"}}}) {
        const Answer answer = me.submit("settings-upgrade&q=reboot", fields);
        EXPECT_EQ(answer.status, 422);
        EXPECT_EQ(answer.alert(), "The action was not confirmed. Nothing was changed.");
        EXPECT_EQ(notice(), "idle");
        EXPECT_TRUE(isInstalled()) << "still waiting";
        EXPECT_EQ(callState(), "ringing");
    }
}

TEST_F(UpgradePage, NamesWhatARestartDoes) {
    EXPECT_TRUE(shows("The phone will be unavailable for about 8 seconds."));
    EXPECT_FALSE(shows("After that, version"));
    const std::string before = version();
    upload(image("9.8.7"));
    EXPECT_TRUE(shows("After that, version 9.8.7 runs instead of version " + before + "."));
}

TEST_F(UpgradePage, NamesACallUnderWay) {
    const auto expectCall = [&](bool isNamed) {
        EXPECT_EQ(shows("One call is under way and will be ended."), isNamed) << callState();
        EXPECT_EQ(shows("One call is under way. It goes on."), isNamed) << callState();
        EXPECT_EQ(shows("No call is under way."), !isNamed) << callState();
        EXPECT_EQ(me.page("settings-upgrade").field("endCall").has_value(), isNamed);
    };
    expectCall(false);
    event("key=5");
    expectCall(false); // a number is being dialed
    event("command=hangup");
    event("command=ring");
    expectCall(true);
    event("command=answer");
    expectCall(true);
    event("command=hold");
    expectCall(true);
    event("command=hangup");
    expectCall(false);
}

TEST_F(UpgradePage, EndsOnlyACallThatItHasNamed) {
    for (const char* query : {"settings-upgrade&q=reboot", "settings-upgrade&q=reset"}) {
        event("command=ring");
        event("command=answer");
        const Answer answer = me.submit(query, kConfirmed);
        EXPECT_EQ(answer.status, 422) << query;
        EXPECT_EQ(answer.alert(),
                  "A call has begun since this page was opened. Nothing was changed.");
        EXPECT_EQ(notice(), "idle") << query;
        EXPECT_EQ(callState(), "talking") << query;
        const std::string named = answer.field("endCall").value_or("");
        EXPECT_EQ(me.submit(query, {{"confirm", "1"}, {"endCall", named}}).status, 200) << query;
        EXPECT_NE(notice(), "idle") << query;
        EXPECT_EQ(event("command=hangup").status, 400) << query << ": no call is left";
        advanceSeconds(8);
    }
}

TEST_F(UpgradePage, StartsOnlyAVersionThatItHasNamed) {
    const std::string before = version();
    for (const char* query : {"settings-upgrade&q=reboot", "settings-upgrade&q=reset"}) {
        upload(image("9.8.7"));
        EXPECT_EQ(me.page("settings-upgrade").field("version"), "9.8.7");
        upload(image("9.8.8")); // by another administrator
        for (const char* named : {"9.8.7", "", "9.8.80"}) {
            const Answer answer = me.submit(query, {{"confirm", "1"}, {"version", named}});
            EXPECT_EQ(answer.status, 422) << query;
            EXPECT_EQ(answer.alert(), "The firmware that waits for the restart has changed since "
                                      "this page was opened. Nothing was changed.");
            EXPECT_NE(answer.text().find("After that, version 9.8.8 runs"), std::string::npos);
            EXPECT_EQ(answer.field("version"), "9.8.8") << "what a further click confirms";
            EXPECT_EQ(notice(), "idle") << query;
        }
        me.submit("settings-upgrade&q=discard");
        EXPECT_EQ(me.submit(query, {{"confirm", "1"}, {"version", "9.8.8"}}).status, 422)
            << "discarded";
        EXPECT_FALSE(me.page("settings-upgrade").field("version"));
    }
    upload(image("9.8.8"));
    EXPECT_EQ(version(), before);
    EXPECT_EQ(
        me.submit("settings-upgrade&q=reboot", {{"confirm", "1"}, {"version", "9.8.8"}}).status,
        200);
    EXPECT_EQ(
        me.submit("settings-upgrade&q=reboot", {{"confirm", "1"}, {"version", "9.8.8"}}).status,
        409)
        << "it is restarting, and the version is no longer waiting";
    advanceSeconds(8);
    EXPECT_EQ(version(), "9.8.8");
}

TEST_F(UpgradePage, KeepsACallDuringAnUpload) {
    event("command=ring");
    EXPECT_EQ(upload(image("9.8.7")).status, 200);
    EXPECT_EQ(callState(), "ringing");
}

TEST_F(UpgradePage, InstallsOnlyAfterConfirmation) {
    const auto uploadOnly = [&](const std::string& bytes) {
        return me.upload("settings-upgrade&q=upload", file("firmware", "new.img", bytes)).alert();
    };
    const char* const refusal = "The action was not confirmed. Nothing was changed.";
    EXPECT_EQ(uploadOnly(image("9.8.7")), refusal);
    EXPECT_FALSE(isInstalled());
    expectNothingLeft();
    EXPECT_EQ(uploadOnly(image("9.8.7") + "x"),
              "The image is damaged. The current firmware stays in use.")
        << "a fault comes first";
    upload(image("9.8.7"));
    EXPECT_TRUE(shows("The upload also replaces version 9.8.7, which waits for the restart."));
    EXPECT_EQ(uploadOnly(image("9.8.8")), refusal);
    EXPECT_EQ(phone::checkImage(folder.file("phone/firmware.img.next")).version, "9.8.7");
    EXPECT_FALSE(std::filesystem::exists(folder.file("phone/firmware.img.received")));
}

TEST_F(UpgradePage, RunsOneTaskAtATime) {
    setProvisioningServer();
    me.submit("settings-upgrade&q=reboot", kConfirmed);
    for (const char* query : {"settings-upgrade&q=reboot", "settings-autop&now=true"}) {
        const Answer answer = me.submit(query, kConfirmed);
        EXPECT_EQ(answer.status, 409) << query;
        EXPECT_NE(answer.text().find("The phone is busy"), std::string::npos) << query;
        EXPECT_EQ(notice(), "reboot") << query;
    }
    advanceSeconds(8);
    EXPECT_EQ(notice(), "idle");
}

TEST_F(UpgradePage, ResetsOnlyAfterConfirmation) {
    me.submit("contacts&q=add", {{"name", "Dora"}, {"number", "400"}});
    const Answer answer = me.submit("settings-upgrade&q=reset");
    EXPECT_EQ(answer.status, 422);
    EXPECT_EQ(answer.alert(), "The action was not confirmed. Nothing was changed.");
    EXPECT_EQ(notice(), "idle");
    EXPECT_NE(saved()->directory.find("Dora"), nullptr);
}

TEST_F(UpgradePage, ResetsToFactorySettingsAndSignsOthersOut) {
    me.submit("contacts&q=add", {{"name", "Dora"}, {"number", "400"}});
    me.submit("network", {{"mode", "dhcp"}, {"hostname", "hall"}});
    me.submit("security&q=password", {{"oldPassword", kPassword},
                                      {"newPassword", "quiet harbour"},
                                      {"repeat", "quiet harbour"}});
    Visitor other(*container, "192.0.2.8");
    other.signIn("quiet harbour");
    const Answer answer = me.submit("settings-upgrade&q=reset", kConfirmed);
    EXPECT_EQ(answer.status, 200);
    EXPECT_NE(answer.text().find("The phone will now be reset to its factory settings."),
              std::string::npos);
    EXPECT_EQ(notice(), "reset");
    advanceSeconds(8);
    EXPECT_EQ(notice(), "idle");
    EXPECT_EQ(other.page("status").location(), std::string(kSignInForm) + "&jumpto=status&ended=1");
    EXPECT_EQ(me.page("network").location(), "/servlet?p=security&jumpto=network")
        << "another password first";
    EXPECT_EQ(saved()->settings.network.hostname, "desk-phone");
    EXPECT_EQ(saved()->directory.find("Dora"), nullptr);
    EXPECT_EQ(saved()->directory.contacts().size(), 3U);
    EXPECT_EQ(other.signIn("quiet harbour").status, 403);
    EXPECT_EQ(other.signIn(kFactoryPassword).status, 303);
}

TEST_F(UpgradePage, KeepsEverythingIfSavingTheResetFails) {
    me.submit("contacts&q=add", {{"name", "Dora"}, {"number", "400"}});
    breakTheDisk();
    const Answer answer = me.submit("settings-upgrade&q=reset", kConfirmed);
    EXPECT_EQ(answer.status, 500);
    EXPECT_EQ(answer.title(), "Something went wrong");
    EXPECT_EQ(answer.alert(), "The phone could not complete the request. Nothing was changed.");
    EXPECT_EQ(notice(), "idle");
    EXPECT_NE(me.page("contacts").text().find("Dora"), std::string::npos);
}

TEST_F(UpgradePage, RejectsAResetWhileThePhoneIsBusy) {
    setProvisioningServer();
    me.submit("contacts&q=add", {{"name", "Dora"}, {"number", "400"}});
    me.submit("settings-autop&now=true");
    const Answer answer = me.submit("settings-upgrade&q=reset", kConfirmed);
    EXPECT_EQ(answer.status, 409);
    EXPECT_EQ(answer.title(), "The phone is busy");
    EXPECT_EQ(notice(), "autoprovision");
    EXPECT_NE(saved()->directory.find("Dora"), nullptr) << "a refused reset changes nothing";
}
