// The page "settings-config".
#include "phone_test.h"

#include "model/configuration.h"

using kit::testing::file;

namespace {

class ConfigurationPage : public SignedInFixture {
protected:
    Answer import(const std::string& text) {
        return me.upload("settings-config&q=import", file("config", "configuration.xml", text),
                         kConfirmed);
    }
    std::string exported() { return me.page("settings-config&q=export").body; }
    // Returns the current configuration with `text` replaced.
    std::string with(const std::string& text, const std::string& other) {
        std::string changed = exported();
        const auto at = changed.find(text);
        EXPECT_NE(at, std::string::npos) << text << " in " << changed;
        return at == std::string::npos ? changed : changed.replace(at, text.size(), other);
    }
    bool hasCopy() {
        return me.page("settings-config")
            .leadsTo("/servlet?p=settings-config&q=localconfig&type=import");
    }
};

} // namespace

TEST_F(ConfigurationPage, ExportsNoSecrets) {
    me.submit("accounts&acc=0", {{"enabled", "1"},
                                 {"label", "Hall"},
                                 {"userName", "hall"},
                                 {"secret", "s3cr3t"},
                                 {"server", "sip.example.com"},
                                 {"port", "5060"},
                                 {"transport", "udp"},
                                 {"expiry", "3600"}});
    const Answer answer = me.page("settings-config&q=export");
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.header("Content-Type"), "application/xml");
    EXPECT_EQ(answer.header("Content-Disposition"), "attachment; filename=configuration.xml");
    EXPECT_EQ(answer.body.rfind("<?xml", 0), 0U);
    EXPECT_NE(answer.body.find("<userName>hall</userName>"), std::string::npos);
    EXPECT_EQ(answer.body.find("s3cr3t"), std::string::npos);
    EXPECT_EQ(answer.body.find("$y$"), std::string::npos) << "no hash of the password";
    EXPECT_EQ(answer.body.find("Anna"), std::string::npos);
}

TEST_F(ConfigurationPage, ImportsAFileAndKeepsALocalCopy) {
    EXPECT_NE(me.page("settings-config")
                  .text()
                  .find("There is no local copy yet. Importing a configuration creates one."),
              std::string::npos);
    EXPECT_FALSE(hasCopy());
    const Answer answer = import(with("desk-phone", "hall-phone"));
    EXPECT_EQ(answer.status, 303);
    EXPECT_EQ(answer.location(), "/servlet?p=settings-config");
    EXPECT_EQ(me.send(get(answer.location())).done(), "The configuration was imported.");
    EXPECT_EQ(me.page("network").field("hostname"), "hall-phone");
    EXPECT_EQ(saved()->settings.network.hostname, "hall-phone");
    EXPECT_TRUE(hasCopy());
    EXPECT_EQ(saved()->directory.contacts().size(), 3U) << "contacts are not included";
    EXPECT_EQ(Visitor(*container, "192.0.2.8").signIn().status, 303) << "the password is unchanged";
}

TEST_F(ConfigurationPage, ImportsOnlyAfterConfirmation) {
    const std::string before = savedText();
    const std::string text = with("desk-phone", "hall-phone");
    const Answer answer = me.upload("settings-config&q=import", file("config", "c.xml", text));
    EXPECT_EQ(answer.status, 422);
    EXPECT_EQ(answer.alert(), "The action was not confirmed. Nothing was changed.");
    EXPECT_EQ(savedText(), before);
    EXPECT_FALSE(hasCopy());
    EXPECT_EQ(me.page("network").field("hostname"), "desk-phone");
}

TEST_F(ConfigurationPage, NamesWhatAnImportDoes) {
    const auto shows = [&](const std::string& text) {
        return me.page("settings-config").text().find(text) != std::string::npos;
    };
    EXPECT_TRUE(shows("No call is under way."));
    EXPECT_FALSE(shows("One call is under way"));
    EXPECT_FALSE(shows("The present local copy is overwritten."));
    event("command=ring");
    import(exported());
    EXPECT_TRUE(shows("The present local copy is overwritten."));
    EXPECT_TRUE(shows("One call is under way. It goes on.")) << "and it did";
    EXPECT_FALSE(shows("No call is under way."));
}

TEST_F(ConfigurationPage, RestoresTheLocalCopy) {
    import(with("desk-phone", "hall-phone"));
    restart();
    Visitor again(*container);
    again.signIn();
    const Answer answer = again.submit("settings-config&q=localconfig&type=import", kConfirmed);
    EXPECT_EQ(again.send(get(answer.location())).done(), "The local copy was restored.");
    EXPECT_EQ(again.page("network").field("hostname"), "desk-phone");
    EXPECT_EQ(saved()->settings.network.hostname, "desk-phone");
}

TEST_F(ConfigurationPage, RestoresOnlyAfterConfirmation) {
    import(with("desk-phone", "hall-phone"));
    const std::string before = savedText();
    const Answer answer = me.submit("settings-config&q=localconfig&type=import");
    EXPECT_EQ(answer.status, 422);
    EXPECT_EQ(answer.alert(), "The action was not confirmed. Nothing was changed.");
    EXPECT_EQ(savedText(), before);
    EXPECT_EQ(me.page("network").field("hostname"), "hall-phone");
}

TEST_F(ConfigurationPage, SaysThatRestoringKeepsNothing) {
    const std::string lost = "The current settings are replaced and not kept.";
    EXPECT_EQ(me.page("settings-config").text().find(lost), std::string::npos);
    import(exported());
    EXPECT_NE(me.page("settings-config").text().find(lost), std::string::npos);
}

TEST_F(ConfigurationPage, RemovesTheLocalCopy) {
    import(with("desk-phone", "hall-phone"));
    const Answer answer = me.submit("settings-config&q=localconfig&type=remove");
    EXPECT_EQ(me.send(get(answer.location())).done(), "The local copy was removed.");
    EXPECT_FALSE(hasCopy());
    EXPECT_EQ(me.page("network").field("hostname"), "hall-phone");
    EXPECT_TRUE(saved()->localCopy.empty());
}

TEST_F(ConfigurationPage, ReportsAMissingLocalCopy) {
    const std::string before = savedText();
    const Answer answer = me.submit("settings-config&q=localconfig&type=import", kConfirmed);
    EXPECT_EQ(answer.status, 422);
    EXPECT_EQ(answer.alert(), "There is no local copy.");
    EXPECT_EQ(savedText(), before);
    EXPECT_EQ(notice(), "idle");
}

TEST_F(ConfigurationPage, RejectsAFileWithErrorsAndListsThem) {
    std::string text = with("<port>5060</port>", "<port>0</port>");
    text.replace(text.find("desk-phone"), 10, "two words");
    text.replace(text.find("<codec>g722"), 11, "<codec>mp3&lt;b>");
    const std::string before = savedText();
    const Answer answer = import(text);
    EXPECT_EQ(answer.status, 422);
    EXPECT_EQ(answer.alert(), "The file was not imported because it contains errors:");
    for (const char* row : {"account[1]/port Enter a value of at least 1.",
                            "network/hostname Enter a valid host name.",
                            "audio/codec Choose one of the listed options."}) {
        EXPECT_NE(answer.text().find(row), std::string::npos) << row << " in " << answer.text();
    }
    EXPECT_EQ(savedText(), before) << "not even a local copy";
    EXPECT_FALSE(hasCopy());
}

TEST_F(ConfigurationPage, RejectsFilesOfOtherKinds) {
    const std::string before = savedText();
    for (const char* text :
         {"", "nonsense", "<a>", "<!DOCTYPE x><configuration/>", "<other/>", "\xff\xfe"}) {
        const Answer answer = import(text);
        EXPECT_EQ(answer.status, 422) << text;
        EXPECT_NE(answer.alert(), "") << text;
        EXPECT_EQ(answer.done(), "") << text;
        EXPECT_EQ(savedText(), before) << text;
    }
    const Answer unknown = import("<configuration><i>1</i></configuration>");
    EXPECT_NE(unknown.text().find("i The phone has no setting with this name."), std::string::npos)
        << unknown.text();
}

TEST_F(ConfigurationPage, RejectsFilesThatAreTooLargeOrIncomplete) {
    const std::string before = savedText();
    const std::string large = exported() + std::string(64 * 1024, ' ');
    EXPECT_EQ(import(large).status, 422);
    EXPECT_EQ(import(large).alert(), "The file is too large. The maximum size is 64 KiB.");
    const Request whole =
        me.uploading("settings-config&q=import", file("config", "c.xml", exported()), kConfirmed);
    for (int cut : {0, 10, 200, 1000}) {
        const Answer answer = me.send(whole.cutOffAfter(static_cast<std::size_t>(cut)));
        EXPECT_TRUE(answer.status == 422 || answer.status == 403) << cut;
    }
    const Answer none = me.upload("settings-config&q=import", file("config", "", ""), kConfirmed);
    EXPECT_EQ(none.status, 422);
    EXPECT_NE(none.text().find("config This is not a configuration file for this phone."),
              std::string::npos)
        << none.text();
    EXPECT_EQ(me.submit("settings-config&q=import").status, 422) << "a form without a file";
    EXPECT_EQ(savedText(), before);
}

TEST_F(ConfigurationPage, RejectsImportsWithoutSigningIn) {
    const std::string before = savedText();
    const std::string text = with("desk-phone", "hall-phone");
    Visitor stranger(*container, "192.0.2.66");
    const Answer answer =
        stranger.upload("settings-config&q=import", file("config", "c.xml", text), kConfirmed);
    EXPECT_EQ(answer.status, 303);
    EXPECT_EQ(answer.location(), std::string(kSignInForm) + "&jumpto=settings-config");
    EXPECT_EQ(savedText(), before);
    EXPECT_EQ(notice(), "idle");
    EXPECT_EQ(stranger.page("settings-config&q=export").status, 303);
}

TEST_F(ConfigurationPage, KeepsTheConfigurationIfSavingFails) {
    const std::string text = with("desk-phone", "hall-phone");
    breakTheDisk();
    const Answer answer = import(text);
    EXPECT_EQ(answer.status, 500);
    EXPECT_EQ(
        answer.alert(),
        "The change could not be saved. The previous settings and contacts are still in use.");
    EXPECT_EQ(me.page("network").field("hostname"), "desk-phone");
    EXPECT_FALSE(hasCopy());
}

TEST_F(ConfigurationPage, ShowsThePageForUnknownActions) {
    for (const char* query :
         {"settings-config&q=nonsense", "settings-config&q=localconfig",
          "settings-config&q=localconfig&type=nonsense", "settings-config&q=import"}) {
        const Answer answer = me.page(query);
        EXPECT_EQ(answer.status, 200) << query;
        EXPECT_EQ(answer.title(), "Configuration") << query;
        EXPECT_EQ(answer.done() + answer.alert(), "") << query;
    }
}
