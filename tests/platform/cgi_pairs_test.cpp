// Queries, forms and cookies that no browser sends, whole and cut anywhere.
#include "cgi_bodies.h"
#include "cgi_cut_input.h"
#include "cgi_list.h"
#include <kit/testing/memory_stream.h>

namespace {

using namespace kit::testing;

constexpr const char* kFormType = "application/x-www-form-urlencoded";

struct OddText {
    std::string text;
    Pairs pairs; // all pairs; those of one name in order
};

// URL Standard, section 5.1.
std::vector<OddText> oddQueries() {
    const Pairs thousand(1000, {"a", "1"});
    return {
        {"a=1&a=1", {{"a", "1"}, {"a", "1"}}},
        {"a=1&A=2&a=3", {{"a", "1"}, {"A", "2"}, {"a", "3"}}},
        {"&a", {{"a", ""}}},
        {"a&", {{"a", ""}}},
        {"a&&b", {{"a", ""}, {"b", ""}}},
        {"a=&a", {{"a", ""}, {"a", ""}}},
        {"a==", {{"a", "="}}},
        {"==", {}},
        {"=a=1", {}},
        {"&=&=&", {}},
        {"a=&=b", {{"a", ""}}},
        {"a=b&c=d=e&=f&g", {{"a", "b"}, {"c", "d=e"}, {"g", ""}}},
        {"+=1", {{" ", "1"}}},
        {"++=++", {{"  ", "  "}}},
        {"%20=1", {{" ", "1"}}},
        {" =1", {{" ", "1"}}},
        {"?=1", {{"?", "1"}}},
        {"a?b=1#c", {{"a?b", "1#c"}}},
        {"a[]=1&a[]=2", {{"a[]", "1"}, {"a[]", "2"}}},
        {"a[b]=1&a.b=2", {{"a[b]", "1"}, {"a.b", "2"}}},
        {"a;b=1;c=2", {{"a;b", "1;c=2"}}},
        {"a,b", {{"a,b", ""}}},
        {"a='\"`\\<>", {{"a", "'\"`\\<>"}}},
        {"a=\"b&c\"", {{"a", "\"b"}, {"c\"", ""}}},
        {"a=1&amp;b=2", {{"a", "1"}, {"amp;b", "2"}}},
        // Escaped characters are no separators.
        {"%26=%3D", {{"&", "="}}},
        {"%3D%3D", {{"==", ""}}},
        {"a%3D1", {{"a=1", ""}}},
        {"a%261=2", {{"a&1", "2"}}},
        {"a=%2B+%2B", {{"a", "+ +"}}},
        // An escape is decoded once.
        {"%25=%2541", {{"%", "%41"}}},
        {"a=%2500", {{"a", "%00"}}},
        // An incomplete escape stands for itself.
        {"%", {{"%", ""}}},
        {"%2", {{"%2", ""}}},
        {"%=%", {{"%", "%"}}},
        {"%%%=1", {{"%%%", "1"}}},
        {"%2%30=1", {{"%20", "1"}}},
        {"a=%+41", {{"a", "% 41"}}},
        {"a=%4+1", {{"a", "%4 1"}}},
        {"a=%4=1", {{"a", "%4=1"}}},
        {"a=%4&1=%", {{"a", "%4"}, {"1", "%"}}},
        {"a=%u0041", {{"a", "%u0041"}}},
        {"a=%0x41", {{"a", "%0x41"}}},
        {"a=%\xEF\xBC\x91\x31", {{"a", "%\xEF\xBC\x91\x31"}}},
        {"a=%0&%0=b", {{"a", "%0"}, {"%0", "b"}}},
        // Bytes need not be valid UTF-8.
        {"a=%C0%80&b=%E2%82&c=%ff%fe", {{"a", "\xc0\x80"}, {"b", "\xe2\x82"}, {"c", "\xff\xfe"}}},
        {"a=\x01\x1f\x7f\x80", {{"a", "\x01\x1f\x7f\x80"}}},
        {"a=1\r\nb=2", {{"a", "1\r\nb=2"}}},
        {"%0d%0a=%0A", {{"\r\n", "\n"}}},
        // A pair with a zero byte is left out, and no other pair.
        {"%00", {}},
        {"a%00b", {}},
        {"a=%000", {}},
        {"a=1&%00&b=2", {{"a", "1"}, {"b", "2"}}},
        {"a=1&a=%00&a=2", {{"a", "1"}, {"a", "2"}}},
        // Large ones.
        {repeated("a", 100000), {{repeated("a", 100000), ""}}},
        {"a=" + repeated("+", 100000), {{"a", repeated(" ", 100000)}}},
        {"a=" + repeated("%41", 50000), {{"a", repeated("A", 50000)}}},
        {"a=" + repeated("%", 100000), {{"a", repeated("%", 100000)}}},
        {"a=" + repeated("%4", 50000), {{"a", repeated("%4", 50000)}}},
        {repeated("&", 100000) + "a=1", {{"a", "1"}}},
        {repeated("=", 100000), {}},
        {repeated("=1&", 5000) + "a=1", {{"a", "1"}}},
        {repeated("a=1&", 1000), thousand},
        {repeated("a=1&", 1000) + "b=2", thousand},
        {repeated("a=%00&a=1&", 5000), thousand},
    };
}

// RFC 6265, section 5.4, and the rules for cookies in cgi.h.
std::vector<OddText> oddCookies() {
    const Pairs thousand(1000, {"a", "1"});
    return {
        {";;;a=1;;;", {{"a", "1"}}},
        {"a=1;;b=2", {{"a", "1"}, {"b", "2"}}},
        {"a=1 ;b=2 ", {{"a", "1"}, {"b", "2"}}},
        {"a=;b=", {{"a", ""}, {"b", ""}}},
        {"a;b", {{"a", ""}, {"b", ""}}},
        {"a=1,b=2", {{"a", "1,b=2"}}},
        {"a=1&b=2; c=3", {{"a", "1&b=2"}, {"c", "3"}}},
        {"a=b=c; =d; =", {{"a", "b=c"}}},
        {"$Version=1; a=1; $Path=/", {{"$Version", "1"}, {"a", "1"}, {"$Path", "/"}}},
        {"a=1; Path=/; HttpOnly", {{"a", "1"}, {"Path", "/"}, {"HttpOnly", ""}}},
        {"JSESSIONID=", {{"JSESSIONID", ""}}},
        {"JSESSIONID= ", {{"JSESSIONID", ""}}},
        {"JSESSIONID=%20", {{"JSESSIONID", " "}}},
        {"JSESSIONID=a; JSESSIONID=b", {{"JSESSIONID", "a"}, {"JSESSIONID", "b"}}},
        {"jsessionid=a", {{"jsessionid", "a"}}},
        // Only blanks and tabs around a pair are dropped.
        {"a=\t1", {{"a", "\t1"}}},
        {"a\t=1", {{"a\t", "1"}}},
        {"a=1\n", {{"a", "1\n"}}},
        {"\ra=1", {{"\ra", "1"}}},
        {"a=1\r\n b=2", {{"a", "1\r\n b=2"}}},
        // One pair of quotes.
        {"a=\"x\"; b=\"y\"", {{"a", "x"}, {"b", "y"}}},
        {"a=\"x; b=y\"", {{"a", "\"x"}, {"b", "y\""}}},
        {"a=\"x\"y\"", {{"a", "x\"y"}}},
        {"a=\"\"\"", {{"a", "\""}}},
        {"a=\"\\\"\"", {{"a", "\\\""}}},
        {"a=\" ", {{"a", "\""}}},
        {"a= \"x\"", {{"a", " \"x\""}}},
        {"a='x'", {{"a", "'x'"}}},
        {"a=%22%22", {{"a", "\"\""}}},
        {"a=\"%22\"", {{"a", "\""}}},
        // Escapes.
        {"a=%3B; b=%2C", {{"a", ";"}, {"b", ","}}},
        {"%3D=1; %3B=2", {{"=", "1"}, {";", "2"}}},
        {"a+b=c+d", {{"a+b", "c+d"}}},
        {"a=%; b=%3", {{"a", "%"}, {"b", "%3"}}},
        {"a=%3;B=1", {{"a", "%3"}, {"B", "1"}}},
        {"a=%00; b=1; c%00=2", {{"b", "1"}}},
        {"a=\xff\x01; \xc3\xa4=%c3%a4", {{"a", "\xff\x01"}, {"\xc3\xa4", "\xc3\xa4"}}},
        // Large ones.
        {"a=\"" + repeated("x", 50000) + "\"", {{"a", repeated("x", 50000)}}},
        {repeated(" ", 100000) + "a=1", {{"a", "1"}}},
        {repeated(";", 100000) + "a=1", {{"a", "1"}}},
        {repeated("a=1; ", 1001), thousand},
    };
}

using Decode = CGI_varlist* (*)(CGI_varlist*, const char*);

// Decodes a text in memory of its exact size, so that a sanitizer detects reads beyond it.
List decoded(Decode decode, const std::string& text, List list = nullptr) {
    const std::vector<char> exact(text.c_str(), text.c_str() + text.size() + 1);
    CGI_varlist* before = list.release();
    List result(decode(before, exact.data()));
    EXPECT_TRUE(before == nullptr || before == result.get());
    return result;
}

List form(FCGX_Stream* in, std::size_t size) {
    return List(CGI_get_post(nullptr, kFormType, static_cast<int>(size), in));
}

void expectWhole(Decode decode, const OddText& odd) {
    expectFields(odd.pairs, decoded(decode, odd.text));
}

// Decodes the text cut anywhere. The halves of a text that is cut between two pairs result in all
// pairs; the beginning of one that is cut elsewhere has at most one pair too many: the cut one.
void expectCuts(Decode decode, const OddText& odd, char separator) {
    for (const std::size_t cut : cutsIn(odd.text.size())) {
        SCOPED_TRACE("cut at " + std::to_string(cut));
        List list = decoded(decode, odd.text.substr(0, cut));
        EXPECT_LE(list != nullptr ? list->size() : 0, odd.pairs.size() + 1);
        if (odd.text[cut] != separator)
            continue;
        expectNoOtherFields(odd.pairs, list);
        expectFields(odd.pairs, decoded(decode, odd.text.substr(cut), std::move(list)));
    }
}

} // namespace

TEST(OddQueries, AreSplitAndDecoded) {
    for (const OddText& odd : oddQueries()) {
        SCOPED_TRACE(odd.text.substr(0, 100));
        expectWhole(CGI_decode_query, odd);
        expectCuts(CGI_decode_query, odd, '&');
    }
}

TEST(OddCookies, AreSplitAndDecoded) {
    for (const OddText& odd : oddCookies()) {
        SCOPED_TRACE(odd.text.substr(0, 100));
        expectWhole(CGI_get_cookie, odd);
        expectCuts(CGI_get_cookie, odd, ';');
    }
}

TEST(OddForms, AreDecodedLikeQueriesHoweverTheyAreCut) {
    for (const OddText& odd : oddQueries()) {
        SCOPED_TRACE(odd.text.substr(0, 100));
        for (const std::size_t pieceSize : {std::size_t{1}, std::size_t{8192}}) {
            MemoryInput in(odd.text, pieceSize);
            expectFields(odd.pairs, form(in.stream(), odd.text.size()));
        }
        for (const std::size_t cut : cutsIn(odd.text.size())) {
            TwoPieces in(odd.text, cut);
            expectFields(odd.pairs, form(in.stream(), odd.text.size()));
        }
    }
}

TEST(OddForms, AddNothingWhenCutShort) {
    for (const OddText& odd : oddQueries())
        for (const std::size_t size : cutsIn(odd.text.size())) {
            MemoryInput in(odd.text.substr(0, size));
            EXPECT_EQ(nullptr, form(in.stream(), odd.text.size())) << odd.text.substr(0, 100);
        }
}
