// The language of the pages.
#include "language.h"
#include "phone_test.h"

#include <fstream>

using LanguageChoice = PhoneFixture;

namespace {

std::string languageFor(Visitor visitor, const std::string& wishes) {
    return visitor.send(get("/servlet?p=login&q=loginForm").header("Accept-Language", wishes))
        .PageReader::language();
}

const char* const kPages[] = {
    "status",           "phone",           "accounts",         "accounts&acc=6",
    "network",          "audio",           "security",         "contacts",
    "contacts-preview", "settings-config", "settings-upgrade", "settings-autop"};

class PageLanguage : public SignedInFixture {
protected:
    void choose(const std::string& language) {
        EXPECT_TRUE(me.page("language&to=" + language).cookie("lang"));
    }
};

} // namespace

TEST_F(LanguageChoice, FollowsTheBrowsersPreference) {
    const std::pair<const char*, const char*> cases[] = {
        {"de-AT", "de"},    {"zh-CN;q=0.8", "zh"},    {"fr", "en"},  {"", "en"},      {"DE", "de"},
        {"en-GB,de", "en"}, {"de-DE,en;q=0.5", "de"}, {"deu", "en"}, {"../de", "en"}, {"*", "en"},
        {"zh", "zh"},
    };
    for (const auto& [wishes, language] : cases) {
        EXPECT_EQ(languageFor(Visitor(*container), wishes), language) << wishes;
    }
    EXPECT_EQ(Visitor(*container).page("login").PageReader::language(), "en") << "no wishes";
}

TEST_F(LanguageChoice, IsStoredInACookie) {
    Visitor ann(*container);
    const Answer answer = ann.page("language&to=zh&back=network");
    EXPECT_EQ(answer.status, 303);
    const auto cookie = answer.cookie("lang");
    ASSERT_TRUE(cookie);
    EXPECT_EQ(cookie->value, "zh");
    EXPECT_EQ(cookie->attribute("Max-Age"), "31536000");
    EXPECT_EQ(cookie->attribute("Path"), "/");
    EXPECT_EQ(ann.page("login").PageReader::language(), "zh");
    EXPECT_EQ(languageFor(ann, "de"), "zh") << "whatever the browser likes";
    ann.page("language&to=en");
    EXPECT_EQ(languageFor(ann, "de"), "en");
}

TEST_F(LanguageChoice, IgnoresLanguagesWithoutPages) {
    for (const char* language : {"fr", "", "DE", "de-AT", "..", "en%0d%0aX:1"}) {
        const Answer answer = Visitor(*container).page(std::string("language&to=") + language);
        EXPECT_EQ(answer.status, 303) << language;
        EXPECT_FALSE(answer.cookie("lang")) << language;
    }
    EXPECT_FALSE(Visitor(*container).page("language").cookie("lang"));
}

TEST_F(LanguageChoice, DoesNotTrustTheCookie) {
    for (const char* value : {"fr", "", "../../en", "%2e%2e"}) {
        const Answer answer =
            Visitor(*container)
                .send(
                    get("/servlet?p=login").header("Accept-Language", "de").cookie("lang", value));
        EXPECT_EQ(answer.PageReader::language(), "de") << value;
    }
}

TEST_F(LanguageChoice, RedirectsToPagesOfThePhoneOnly) {
    for (const char* page : {"status", "contacts-preview", "settings-autop"}) {
        EXPECT_EQ(Visitor(*container).page(std::string("language&to=de&back=") + page).location(),
                  std::string("/servlet?p=") + page);
    }
    for (const char* page : {"", "login", "nonsense", "//example.com", "%2f%2fexample.com",
                             "status%0d%0aX-Evil:1", "status-data"}) {
        EXPECT_EQ(Visitor(*container).page(std::string("language&to=de&back=") + page).location(),
                  kSignInForm)
            << page;
    }
}

TEST_F(PageLanguage, AppliesToEveryPage) {
    for (const char* language : {"en", "de", "zh"}) {
        choose(language);
        kit::testing::recorded_log::clear();
        testing::internal::CaptureStderr();
        for (const char* query : kPages) {
            const Answer page = me.page(query);
            EXPECT_EQ(page.PageReader::language(), language) << query;
            EXPECT_NE(page.title(), "") << query;
            EXPECT_NE(page.body.find("</html>"), std::string::npos) << query << " to its end";
            EXPECT_EQ(page.body.find("{{"), std::string::npos) << query;
            EXPECT_EQ(page.body.find("TMPL_"), std::string::npos) << query;
        }
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << language;
        for (const auto& record : kit::testing::recorded_log::records()) {
            EXPECT_EQ(record.text.find("TMPL"), std::string::npos) << record;
        }
    }
}

TEST_F(PageLanguage, AppliesToErrorPages) {
    const char* const messages[][2] = {{"de", "Ein Feld"}, {"zh", "\xE6"}};
    for (const auto& [language, part] : messages) {
        choose(language);
        testing::internal::CaptureStderr();
        const Answer form = me.submit("contacts&q=add", {{"name", "Dora"}, {"number", "x"}});
        EXPECT_EQ(form.PageReader::language(), language);
        EXPECT_NE(form.alert().find(part), std::string::npos) << form.alert();
        EXPECT_NE(form.error("number"), "");
        const Answer refused = me.submitWithoutToken("network");
        EXPECT_EQ(refused.PageReader::language(), language);
        EXPECT_NE(refused.alert(), "");
        const Answer wrong = Visitor(*container, "192.0.2.8")
                                 .send(post("/servlet?p=login&q=login").cookie("lang", language));
        EXPECT_EQ(wrong.PageReader::language(), language);
        EXPECT_NE(wrong.alert(), "");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    }
}

TEST_F(PageLanguage, ChangesTheTexts) {
    choose("de");
    const std::string german = me.page("network").text();
    choose("zh");
    const std::string chinese = me.page("network").text();
    choose("en");
    const std::string english = me.page("network").text();
    EXPECT_NE(german, english);
    EXPECT_NE(chinese, english);
    EXPECT_NE(german.find("Netzwerk"), std::string::npos);
}

TEST_F(PageLanguage, IsMarkedInTheListOfLanguages) {
    choose("de");
    EXPECT_NE(me.page("status").body.find("lang=\"de\" hreflang=\"de\" aria-current=\"true\""),
              std::string::npos);
    EXPECT_TRUE(me.page("audio").leadsTo("/servlet?p=language&to=zh&back=audio"));
}

TEST(Languages, MatchTheTemplateFolders) {
    for (const char* code : {"en", "de", "zh"}) {
        EXPECT_TRUE(phone::isLanguage(code));
    }
    for (const char* code : {"", "fr", "EN", "en-GB", "e", "eng"}) {
        EXPECT_FALSE(phone::isLanguage(code)) << code;
    }
}
