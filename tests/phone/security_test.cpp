// The page "security".
#include "phone_test.h"

#include "kit/attempt_limit.h"

#include <array>
#include <filesystem>
#include <thread>
#include <vector>

using kit::testing::test_clock::advanceSeconds;

namespace {

constexpr const char* kNew = "correct horse";

Fields change(const std::string& former, const std::string& fresh, const std::string& repeat) {
    return {{"oldPassword", former}, {"newPassword", fresh}, {"repeat", repeat}};
}

class SecurityPage : public SignedInFixture {
protected:
    SecurityPage() : other(*container, "192.0.2.8") { other.signIn(); }

    Visitor other;
};

} // namespace

TEST_F(SecurityPage, ShowsTheSessions) {
    const Answer page = me.page("security");
    EXPECT_EQ(page.title(), "Security");
    EXPECT_NE(page.text().find("From 192.0.2.7 Ends After 600 seconds of inactivity"),
              std::string::npos)
        << page.text();
    const auto others = page.text().find("Other sessions");
    ASSERT_NE(others, std::string::npos);
    EXPECT_NE(page.text().find("192.0.2.8", others), std::string::npos);
    EXPECT_EQ(page.text().find("192.0.2.7", others), std::string::npos);
    other.submit("login&q=logout");
    EXPECT_NE(me.page("security").text().find("Other sessions None."), std::string::npos);
}

TEST_F(SecurityPage, SignsOutEverywhere) {
    EXPECT_EQ(me.submitWithoutToken("security&q=signOutAll").status, 403);
    EXPECT_EQ(other.page("status").status, 200);
    EXPECT_EQ(me.submit("security&q=signOutAll").location(), kSignInForm);
    EXPECT_EQ(me.page("status").location(), std::string(kSignInForm) + "&jumpto=status&ended=1");
    EXPECT_EQ(other.page("status").location(), std::string(kSignInForm) + "&jumpto=status&ended=1");
    EXPECT_EQ(me.signIn().status, 303);
    EXPECT_NE(me.page("security").text().find("Other sessions None."), std::string::npos);
}

// The attack: whoever looks over the shoulder, or reads the page later, takes a session over.
TEST_F(SecurityPage, ShowsNoIdsOfSessions) {
    const std::string body = me.page("security").body;
    for (const Visitor* visitor : {&me, &other}) {
        for (const char* name : {"JSESSIONID", "signIn"}) {
            EXPECT_EQ(body.find(*visitor->cookie(name)), std::string::npos) << name;
        }
    }
    EXPECT_EQ(body.find(other.token()), std::string::npos);
}

TEST_F(SecurityPage, ChangesThePasswordAndSignsOthersOut) {
    const Answer answer = me.submit("security&q=password", change(kPassword, kNew, kNew));
    EXPECT_EQ(answer.status, 303);
    EXPECT_EQ(answer.location(), "/servlet?p=security");
    EXPECT_EQ(me.send(get(answer.location())).done(), "Saved.") << "I am still signed in";
    EXPECT_EQ(other.page("status").status, 303);
    EXPECT_EQ(other.signIn(kPassword).status, 403);
    EXPECT_EQ(other.signIn(kNew).status, 303);
    restart();
    EXPECT_EQ(Visitor(*container).signIn(kPassword).status, 403);
    EXPECT_EQ(Visitor(*container).signIn(kNew).status, 303);
}

TEST_F(SecurityPage, RejectsInvalidPasswords) {
    const struct {
        Fields fields;
        const char* field;
        const char* message;
    } cases[] = {
        {change("wrong", kNew, kNew), "oldPassword", "The current password is incorrect."},
        {change("", kNew, kNew), "oldPassword", "The current password is incorrect."},
        {change(kPassword, "", ""), "newPassword", "Please fill in this field."},
        {change(kPassword, "seven77", "seven77"), "newPassword", "Use at least 8 characters."},
        {change(kPassword, std::string(129, 'x'), std::string(129, 'x')), "newPassword",
         "Use at most 128 characters."},
        {change(kPassword, kNew, "other horse"), "repeat", "The two entries do not match."},
        {change(kPassword, kNew, ""), "repeat", "The two entries do not match."},
    };
    const std::string before = savedText();
    for (const auto& wrong : cases) {
        const Answer answer = me.submit("security&q=password", wrong.fields);
        EXPECT_EQ(answer.status, 422) << wrong.message;
        EXPECT_EQ(answer.error(wrong.field), wrong.message);
        EXPECT_EQ(answer.body.find("horse"), std::string::npos) << "no password is sent back";
        EXPECT_EQ(answer.field("idleSeconds"), "600") << "the other form is unchanged";
    }
    EXPECT_EQ(savedText(), before);
    EXPECT_EQ(other.page("status").status, 200) << "nobody was signed out";
}

TEST_F(SecurityPage, LimitsTheRateOfGuessingTheCurrentPassword) {
    for (int i = 0; i < kit::AttemptLimit::kFreeAttempts; ++i) {
        EXPECT_EQ(me.submit("security&q=password", change("wrong", kNew, kNew)).status, 422);
    }
    const Answer refused = me.submit("security&q=password", change(kPassword, kNew, kNew));
    EXPECT_EQ(refused.status, 429);
    EXPECT_EQ(refused.alert(), "Too many attempts. Try again in 2 seconds.");
    EXPECT_EQ(refused.header("Retry-After"), "2");
    advanceSeconds(2);
    EXPECT_EQ(me.submit("security&q=password", change(kPassword, kNew, "other")).status, 422);
    EXPECT_EQ(me.submit("security&q=password", change(kPassword, kNew, kNew)).status, 303)
        << "a correct password resets the limit";
}

TEST_F(SecurityPage, KeepsThePasswordIfSavingFails) {
    breakTheDisk();
    const Answer answer = me.submit("security&q=password", change(kPassword, kNew, kNew));
    EXPECT_EQ(answer.status, 500);
    EXPECT_EQ(
        answer.alert(),
        "The change could not be saved. The previous settings and contacts are still in use.");
    EXPECT_EQ(other.page("status").status, 200);
    EXPECT_EQ(other.signIn(kPassword).status, 303);
}

TEST_F(SecurityPage, AppliesTheNewIdleTimeToTheCurrentSession) {
    const Answer answer =
        me.submit("security&q=access", {{"idleSeconds", "10"}, {"remoteAddresses", "127.0.0.1"}});
    EXPECT_EQ(answer.location(), "/servlet?p=security");
    EXPECT_EQ(me.page("security").field("idleSeconds"), "10");
    EXPECT_NE(me.page("status").body.find("data-idle-seconds=\"10\""), std::string::npos);
    advanceSeconds(11);
    EXPECT_EQ(me.page("status").status, 303);
}

TEST_F(SecurityPage, SetsWhichAddressesMaySendEvents) {
    EXPECT_EQ(event("key=1", "192.0.2.50").status, 403);
    me.submit("security&q=access",
              {{"idleSeconds", "600"}, {"remoteAddresses", "192.0.2.50\r\n\r\n 2001:DB8::1 \r\n"}});
    EXPECT_EQ(me.page("security").field("remoteAddresses"), "192.0.2.50\n2001:db8::1");
    EXPECT_EQ(event("key=1", "192.0.2.50").status, 200);
    EXPECT_EQ(event("key=1", "2001:db8::1").status, 200);
    EXPECT_EQ(event("key=1", "127.0.0.1").status, 403) << "no longer in the list";
    me.submit("security&q=access", {{"idleSeconds", "600"}, {"remoteAddresses", ""}});
    EXPECT_EQ(event("key=1", "192.0.2.50").status, 403);
    EXPECT_EQ(event("key=1", "").status, 403) << "an unknown address is refused";
}

TEST_F(SecurityPage, SetsTheHostNamesOfThePhone) {
    const auto statusUnder = [&](const std::string& host) {
        return me.send(get("/servlet?p=status").header("Host", host)).status;
    };
    EXPECT_EQ(statusUnder("phone.example"), 421);
    EXPECT_EQ(statusUnder("desk-phone"), 200) << "its host name";
    me.submit("security&q=access", {{"idleSeconds", "600"}, {"hostNames", "Phone.example"}});
    EXPECT_EQ(me.page("security").field("hostNames"), "phone.example");
    EXPECT_EQ(statusUnder("phone.example:8080"), 200);
    EXPECT_EQ(statusUnder("other.example"), 421);
}

TEST_F(SecurityPage, ShowsErrorsInTheAccessForm) {
    std::string many;
    for (int i = 1; i <= 17; ++i) {
        many += "192.0.2." + std::to_string(i) + "\n";
    }
    const struct {
        const char* field;
        std::string idle;
        std::string addresses;
        const char* message;
    } cases[] = {
        {"idleSeconds", "9", "", "Enter a value of at least 10."},
        {"idleSeconds", "3601", "", "Enter a value of at most 3600."},
        {"idleSeconds", "", "", "Please fill in this field."},
        {"remoteAddresses", "60", "<b>here", "Enter an IP address, for example 192.168.1.20."},
        {"remoteAddresses", "60", "192.0.2.1\n192.0.2.1", "This entry already exists."},
        {"remoteAddresses", "60", many, "At most 16 entries are allowed."},
    };
    const std::string before = savedText();
    for (const auto& wrong : cases) {
        const Answer answer =
            me.submit("security&q=access",
                      {{"idleSeconds", wrong.idle}, {"remoteAddresses", wrong.addresses}});
        EXPECT_EQ(answer.status, 422) << wrong.message;
        EXPECT_EQ(answer.error(wrong.field), wrong.message);
        EXPECT_EQ(answer.field("remoteAddresses"), wrong.addresses) << "keeps what was entered";
    }
    EXPECT_EQ(savedText(), before);
}

class NewPhone : public NewPhoneFixture {
protected:
    // Returns the first lines of the file with the password: a number, and whose password it is.
    std::string passwordOf(const std::string& owner) const {
        const std::string text = textOfFile(folder.file("phone/password.1"));
        return text.substr(0, text.find(owner) + owner.size());
    }
    bool isAsDelivered() const { return std::filesystem::exists(folder.file("phone/reset")); }
};

// Hashing the factory password takes seconds on a slow processor.
TEST_F(NewPhone, ShowsItsFirstPageBeforeThePasswordIsHashed) {
    Visitor ann(*container);
    const Answer form = ann.page("login&q=loginForm");
    EXPECT_EQ(form.status, 200);
    EXPECT_EQ(form.alert(), "");
    EXPECT_TRUE(isAsDelivered());
    EXPECT_EQ(ann.page("status").status, 303) << "but shows nothing else";

    EXPECT_EQ(ann.signIn("").status, 403);
    EXPECT_FALSE(isAsDelivered());
    EXPECT_EQ(ann.signIn(kFactoryPassword).status, 303);
    EXPECT_EQ(ann.page("security").status, 200);
}

TEST_F(NewPhone, IsThereForAllWhoSignInFirst) {
    std::array<int, 3> pages{};
    std::vector<std::thread> threads;
    threads.reserve(pages.size());
    for (std::size_t i = 0; i < pages.size(); ++i) {
        threads.emplace_back([&, i] {
            Visitor visitor(*container, "192.0.2." + std::to_string(10 + i));
            visitor.signIn(kFactoryPassword);
            pages[i] = visitor.page("security").status;
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(pages, (std::array<int, 3>{200, 200, 200}));
    EXPECT_EQ(passwordOf("factory"), "2\nfactory") << "the owner's was the first, see PhoneFixture";
}

// The attack: whoever finds a new phone in the network uses it with the factory password.
TEST_F(NewPhone, AllowsNothingButAnotherPassword) {
    Visitor ann(*container);
    const std::string form = "/servlet?p=security";
    const auto formFor = [&](const std::string& id) {
        return form + "&jumpto=" + id.substr(0, id.find('&'));
    };
    EXPECT_EQ(ann.signIn(kFactoryPassword).status, 303);
    const std::string before = savedText();
    for (const char* id :
         {"status", "phone", "accounts", "network", "audio", "contacts", "contacts-preview",
          "settings-config", "settings-upgrade", "settings-autop", "settings-config&q=export",
          "contacts&q=export", "settings-upgrade&q=download"}) {
        EXPECT_EQ(ann.page(id).location(), formFor(id)) << id;
        EXPECT_EQ(ann.submit(id, {{"hostname", "hall"}, {"confirm", "1"}}).location(), formFor(id))
            << id;
    }
    EXPECT_EQ(ann.page("status-data").status, 409);
    EXPECT_EQ(ann.page("status-data").body, "Set another password first.\n");
    EXPECT_EQ(
        ann.submit("security&q=access", {{"idleSeconds", "60"}, {"remoteAddresses", "192.0.2.7"}})
            .location(),
        form);
    EXPECT_EQ(savedText(), before);
    EXPECT_EQ(notice(), "idle");
    const Answer page = ann.page("security");
    EXPECT_EQ(page.title(), "Welcome");
    EXPECT_NE(page.text().find("This phone still has its factory password"), std::string::npos);
    EXPECT_FALSE(page.field("idleSeconds"));
    EXPECT_FALSE(page.field("oldPassword")) << "everyone knows it";
    for (const char* offered : {"/servlet?p=network", "/servlet?p=security&q=signOutAll"}) {
        EXPECT_FALSE(page.leadsTo(offered)) << offered;
    }
    EXPECT_TRUE(page.leadsTo("/servlet?p=login&q=logout"));
}

TEST_F(NewPhone, LeadsOnToThePageThatWasAskedFor) {
    Visitor ann(*container);
    ann.signIn(kFactoryPassword);
    const std::string form = ann.page("accounts&acc=1").location();
    EXPECT_EQ(form, "/servlet?p=security&jumpto=accounts&view=acc%3D1");
    Answer page = ann.send(get(form));
    EXPECT_EQ(page.field("jumpto"), "accounts");
    EXPECT_EQ(page.field("view"), "acc=1");
    EXPECT_TRUE(page.leadsTo("/servlet?p=language&to=de&back=accounts&view=acc%3D1"));
    EXPECT_EQ(ann.page("language&to=de&back=accounts&view=acc%3D1").location(),
              "/servlet?p=accounts&acc=1");
    page = ann.send(get(form));
    EXPECT_EQ(page.title(), "Willkommen");
    const Fields fields{
        {"newPassword", kNew}, {"repeat", "typo"}, {"jumpto", "accounts"}, {"view", "acc=1"}};
    page = ann.submit("security&q=password", fields);
    EXPECT_EQ(page.status, 422);
    EXPECT_EQ(page.error("repeat"), "Die beiden Eingaben stimmen nicht überein.");
    EXPECT_EQ(page.field("jumpto"), "accounts");
    EXPECT_EQ(page.field("view"), "acc=1");
    Fields right = fields;
    right[1].second = kNew;
    EXPECT_EQ(ann.submit("security&q=password", right).location(), "/servlet?p=accounts&acc=1");
    EXPECT_EQ(ann.page("accounts&acc=1").status, 200);
}

TEST_F(NewPhone, LeadsOnToTheStatusOfThePhone) {
    Visitor ann(*container);
    ann.signIn(kFactoryPassword);
    EXPECT_EQ(ann.page("security").field("jumpto"), std::nullopt);
    for (const char* nowhere : {"", "nonsense", "login"}) {
        const Fields wrong{{"newPassword", kNew}, {"repeat", "typo"}, {"jumpto", nowhere}};
        EXPECT_EQ(ann.submit("security&q=password", wrong).field("jumpto"), std::nullopt);
    }
    EXPECT_EQ(ann.submit("security&q=password",
                         {{"newPassword", kNew}, {"repeat", kNew}, {"jumpto", "nonsense"}})
                  .location(),
              "/servlet?p=status");
    EXPECT_EQ(ann.page("status").done(), "Your password is set. Use it from now on to sign in.");
    EXPECT_EQ(ann.page("status").done(), "") << "once";
    EXPECT_TRUE(ann.page("status").leadsTo("/servlet?p=network"));
    EXPECT_EQ(ann.page("security&jumpto=network").title(), "Security") << "not again";
}

// The attack: another site, which the owner of a new phone visits, sets the password.
TEST_F(NewPhone, RefusesAForgedFirstPassword) {
    Visitor ann(*container);
    ann.signIn(kFactoryPassword);
    const std::string before = savedText();
    EXPECT_EQ(ann.submitWithoutToken("security&q=password", change("", kNew, kNew)).status, 403);
    EXPECT_EQ(ann.page("security&q=password&newPassword=garden+gate&repeat=garden+gate").title(),
              "Welcome");
    EXPECT_EQ(Visitor(*container)
                  .submitWithoutToken("security&q=password", change("", kNew, kNew))
                  .location()
                  .find(kSignInForm),
              0u);
    EXPECT_EQ(savedText(), before);
}

// The attack: a page of the first run that stayed open changes the password of the owner.
TEST_F(NewPhone, AsksForThePasswordOnceItIsSet) {
    Visitor ann(*container);
    ann.signIn(kFactoryPassword);
    ann.submit("security&q=password", change("", kNew, kNew));
    const std::string before = savedText();
    const Answer answer = ann.submit("security&q=password", change("", kPassword, kPassword));
    EXPECT_EQ(answer.status, 422);
    EXPECT_EQ(answer.title(), "Security");
    EXPECT_EQ(answer.error("oldPassword"), "The current password is incorrect.");
    EXPECT_EQ(savedText(), before);
}

// The attack: guessing at the sign-in keeps the owner from replacing the factory password.
TEST_F(NewPhone, SetsThePasswordWhileOthersGuess) {
    Visitor ann(*container);
    ann.signIn(kFactoryPassword);
    for (int i = 0; i < 10; ++i) {
        Visitor(*container).signIn("guess");
    }
    EXPECT_EQ(Visitor(*container).signIn(kFactoryPassword).status, 429);
    EXPECT_EQ(ann.submit("security&q=password", change("", kNew, kNew)).status, 303);
}

TEST_F(NewPhone, CanBeSignedOutOfBeforeThePasswordIsSet) {
    Visitor ann(*container);
    ann.signIn(kFactoryPassword);
    EXPECT_EQ(ann.submit("login&q=logout").location(), kSignInForm);
    EXPECT_EQ(ann.page("security").location(), std::string(kSignInForm) + "&jumpto=security");
}

TEST_F(NewPhone, OpensOnceAnotherPasswordIsSet) {
    Visitor ann(*container);
    Visitor intruder(*container, "192.0.2.8");
    ann.signIn(kFactoryPassword);
    intruder.signIn(kFactoryPassword);
    EXPECT_EQ(ann.submit("security&q=password",
                         change(kFactoryPassword, kFactoryPassword, kFactoryPassword))
                  .status,
              422);
    EXPECT_EQ(ann.submit("security&q=password", change("", kNew, kNew)).status, 303);
    EXPECT_EQ(ann.page("security").text().find("factory password"), std::string::npos);
    EXPECT_EQ(ann.page("status").status, 200);
    EXPECT_EQ(intruder.page("security").status, 303);
    restart();
    Visitor again(*container);
    again.signIn(kNew);
    EXPECT_EQ(again.page("status").status, 200);
}
