#include "model/contacts_csv_columns.h"
#include "model/csv_reader.h"
#include "model/csv_text.h"

#include <gtest/gtest.h>

using namespace phone;
using namespace std::string_literals;

TEST(CsvText, IsConvertedToUtf8) {
    const struct {
        std::string file;
        bool isChinese;
        const char* text;
    } cases[] = {
        {"", false, ""},
        {"M\xC3\xBCller", true, "Müller"},
        {"\xEF\xBB\xBFM\xC3\xBC\xFF", true, "\uFEFFMü\xFF"},
        {"\xFF\xFEM\0\xFC\0;\0\x8B\x73\x3D\xD8\x00\xDE"s, false, "Mü;王\xF0\x9F\x98\x80"},
        {"\xFE\xFF\0M\0\xFC\x73\x8B"s, false, "Mü王"},
        {"\xFF\xFE\x00\xD8\x00\xD8M\0\x00\xDE\x00\xD8x"s, false, "\uFFFD\uFFFDM\uFFFD\uFFFD"},
        {"M\xFCller \x80\x81\x9F", false, "Müller €\uFFFDŸ"},
        {"\xCD\xF5\xB7\xBC,1", true, "王芳,1"},
        {"\x81\x30\x81\x30", true, "\u0080"},
        {"\xCD\xF5\xFF,1\xCD", true, "王\uFFFD,1\uFFFD"},
        {"\xCD\xF5", false, "Íõ"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(csvText(test.file, test.isChinese), test.text) << test.text;
    }
}

TEST(CsvText, IsBinaryWithControlCharacters) {
    EXPECT_FALSE(isBinary("Ann\t1\r\nMüller"));
    EXPECT_TRUE(isBinary("PK\x03\x04"));
    EXPECT_TRUE(isBinary("a\0"s));
}

TEST(CsvDelimiter, SeparatesTheFieldsOfMostLines) {
    const struct {
        std::string text;
        char delimiter;
    } cases[] = {
        {"", ','},
        {"\t\n \t", ','},
        {"Ann", ','},
        {"Ann,1\nBen,2", ','},
        {"Ann;1\nBen;2", ';'},
        {"Ann\t1\r\nBen\t2", '\t'},
        {"Doe, Jane;1", ';'},
        {"\"a;b\",1", ','},
        {"\"a;b\";1,2", ';'},
        {"Ann;x\nBen,1\nCem,2", ','},
        {"\n\n\nAnn;1", ';'},
        {"a,1\n" + std::string(30, '\n') + "b;1\nc;1", ';'},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(csvDelimiter(test.text), test.delimiter) << test.text;
    }
    std::string text;
    for (int i = 0; i < 20; ++i) {
        text += "a,1\n";
    }
    for (int i = 0; i < 21; ++i) {
        text += "a;1\n";
    }
    EXPECT_EQ(csvDelimiter(text), ',') << "only the first 20 lines";
}

TEST(CsvLayout, FindsTheColumnsByTheirTitles) {
    constexpr std::size_t kNone = kNoColumn;
    const struct {
        const char* text;
        bool hasHeader;
        CsvColumns columns;
    } cases[] = {
        {"", false, {0, 1, kNone, kNone}},
        {"Ann,1", false, {0, 1, kNone, kNone}},
        {"name,number,mobile,home", true, {0, 1, 2, 3}},
        {"Home Phone;Mobile Phone;Business Phone;Full Name", true, {3, 2, 1, 0}},
        {"Telefon (privat)\tTELEFON (GESCHÄFTLICH)\tMobiltelefon\tName", true, {3, 1, 2, 0}},
        {"姓名,办公电话,手机,家庭电话", true, {0, 1, 2, 3}},
        {"E-mail,Name,Note", true, {1, 0, kNone, kNone}},
        {"Person,Handy", true, {0, kNone, 1, kNone}},
        {"Home,123", false, {0, 1, kNone, kNone}},
        {"name,\"number", false, {0, 1, kNone, kNone}},
        {"\xFFname,number", true, {0, 1, kNone, kNone}},
        {"name", true, {0, kNone, kNone, kNone}},
    };
    for (const auto& test : cases) {
        const CsvLayout layout = csvLayout(test.text);
        EXPECT_EQ(layout.columns, test.columns) << test.text;
        EXPECT_EQ(layout.hasHeader, test.hasHeader) << test.text;
    }
    EXPECT_EQ(csvLayout("a\nb,c\nd,e,f\ng,h,i\n").titles,
              (std::vector<std::string>{"d", "e", "f"}));
}
