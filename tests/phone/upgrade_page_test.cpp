#include "pages/upgrade_page.h"
#include "visitor.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

// An upload that arrives whole and is put in place of what was there, and one that does not.
Visitor::Upload uploadOf(const char* name, std::string content) {
    return [name, content = std::move(content)](const char* path) {
        const std::string other = std::string(path) + ".part";
        std::ofstream(other, std::ios::binary) << content;
        std::rename(other.c_str(), path);
        return name;
    };
}

const char* brokenUpload(const char*) {
    return nullptr;
}

class UpgradePage : public ::testing::Test {
protected:
    UpgradePage() { visitor.signIn(); }
    ~UpgradePage() override {
        unlink(image.c_str());
        EXPECT_EQ(rmdir(folder), 0) << "something was left beside the image";
    }

    std::string action(const char* name) const {
        return std::string("/servlet?p=settings-upgrade&q=") + name;
    }
    bool imageExists() const { return access(image.c_str(), F_OK) == 0; }

    char folder[24] = "/tmp/upgrade-XXXXXX";
    const std::string image = std::string(mkdtemp(folder)) + "/firmware.img";
    phone::Phone phone;
    FakeSessions sessions;
    Visitor visitor{phone, sessions};
    phone::UpgradePage page{phone, image.c_str()};
};

void expectFailure(const Answer& answer) {
    EXPECT_EQ(answer.page, "upgrade.html");
    EXPECT_NE(answer.variable("failed"), "");
    EXPECT_EQ(answer.variable("size"), "");
    EXPECT_EQ(answer.variable("uploaded"), "");
}

} // namespace

TEST_F(UpgradePage, ShowsItsForms) {
    const Answer answer = visitor.get(page, "/servlet?p=settings-upgrade");
    EXPECT_EQ(answer.page, "upgrade.html");
    EXPECT_EQ("&token=" + answer.variable("token"), visitor.token());
    EXPECT_EQ(answer.variable("failed"), "");
    EXPECT_EQ(answer.variable("size"), "");
}

TEST_F(UpgradePage, TellsNameAndSizeOfACompleteUpload) {
    const Answer answer =
        visitor.post(page, action("upload") + visitor.token(), uploadOf("phone-2.bin", "12345"));
    EXPECT_EQ(answer.page, "upgrade.html");
    EXPECT_EQ(answer.variable("uploaded"), "phone-2.bin");
    EXPECT_EQ(answer.variable("size"), "5");
    EXPECT_EQ(answer.variable("failed"), "");
    EXPECT_TRUE(imageExists());
}

TEST_F(UpgradePage, ShowsOnlyTheBeginningOfALongName) {
    const std::string name(1000, 'n');
    const Answer answer =
        visitor.post(page, action("upload") + visitor.token(), uploadOf(name.c_str(), "12345"));
    EXPECT_EQ(answer.variable("uploaded"), name.substr(0, 128));
}

TEST_F(UpgradePage, TellsThatAnUploadFailed) {
    expectFailure(visitor.post(page, action("upload") + visitor.token(), brokenUpload));
}

TEST_F(UpgradePage, TellsThatAnUploadFailedThoughAnEarlierOneDidNot) {
    visitor.post(page, action("upload") + visitor.token(), uploadOf("phone-2.bin", "12345"));
    expectFailure(visitor.post(page, action("upload") + visitor.token(), brokenUpload));
    EXPECT_TRUE(imageExists());
}

TEST_F(UpgradePage, DoesNotTakeAFieldOfTheAddressForAnUpload) {
    visitor.post(page, action("upload") + visitor.token(), uploadOf("phone-2.bin", "12345"));
    expectFailure(
        visitor.post(page, action("upload") + visitor.token() + "&firmware=x", brokenUpload));
}

TEST_F(UpgradePage, DoesNotTakeATextFieldForAnUpload) {
    visitor.post(page, action("upload") + visitor.token(), uploadOf("phone-2.bin", "12345"));
    expectFailure(visitor.post(page, action("upload") + visitor.token(),
                               [](const char*) { return "phone-3.bin"; }));
    EXPECT_TRUE(imageExists());
}

TEST_F(UpgradePage, ExpectsTheImageInItsOwnField) {
    expectFailure(visitor.post(page, action("upload") + visitor.token(), [](const char* path) {
        uploadOf("phone-2.bin", "12345")(path);
        return static_cast<const char*>(nullptr); // it came in a field of another name
    }));
    EXPECT_FALSE(imageExists());
}

TEST_F(UpgradePage, RefusesAnUploadWhileAnotherOneIsUnderWay) {
    const Answer answer = visitor.post(page, action("upload") + visitor.token(), [&](const char*) {
        Visitor other(phone, sessions);
        other.signIn();
        expectFailure(
            other.post(page, action("upload") + other.token(), uploadOf("phone-2.bin", "12345")));
        return static_cast<const char*>(nullptr);
    });
    expectFailure(answer);
    EXPECT_FALSE(imageExists());
}

TEST_F(UpgradePage, KeepsTheEarlierImageWhenTheNextIsEmpty) {
    visitor.post(page, action("upload") + visitor.token(), uploadOf("phone-2.bin", "12345"));
    expectFailure(visitor.post(page, action("upload") + visitor.token(), uploadOf("", "")));
    EXPECT_TRUE(imageExists());
}

TEST_F(UpgradePage, TakesALaterImageForTheEarlierOne) {
    visitor.post(page, action("upload") + visitor.token(), uploadOf("phone-2.bin", "12345"));
    const Answer answer =
        visitor.post(page, action("upload") + visitor.token(), uploadOf("phone-3.bin", "1234567"));
    EXPECT_EQ(answer.variable("uploaded"), "phone-3.bin");
    EXPECT_EQ(answer.variable("size"), "7");
}

TEST_F(UpgradePage, KeepsNoEmptyImage) {
    expectFailure(visitor.post(page, action("upload") + visitor.token(), uploadOf("", "")));
    EXPECT_FALSE(imageExists());
}

TEST_F(UpgradePage, TellsThatAnUploadFailedWhenThereIsNoImage) {
    expectFailure(visitor.post(page, action("upload") + visitor.token(),
                               [](const char*) { return "phone-2.bin"; }));
}

TEST_F(UpgradePage, TellsThatThePhoneWasAskedToRestartOrReset) {
    for (const char* name : {"reboot", "reset"}) {
        const Answer answer = visitor.post(page, action(name) + visitor.token());
        EXPECT_EQ(answer.page, "restart.html");
        EXPECT_EQ(answer.variable("asked"), name);
        EXPECT_EQ(answer.status, "");
    }
}

TEST_F(UpgradePage, RefusesWhatAnotherSiteMakesABrowserSend) {
    for (const char* name : {"upload", "reboot", "reset"}) {
        SCOPED_TRACE(name);
        const std::string wrongToken = "&token=" + std::string(32, '0');
        for (const std::string& token : {std::string(), std::string("&token="), wrongToken}) {
            const Answer answer =
                visitor.post(page, action(name) + token, uploadOf("phone-2.bin", "12345"));
            EXPECT_EQ(answer.status, "403");
            EXPECT_EQ(answer.page, "refused.html");
        }
        EXPECT_EQ(visitor.get(page, action(name) + visitor.token()).page, "refused.html");
    }
    EXPECT_FALSE(imageExists());
}

TEST_F(UpgradePage, RefusesTheTokenOfAnotherSignIn) {
    Visitor other(phone, sessions);
    other.signIn();
    EXPECT_EQ(visitor.post(page, action("reboot") + other.token()).status, "403");
}

TEST_F(UpgradePage, SendsAStrangerToTheSignInForm) {
    Visitor stranger(phone, sessions);
    const Answer answer = stranger.post(page, action("upload"), uploadOf("phone-2.bin", "12345"));
    EXPECT_EQ(answer.location, "/servlet?p=login&q=loginForm");
    EXPECT_EQ(answer.page, "");
    EXPECT_FALSE(imageExists());
}
