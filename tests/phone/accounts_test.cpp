// The page "accounts".
#include "phone_test.h"

namespace {

const Fields kGood{
    {"enabled", "1"},     {"label", "Hall"},      {"displayName", "The \"hall\" <1>"},
    {"userName", "hall"}, {"secret", "s3cr3t-1"}, {"server", "sip.example.net"},
    {"port", "5061"},     {"transport", "tls"},   {"expiry", "60"}};

Fields with(const char* name, const std::string& value) {
    Fields fields = kGood;
    for (auto& [field, present] : fields) {
        present = field == name ? value : present;
    }
    return fields;
}

using AccountsPage = SignedInFixture;

} // namespace

TEST_F(AccountsPage, ShowsTheFirstAccountByDefault) {
    for (const char* query : {"accounts", "accounts&acc=", "accounts&acc=0"}) {
        EXPECT_EQ(me.page(query).field("userName"), "1001") << query;
    }
    const Answer second = me.page("accounts&acc=1");
    EXPECT_EQ(second.status, 200);
    EXPECT_EQ(second.field("userName"), "1002");
    EXPECT_EQ(second.field("enabled"), "1");
    EXPECT_EQ(second.field("port"), "5060");
    EXPECT_EQ(second.field("transport"), "udp");
    EXPECT_TRUE(second.leadsTo("/servlet?p=accounts&q=save&acc=1"));
    EXPECT_TRUE(second.leadsTo("/servlet?p=accounts&acc=5"));
    EXPECT_EQ(me.page("accounts&acc=5").field("label"), "Line 6");
    EXPECT_EQ(me.page("accounts&acc=5").field("enabled"), "");
}

TEST_F(AccountsPage, ReportsAnUnknownAccountAndListsTheOthers) {
    for (const char* account :
         {"6", "-1", "-0", "99999999999999999999", "-99999999999999999999", "-"}) {
        const Answer answer = me.page(std::string("accounts&acc=") + account);
        EXPECT_EQ(answer.status, 404) << account;
        EXPECT_NE(answer.text().find("Account not found"), std::string::npos) << account;
        EXPECT_TRUE(answer.leadsTo("/servlet?p=accounts&acc=0"));
        EXPECT_FALSE(answer.field("userName"));
        const std::string before = savedText();
        EXPECT_EQ(me.submit(std::string("accounts&acc=") + account, kGood).status, 404);
        EXPECT_EQ(savedText(), before);
    }
}

TEST_F(AccountsPage, SavesTheValuesEntered) {
    const Answer answer = me.submit("accounts&q=save&acc=3", kGood);
    EXPECT_EQ(answer.status, 303);
    EXPECT_EQ(answer.location(), "/servlet?p=accounts&acc=3");
    const Answer page = me.send(get(answer.location()));
    EXPECT_EQ(page.done(), "Saved.");
    for (const auto& [name, value] : kGood) {
        EXPECT_EQ(page.field(name), name == "secret" ? "" : value) << name;
    }
    EXPECT_EQ(me.page("accounts&acc=2").field("label"), "Line 3") << "other accounts are unchanged";
    const auto account = saved()->settings.accounts[3];
    EXPECT_EQ(account.userName, "hall");
    EXPECT_EQ(account.secret, "s3cr3t-1");
    EXPECT_EQ(account.port, 5061);
    EXPECT_TRUE(account.enabled);
    restart();
    Visitor again(*container);
    again.signIn();
    EXPECT_EQ(again.page("accounts&acc=3").field("displayName"), "The \"hall\" <1>");
}

TEST_F(AccountsPage, TreatsAMissingCheckBoxAsCleared) {
    me.submit("accounts&acc=0", Fields(kGood.begin() + 1, kGood.end()));
    EXPECT_EQ(me.page("accounts&acc=0").field("enabled"), "");
    EXPECT_FALSE(saved()->settings.accounts[0].enabled);
}

TEST_F(AccountsPage, KeepsTheSecretIfNoneIsEntered) {
    me.submit("accounts&acc=0", kGood);
    me.submit("accounts&acc=0", with("secret", ""));
    EXPECT_EQ(saved()->settings.accounts[0].secret, "s3cr3t-1");
}

TEST_F(AccountsPage, ClearsTheSecretWhenTheServerChanges) {
    for (const char* field : {"server", "userName"}) {
        me.submit("accounts&acc=0", kGood);
        Fields changed = with("secret", "");
        for (auto& [name, value] : changed) {
            value = name == field ? "other.example" : value;
        }
        EXPECT_EQ(me.submit("accounts&acc=0", changed).status, 303);
        EXPECT_EQ(saved()->settings.accounts[0].secret, "") << field;
    }
}

TEST_F(AccountsPage, NeverSendsASecretToTheBrowser) {
    me.submit("accounts&acc=0", kGood);
    Fields wrong = with("port", "0");
    const Answer refused = me.submit("accounts&acc=0", wrong);
    EXPECT_EQ(refused.status, 422);
    EXPECT_EQ(refused.body.find("s3cr3t"), std::string::npos);
    for (const char* query : {"accounts&acc=0", "status", "status-data", "settings-config",
                              "settings-config&q=export", "settings-config&q=import"}) {
        EXPECT_EQ(me.page(query).body.find("s3cr3t"), std::string::npos) << query;
    }
    for (const auto& record : kit::testing::recorded_log::records()) {
        EXPECT_EQ(record.text.find("s3cr3t"), std::string::npos) << record;
    }
}

TEST_F(AccountsPage, ShowsAnErrorNextToEachInvalidField) {
    const char* const kBadUserName = "Spaces and control characters are not allowed.";
    const struct {
        const char* field;
        std::string value;
        const char* message;
    } cases[] = {
        {"label", "", "Please fill in this field."},
        {"label", std::string(21, 'x'), "Use at most 20 characters."},
        {"displayName", std::string(41, 'x'), "Use at most 40 characters."},
        {"displayName", "\xff", "The text is not encoded as UTF-8."},
        {"userName", "", "Please fill in this field."},
        {"userName", "two words", kBadUserName},
        {"userName", "a\tb", kBadUserName},
        {"secret", std::string(65, 'x'), "Use at most 64 characters."},
        {"server", "", "Please fill in this field."},
        {"server", "-bad-", "Enter a valid host name."},
        {"port", "", "Please fill in this field."},
        {"port", "x", "Enter a whole number."},
        {"port", "0", "Enter a value of at least 1."},
        {"port", "65536", "Enter a value of at most 65535."},
        {"port", "99999999999999999999", "Enter a value of at most 65535."},
        {"transport", "pigeon", "Choose one of the listed options."},
        {"expiry", "59", "Enter a value of at least 60."},
        {"expiry", "86401", "Enter a value of at most 86400."},
        {"enabled", "maybe", "Choose one of the listed options."},
    };
    const std::string before = savedText();
    for (const auto& wrong : cases) {
        const Answer answer = me.submit("accounts&acc=1", with(wrong.field, wrong.value));
        EXPECT_EQ(answer.status, 422) << wrong.field << " = " << wrong.value;
        EXPECT_EQ(answer.error(wrong.field), wrong.message) << wrong.field << " = " << wrong.value;
        EXPECT_TRUE(answer.isMarked(wrong.field));
        EXPECT_EQ(answer.alert(), "One field needs attention. Nothing was saved.");
        EXPECT_EQ(answer.done(), "");
        EXPECT_EQ(answer.field("label"), with(wrong.field, wrong.value)[1].second)
            << "keeps what was entered";
        EXPECT_TRUE(answer.leadsTo("/servlet?p=accounts&q=save&acc=1"));
    }
    EXPECT_EQ(savedText(), before);
}

TEST_F(AccountsPage, CountsTheInvalidFields) {
    const Answer answer = me.submit("accounts&acc=0", {{"enabled", "1"}});
    EXPECT_EQ(answer.alert(), "6 fields need attention. Nothing was saved.");
    for (const char* field : {"label", "userName", "server", "port", "transport", "expiry"}) {
        EXPECT_EQ(answer.error(field), "Please fill in this field.") << field;
    }
    EXPECT_EQ(answer.error("secret"), "");
}

TEST_F(AccountsPage, EscapesHostileText) {
    me.submit("accounts&acc=0", with("label", "\"><i>&amp;"));
    const Answer page = me.page("accounts");
    EXPECT_EQ(page.field("label"), "\"><i>&amp;");
    EXPECT_EQ(page.body.find("<i>"), std::string::npos);
}

TEST_F(AccountsPage, ReportsThatSavingFailed) {
    breakTheDisk();
    const Answer answer = me.submit("accounts&acc=0", kGood);
    EXPECT_EQ(answer.status, 500);
    EXPECT_EQ(
        answer.alert(),
        "The change could not be saved. The previous settings and contacts are still in use.");
    EXPECT_EQ(answer.field("userName"), "hall") << "keeps what was entered";
    EXPECT_EQ(me.page("accounts").field("userName"), "1001");
    repairTheDisk();
    EXPECT_EQ(saved()->settings.accounts[0].userName, "1001");
    EXPECT_EQ(me.submit("accounts&acc=0", kGood).status, 303);
}
