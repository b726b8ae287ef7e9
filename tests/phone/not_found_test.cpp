// Pages that the phone does not have.
#include "phone_test.h"

using UnknownPage = SignedInFixture;

namespace {

TEST_F(UnknownPage, IsAnsweredWithStatus404) {
    const Answer answer = me.page("nonsense");
    EXPECT_EQ(answer.status, 404);
    EXPECT_EQ(answer.title(), "Page not found");
    EXPECT_EQ(answer.alert(), "There is no page at this address.");
    EXPECT_TRUE(answer.leadsTo("/servlet?p=status"));
    EXPECT_EQ(me.page("").status, 404);
}

TEST_F(UnknownPage, IsShownInTheLanguageOfTheRequest) {
    const Answer answer = me.send(get("/servlet?p=nonsense").header("Accept-Language", "de"));
    EXPECT_EQ(answer.status, 404);
    EXPECT_EQ(answer.alert(), "Unter dieser Adresse gibt es keine Seite.");
}

TEST_F(UnknownPage, IsNotRevealedToStrangers) {
    const Answer answer = Visitor(*container).page("nonsense");
    EXPECT_EQ(answer.status, 303);
    EXPECT_EQ(answer.location(), kSignInForm);
}

TEST_F(UnknownPage, IsNoPageThatThePhoneHas) {
    for (const char* id : {"status", "status-data", "notice", "login", "contacts-preview"}) {
        EXPECT_NE(me.page(id).status, 404) << id;
    }
}

} // namespace
