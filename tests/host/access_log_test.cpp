#include "access_log.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(PageOfARequest, IsTheFirstPOfTheQuery) {
    EXPECT_EQ(pageOf("p=status"), "status");
    EXPECT_EQ(pageOf("p=status&q=load"), "status");
    EXPECT_EQ(pageOf("q=load&p=settings-upgrade&acc=1"), "settings-upgrade");
    EXPECT_EQ(pageOf("p=a_1&p=b"), "a_1");
    EXPECT_EQ(pageOf("&&p=x&"), "x");
}

TEST(PageOfARequest, IsEmptyWithoutP) {
    for (const char* query : {"", "p", "p=", "q=1&password=secret", "xp=status", "P=status", "&"})
        EXPECT_EQ(pageOf(query), "") << query;
    EXPECT_EQ(pageOf(nullptr), "");
}

TEST(PageOfARequest, IsEmptyWhereTheLogMustNotShowIt) {
    for (const char* query :
         {"p=a b", "p=a%0Ab", "p=a\r\nb", "p=a\"b", "p=a=b", "p=\xc3\xa4", "p=a\x7f", "p=a;b"})
        EXPECT_EQ(pageOf(query), "") << query;
    EXPECT_EQ(pageOf(("p=" + std::string(64, 'a')).c_str()), std::string(64, 'a'));
    EXPECT_EQ(pageOf(("p=" + std::string(65, 'a')).c_str()), "");
    // Not the next one instead, which is not the page that is served.
    EXPECT_EQ(pageOf("p=a b&p=status"), "");
}

} // namespace
