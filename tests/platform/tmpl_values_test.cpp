#include "tmpl_fixture.h"

#include <gtest/gtest.h>

namespace {

constexpr const char* kRows = "<TMPL_LOOP name=\"rows\">[<TMPL_VAR name=\"x\">]</TMPL_LOOP>";

TMPL_varlist* row(const char* value) {
    return TMPL_add_var(nullptr, "x", value, kEnd);
}

void writeStars(const char* value, FCGX_Stream* out) {
    FCGX_FPrintF(out, "*%s*", value);
}
void writeDashes(const char* value, FCGX_Stream* out) {
    FCGX_FPrintF(out, "-%s-", value);
}

} // namespace

TEST(Variables, AreAddedInPairsUpToANullPointer) {
    Variables vars(TMPL_add_var(nullptr, "a", "1", "b", "2", "c", "", kEnd));
    EXPECT_EQ(
        renderText("<TMPL_VAR name=\"a\"><TMPL_VAR name=\"b\"><TMPL_VAR name=\"c\">", vars.get()),
        success("12"));
}

TEST(Variables, AreAddedToAnExistingList) {
    TMPL_varlist* list = TMPL_add_var(nullptr, "a", "1", kEnd);
    Variables vars(TMPL_add_var(list, "b", "2", kEnd));
    EXPECT_EQ(vars.get(), list);
    EXPECT_EQ(renderText("<TMPL_VAR name=\"a\"><TMPL_VAR name=\"b\">", vars.get()), success("12"));
}

TEST(Variables, StartAListEvenWhenThereIsNothingToAdd) {
    Variables vars(TMPL_add_var(nullptr, kEnd));
    ASSERT_NE(vars.get(), nullptr);
    EXPECT_EQ(renderText("text", vars.get()), success("text"));
}

TEST(Variables, EndAtANullValueWhichIsNotAdded) {
    Variables vars(TMPL_add_var(nullptr, "a", "1", "b", kEnd));
    EXPECT_EQ(
        renderText("<TMPL_VAR name=\"a\"><TMPL_VAR name=\"b\" default=\"absent\">", vars.get()),
        success("1absent"));
}

TEST(Variables, HaveTheValueAddedLast) {
    TMPL_varlist* list = TMPL_add_var(nullptr, "a", "1", "a", "2", kEnd);
    Variables vars(TMPL_add_var(list, "a", "3", kEnd));
    EXPECT_EQ(renderText("<TMPL_VAR name=\"a\">", vars.get()), success("3"));
}

TEST(Variables, HaveTheValueAddedLastHoweverLongItIs) {
    Variables vars = variables("a", "1");
    TMPL_add_var(vars.get(), "b", "next to it", kEnd);
    for (const std::size_t size : {3, 0, 3000, 2, 3, 6, 5000, 3001}) {
        const std::string value(size, 'v');
        TMPL_add_var(vars.get(), "a", value.c_str(), kEnd);
        EXPECT_EQ(renderText("<TMPL_VAR name=\"a\">, <TMPL_VAR name=\"b\">", vars.get()),
                  success(value + ", next to it"));
    }
}

TEST(Variables, AreCopied) {
    char name[] = "a";
    char value[] = "1";
    Variables vars(TMPL_add_var(nullptr, name, value, kEnd));
    name[0] = value[0] = 'z';
    EXPECT_EQ(renderText("<TMPL_VAR name=\"a\">", vars.get()), success("1"));
}

TEST(Variables, AreCaseSensitive) {
    Variables vars(TMPL_add_var(nullptr, "a", "small", "A", "large", kEnd));
    EXPECT_EQ(renderText("<TMPL_VAR name=\"a\"><TMPL_VAR name=\"A\">", vars.get()),
              success("smalllarge"));
}

TEST(Variables, AreDistinguishedWhenTheirNamesEndAlike) {
    Variables vars(TMPL_add_var(nullptr, "1name", "a", "2name", "b", "name", "c", "a long 1name",
                                "d", "a long 2name", "e", kEnd));
    EXPECT_EQ(renderText("<TMPL_VAR name=\"1name\"><TMPL_VAR name=\"2name\">"
                         "<TMPL_VAR name=\"name\"><TMPL_VAR name=\"3name\">"
                         "<TMPL_VAR name=\"a long 1name\"><TMPL_VAR name=\"a long 2name\">",
                         vars.get()),
              success("abcde"));
}

TEST(Variables, MayBeManyAndLong) {
    Variables vars(TMPL_add_var(nullptr, kEnd));
    const std::string value(100000, 'v');
    for (int i = 0; i < 1000; ++i)
        TMPL_add_var(vars.get(), std::to_string(i).c_str(), i == 777 ? value.c_str() : "-", kEnd);
    EXPECT_EQ(renderText("<TMPL_VAR name=\"777\">", vars.get()), success(value));
}

TEST(FreeingAList, DoesNothingForNull) {
    TMPL_free_varlist(nullptr);
    TMPL_free_fmtlist(nullptr);
}

TEST(FreeingAList, DoesNotRecurseIntoNestedLoops) {
    TMPL_varlist* list = nullptr;
    for (int i = 0; i < 200000; ++i)
        list = TMPL_add_loop(nullptr, "rows", TMPL_add_row(nullptr, list));
    TMPL_free_varlist(list);
}

TEST(Loops, KeepTheirRowsInTheOrderOfAdding) {
    TMPL_loop* loop = TMPL_add_row(nullptr, row("1"));
    EXPECT_EQ(TMPL_add_row(loop, row("2")), loop);
    TMPL_add_row(loop, row("3"));
    Variables vars(TMPL_add_loop(nullptr, "rows", loop));
    EXPECT_EQ(renderText(kRows, vars.get()), success("[1][2][3]"));
}

TEST(Loops, TreatANullRowAsAnEmptyOne) {
    TMPL_loop* loop = TMPL_add_row(TMPL_add_row(nullptr, nullptr), row("2"));
    Variables vars(TMPL_add_loop(nullptr, "rows", loop));
    EXPECT_EQ(renderText(kRows, vars.get()), success("[][2]"));
}

TEST(Loops, HaveNoRowsWhenNull) {
    Variables vars(TMPL_add_loop(nullptr, "rows", nullptr));
    ASSERT_NE(vars.get(), nullptr);
    EXPECT_EQ(renderText(kRows, vars.get()), success(""));
}

TEST(Loops, ReplaceTheLoopOfTheSameName) {
    Variables vars(TMPL_add_loop(nullptr, "rows", TMPL_add_row(nullptr, row("old"))));
    TMPL_add_loop(vars.get(), "rows", TMPL_add_row(nullptr, row("new")));
    EXPECT_EQ(renderText(kRows, vars.get()), success("[new]"));
}

TEST(Loops, MayBeAddedTwiceUnderTheSameName) {
    TMPL_loop* loop = TMPL_add_row(nullptr, row("1"));
    Variables vars(TMPL_add_loop(nullptr, "rows", loop));
    TMPL_add_loop(vars.get(), "rows", loop);
    EXPECT_EQ(renderText(kRows, vars.get()), success("[1]"));
}

TEST(Loops, AreFreedWhenTheyHaveNoName) {
    Variables vars(TMPL_add_loop(nullptr, nullptr, TMPL_add_row(nullptr, row("1"))));
    ASSERT_NE(vars.get(), nullptr);
    EXPECT_EQ(renderText(kRows, vars.get()), success(""));
}

TEST(Loops, MayHaveTheNameOfAVariable) {
    Variables vars = variables("rows", "variable");
    TMPL_add_loop(vars.get(), "rows", TMPL_add_row(nullptr, row("1")));
    EXPECT_EQ(renderText("<TMPL_VAR name=\"rows\">" + std::string(kRows), vars.get()),
              success("variable[1]"));
}

TEST(Formats, AreFoundByTheirName) {
    Formats formats(TMPL_add_format(nullptr, "stars", writeStars));
    EXPECT_EQ(TMPL_add_format(formats.get(), "dashes", writeDashes), formats.get());
    EXPECT_EQ(renderText("<TMPL_VAR name=\"a\" fmt=\"stars\"><TMPL_VAR name=\"a\" fmt=\"dashes\">",
                         variables("a", "1").get(), formats.get()),
              success("*1*-1-"));
}

TEST(Formats, AreReplacedByOneAddedLater) {
    Formats formats(TMPL_add_format(nullptr, "mine", writeStars));
    TMPL_add_format(formats.get(), "mine", writeDashes);
    EXPECT_EQ(
        renderText("<TMPL_VAR name=\"a\" fmt=\"mine\">", variables("a", "1").get(), formats.get()),
        success("-1-"));
}

TEST(Formats, CannotReplaceABuiltInOne) {
    Formats formats(TMPL_add_format(nullptr, "html", writeStars));
    EXPECT_EQ(renderText("<TMPL_VAR name=\"a\"><TMPL_VAR name=\"a\" fmt=\"html\">",
                         variables("a", "<").get(), formats.get()),
              success("&lt;&lt;"));
}

TEST(Formats, AreNotAddedWithoutANameOrAFunction) {
    Formats formats(TMPL_add_format(nullptr, nullptr, writeStars));
    ASSERT_NE(formats.get(), nullptr);
    TMPL_add_format(formats.get(), "none", nullptr);
    EXPECT_EQ(renderText("<TMPL_VAR name=\"a\" fmt=\"none\">", nullptr, formats.get()).result, 2);
}
