#include "secrets.h"
#include "sign_ins.h"

#include <gtest/gtest.h>

using phone::SignIns;

namespace {

const phone::WebUser kAnn{"ann", "secret", "user", "English"};

} // namespace

TEST(SignIns, KnowTheUserOfASession) {
    SignIns signIns;
    ASSERT_TRUE(signIns.start("one", kAnn));
    ASSERT_TRUE(signIns.find("one"));
    EXPECT_EQ(signIns.find("one")->user, &kAnn);
    EXPECT_FALSE(signIns.find("two"));
    EXPECT_FALSE(signIns.find(""));
}

TEST(SignIns, HaveATokenEachThatIsKept) {
    SignIns signIns;
    signIns.start("one", kAnn);
    signIns.start("two", kAnn);
    const std::string token = signIns.find("one")->token;
    EXPECT_EQ(token.size(), 32u);
    EXPECT_EQ(token.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_EQ(signIns.find("one")->token, token);
    EXPECT_NE(signIns.find("two")->token, token);
}

TEST(SignIns, GetANewTokenWhenTheyAreStartedAgain) {
    SignIns signIns;
    signIns.start("one", kAnn);
    const std::string token = signIns.find("one")->token;
    signIns.start("one", kAnn);
    EXPECT_NE(signIns.find("one")->token, token);
    signIns.end("one");
    EXPECT_FALSE(signIns.find("one"));
}

TEST(SignIns, EndOneByOne) {
    SignIns signIns;
    signIns.start("one", kAnn);
    signIns.start("two", kAnn);
    signIns.end("one");
    signIns.end("three");
    EXPECT_FALSE(signIns.find("one"));
    EXPECT_TRUE(signIns.find("two"));
}

TEST(SignIns, SignTheOldestOutWhenThereAreTooMany) {
    SignIns signIns;
    for (std::size_t i = 0; i <= SignIns::kMaxSignIns; ++i) {
        signIns.start(std::to_string(i), kAnn);
    }
    EXPECT_FALSE(signIns.find("0"));
    EXPECT_TRUE(signIns.find("1"));
    EXPECT_TRUE(signIns.find(std::to_string(SignIns::kMaxSignIns)));
}

TEST(Secrets, AreEqualOnlyWhenEveryByteIs) {
    using phone::equalSecrets;
    EXPECT_TRUE(equalSecrets("abc", "abc"));
    EXPECT_TRUE(equalSecrets("", ""));
    EXPECT_FALSE(equalSecrets("", "abc"));
    EXPECT_FALSE(equalSecrets("abc", ""));
    EXPECT_FALSE(equalSecrets("ab", "abc"));
    EXPECT_FALSE(equalSecrets("abcd", "abc"));
    EXPECT_FALSE(equalSecrets("abd", "abc"));
    EXPECT_FALSE(equalSecrets(std::string_view("abc\0", 4), "abc"));
    EXPECT_FALSE(equalSecrets("abc", std::string_view("abc\0", 4)));
}
