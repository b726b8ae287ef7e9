#include "cgi_list.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdlib>

namespace {

List query(const std::string& text) {
    return List(CGI_decode_query(nullptr, text.c_str()));
}
List cookies(const std::string& text) {
    return List(CGI_get_cookie(nullptr, text.c_str()));
}

std::string encoded(const char* text, const char* keep) {
    char* result = CGI_encode_url(text, keep);
    const std::string copy = result != nullptr ? result : "(null)";
    std::free(result);
    return copy;
}

struct Decoded {
    const char* text;
    const char* name;
    Texts values;
};

} // namespace

TEST(DeviceLibrary, ExportsItsFunctionsUnderTheirPlainNames) {
    for (const char* name : {"CGI_get_cookie", "CGI_get_post", "CGI_decode_query", "CGI_lookup",
                             "CGI_lookup_all", "CGI_free_varlist", "CGI_encode_url",
                             "CGI_fileupload", "CGI_fileupload_data", "CGI_readblock"})
        EXPECT_NE(nullptr, dlsym(RTLD_DEFAULT, name)) << name;
}

TEST(Queries, AreSplitAndDecoded) {
    const Decoded table[] = {
        {"a=1", "a", {"1"}},
        {"a=1&b=2", "b", {"2"}},
        {"a=1&b=2&a=3", "a", {"1", "3"}},
        {"a=&b=2", "a", {""}},
        {"a&b=2", "a", {""}},
        {"a=1=2", "a", {"1=2"}},
        {"&&a=1&&", "a", {"1"}},
        {"?a=1", "?a", {"1"}},
        {"a=x+y+", "a", {"x y "}},
        {"a+b=1", "a b", {"1"}},
        {"a=%2B%20%26%3d", "a", {"+ &="}},
        {"%61%3D=1", "a=", {"1"}},
        {"a=%C3%a4\xc3\xa4", "a", {"\xc3\xa4\xc3\xa4"}},
        {"a=%FF", "a", {"\xff"}},
        {"a=%2541", "a", {"%41"}},
        // Only "&" separates.
        {"a=1;b=2", "a", {"1;b=2"}},
        // A bad escape stands for itself.
        {"a=%", "a", {"%"}},
        {"a=%4", "a", {"%4"}},
        {"a=%zz", "a", {"%zz"}},
        {"a=%4g", "a", {"%4g"}},
        {"a=%g4", "a", {"%g4"}},
        {"a=%%41", "a", {"%A"}},
        {"a=%-1", "a", {"%-1"}},
        {"a=%4&b=1", "a", {"%4"}},
        {"a=% 41", "a", {"% 41"}},
        // Names are case-sensitive.
        {"A=1&a=2", "a", {"2"}},
        {"a=1", "A", {}},
    };
    for (const Decoded& row : table)
        EXPECT_EQ(row.values, valuesOf(query(row.text), row.name)) << row.text;
}

TEST(Queries, LeaveOutPairsWithoutNameOrWithAZeroByte) {
    for (const char* text :
         {"", "&", "&&&", "=", "=1", "=1&=2", "a%00=1", "%00=1", "a=%00", "a=1%00", "a=%00x"})
        EXPECT_EQ(nullptr, query(text)) << text;
    EXPECT_EQ("2", valueOf(query("a=%001&a=2"), "a"));
}

TEST(Queries, AreAddedToAnExistingList) {
    List list = query("a=1");
    EXPECT_EQ(list.get(), CGI_decode_query(list.get(), "a=2&b=3"));
    EXPECT_EQ((Texts{"1", "2"}), valuesOf(list, "a"));
    EXPECT_EQ("3", valueOf(list, "b"));
}

TEST(Queries, LeaveTheListAsItWasWhenEmptyOrNull) {
    List list = query("a=1");
    EXPECT_EQ(list.get(), CGI_decode_query(list.get(), nullptr));
    EXPECT_EQ(list.get(), CGI_decode_query(list.get(), ""));
    EXPECT_EQ((Texts{"1"}), valuesOf(list, "a"));
    EXPECT_EQ(nullptr, CGI_decode_query(nullptr, nullptr));
}

TEST(Cookies, AreSplitAndDecoded) {
    const Decoded table[] = {
        {"a=1", "a", {"1"}},
        {"a=1; b=2", "b", {"2"}},
        {"a=1;b=2;", "b", {"2"}},
        {"a=1; b=2; a=3", "a", {"1", "3"}},
        {" \t a=1 \t ; b=2", "a", {"1"}},
        {"a=1;\tb=2\t", "b", {"2"}},
        {"a", "a", {""}},
        {"a=", "a", {""}},
        {"a=x=y", "a", {"x=y"}},
        {"a=1&b=2", "a", {"1&b=2"}},
        {"a=%3B%3d", "a", {";="}},
        {"%61=1", "a", {"1"}},
        {"a=%zz%4", "a", {"%zz%4"}},
        // "+" stands for itself.
        {"a=x+y", "a", {"x+y"}},
        {"a+b=1", "a+b", {"1"}},
        // Quotes.
        {"a=\"x y\"", "a", {"x y"}},
        {"a=\"x\" ", "a", {"x"}},
        {"a=\"\"", "a", {""}},
        {"a=\"\"x\"\"", "a", {"\"x\""}},
        {"a=\"", "a", {"\""}},
        {"a=\"x", "a", {"\"x"}},
        {"a=x\"", "a", {"x\""}},
        {"\"a\"=1", "\"a\"", {"1"}},
        {"a=\" x \"", "a", {" x "}},
        {"a=\"x;y\"", "a", {"\"x"}},
        // Escaped blanks and quotes are part of the value.
        {"a=%20", "a", {" "}},
        {"a=%20x%20;b=1", "a", {" x "}},
        {"%20a=1", " a", {"1"}},
        {"a=%22x%22", "a", {"\"x\""}},
        {"a=\"%20\"", "a", {" "}},
        // Only the blanks around a pair are dropped.
        {"a = 1", "a ", {" 1"}},
    };
    for (const Decoded& row : table)
        EXPECT_EQ(row.values, valuesOf(cookies(row.text), row.name)) << row.text;
}

TEST(Cookies, LeaveOutPairsWithoutNameOrWithAZeroByte) {
    for (const char* text : {"", ";", " ; \t;", "=1", " =1", "a=%00", "a%00b=1", "%00"})
        EXPECT_EQ(nullptr, cookies(text)) << text;
    EXPECT_EQ(nullptr, CGI_get_cookie(nullptr, nullptr));
}

TEST(Cookies, AreAddedToAnExistingList) {
    List list = query("a=1");
    EXPECT_EQ(list.get(), CGI_get_cookie(list.get(), "a=2"));
    EXPECT_EQ(list.get(), CGI_get_cookie(list.get(), nullptr));
    EXPECT_EQ((Texts{"1", "2"}), valuesOf(list, "a"));
}

TEST(Lists, HoldAThousandValuesAndLeaveOutLaterOnes) {
    std::string text;
    for (int i = 0; i < 999; ++i)
        text += "a=" + std::to_string(i) + "&";
    List list = query(text);
    EXPECT_EQ(list.get(), CGI_decode_query(list.get(), "last=1&late=2&a=3"));
    EXPECT_EQ(list.get(), CGI_get_cookie(list.get(), "late=2; a=3"));
    EXPECT_EQ(999u, valuesOf(list, "a").size());
    EXPECT_EQ("998", valuesOf(list, "a").back());
    EXPECT_EQ("1", valueOf(list, "last"));
    EXPECT_EQ("(none)", valueOf(list, "late"));
}

TEST(Lists, DoNotCountPairsThatWereLeftOut) {
    std::string text;
    for (int i = 0; i < 5000; ++i)
        text += "=1&a=%00&";
    EXPECT_EQ("1", valueOf(query(text + "a=1"), "a"));
}

TEST(Lists, KeepReturnedTextsAndArraysValid) {
    List list = query("a=1&b=2&a=3");
    char* first = CGI_lookup(list.get(), "a");
    char** all = CGI_lookup_all(list.get(), "a");
    for (int i = 0; i < 900; ++i) {
        CGI_decode_query(list.get(), "a=more");
        CGI_lookup_all(list.get(), i % 2 == 0 ? "a" : "b");
    }
    EXPECT_EQ(first, CGI_lookup(list.get(), "a"));
    EXPECT_STREQ("1", first);
    EXPECT_EQ(first, all[0]);
    EXPECT_STREQ("3", all[1]);
    EXPECT_EQ(nullptr, all[2]);
    EXPECT_EQ(902u, valuesOf(list, "a").size());
}

TEST(Lists, ReturnTheSameArrayUntilValuesAreAdded) {
    List list = query("a=1&b=2");
    char** all = CGI_lookup_all(list.get(), "a");
    EXPECT_EQ(all, CGI_lookup_all(list.get(), "a"));
    CGI_decode_query(list.get(), "b=3");
    EXPECT_EQ(all, CGI_lookup_all(list.get(), "a"));
    EXPECT_NE(all, CGI_lookup_all(list.get(), "b"));
}

TEST(Lists, DistinguishNamesThatEndAlike) {
    const List list =
        query("1name=a&2name=b&name=c&11name=d&a long 1name=e&a long 2name=f&x=g&xx=h");
    EXPECT_EQ("a", valueOf(list, "1name"));
    EXPECT_EQ("b", valueOf(list, "2name"));
    EXPECT_EQ("c", valueOf(list, "name"));
    EXPECT_EQ("d", valueOf(list, "11name"));
    EXPECT_EQ("f", valueOf(list, "a long 2name"));
    EXPECT_EQ((Texts{"h"}), valuesOf(list, "xx"));
    EXPECT_EQ(nullptr, CGI_lookup(list.get(), "3name"));
    EXPECT_EQ(nullptr, CGI_lookup_all(list.get(), "a long 3name"));
}

TEST(Lists, ReturnNullForAnUnknownName) {
    const List list = query("a=1");
    EXPECT_EQ(nullptr, CGI_lookup(list.get(), "b"));
    EXPECT_EQ(nullptr, CGI_lookup_all(list.get(), "b"));
    EXPECT_EQ(nullptr, CGI_lookup(list.get(), ""));
    EXPECT_EQ(nullptr, CGI_lookup_all(list.get(), ""));
}

TEST(Lists, AcceptNullForEveryArgument) {
    const List list = query("a=1");
    EXPECT_EQ(nullptr, CGI_lookup(nullptr, "a"));
    EXPECT_EQ(nullptr, CGI_lookup(list.get(), nullptr));
    EXPECT_EQ(nullptr, CGI_lookup_all(nullptr, "a"));
    EXPECT_EQ(nullptr, CGI_lookup_all(list.get(), nullptr));
    CGI_free_varlist(nullptr);
}

TEST(UrlEncoding, EscapesAllButUnreservedAndKeptCharacters) {
    const struct {
        const char* text;
        const char* keep;
        const char* encoded;
    } table[] = {
        {"", "", ""},
        {"azAZ09-_.~", "", "azAZ09-_.~"},
        {"a b+c", "", "a%20b%2Bc"},
        {"/a?b=c&d", "", "%2Fa%3Fb%3Dc%26d"},
        {"/a?b=c&d", "/?=", "/a?b=c%26d"},
        {"%", "", "%25"},
        {"%41", "%", "%41"},
        {"\x01\x7f\x80\xff\xc3\xa4", "", "%01%7F%80%FF%C3%A4"},
        {"\xc3\xa4", "\xc3", "\xc3%A4"},
        {"\"'<>`\\", nullptr, "%22%27%3C%3E%60%5C"},
        {"@[`{", "", "%40%5B%60%7B"},
        {nullptr, "", "(null)"},
        {nullptr, nullptr, "(null)"},
    };
    for (const auto& row : table)
        EXPECT_EQ(row.encoded, encoded(row.text, row.keep));
}

TEST(UrlEncoding, IsReversedByDecoding) {
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte)
        bytes += static_cast<char>(byte);
    EXPECT_EQ(bytes, valueOf(query("a=" + encoded(bytes.c_str(), "")), "a"));
}
