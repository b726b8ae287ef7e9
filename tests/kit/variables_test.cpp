#include "kit/variables.h"

#include <kit/testing/memory_stream.h>

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

std::string rendered(const char* text, kit::Variables variables) {
    kit::testing::MemoryOutput out;
    TMPL_varlist* list = variables.release();
    EXPECT_EQ(TMPL_web_write("test", text, nullptr, list, out.stream(), stderr), 0);
    TMPL_free_varlist(list);
    return out.text();
}

} // namespace

TEST(Variables, AcceptOrdinaryValues) {
    EXPECT_EQ(rendered("<TMPL_VAR name=\"a\">|<TMPL_VAR name=\"b\">|<TMPL_VAR name=\"c\">|"
                       "<TMPL_VAR name=\"d\">|<TMPL_VAR name=\"e\">",
                       kit::Variables()
                           .set("a", "text")
                           .set("b", std::string("string"))
                           .set("c", std::string_view("viewed").substr(0, 4))
                           .set("d", -5)
                           .set("e", std::size_t(7))),
              "text|string|view|-5|7");
}

TEST(Variables, OmitFalseAndNull) {
    const char* const kText = "<TMPL_IF name=\"a\">yes<TMPL_ELSE>no</TMPL_IF>";
    EXPECT_EQ(rendered(kText, kit::Variables().set("a", true)), "yes");
    EXPECT_EQ(rendered(kText, kit::Variables().set("a", false)), "no");
    EXPECT_EQ(rendered(kText, kit::Variables().set("a", static_cast<const char*>(nullptr))), "no");
}

TEST(Variables, UseTheLastValueOfAName) {
    EXPECT_EQ(rendered("<TMPL_VAR name=\"a\">", kit::Variables().set("a", 1).set("a", 2)), "2");
}

TEST(Variables, HaveOneRowForEachElement) {
    const std::vector<std::string> kNames{"x", "<y>"};
    EXPECT_EQ(rendered("<TMPL_LOOP name=\"r\">[<TMPL_VAR name=\"n\">]</TMPL_LOOP>",
                       kit::Variables().rows("r", kNames,
                                             [](const std::string& name) {
                                                 return kit::Variables().set("n", name);
                                             })),
              "[x][&lt;y&gt;]");
}

TEST(Variables, CanHaveALoopWithoutRows) {
    EXPECT_EQ(rendered("<TMPL_IF name=\"r\">some<TMPL_ELSE>none</TMPL_IF>",
                       kit::Variables().rows("r", std::vector<int>(),
                                             [](int) { return kit::Variables(); })),
              "none");
}

TEST(Variables, CanHaveLoopsInRows) {
    const std::vector<int> kOuter{1, 2};
    const auto inner = [](int n) { return kit::Variables().set("n", n); };
    EXPECT_EQ(rendered("<TMPL_LOOP name=\"o\">(<TMPL_LOOP name=\"i\"><TMPL_VAR "
                       "name=\"n\"></TMPL_LOOP>)</TMPL_LOOP>",
                       kit::Variables().rows("o", kOuter,
                                             [&](int n) {
                                                 return kit::Variables().rows(
                                                     "i", std::vector<int>(n, n), inner);
                                             })),
              "(1)(22)");
}

// The leak sanitizer checks these.
TEST(Variables, AreFreedOnEveryPath) {
    kit::Variables never;
    never.set("a", "b").rows("r", std::vector<int>{1},
                             [](int) { return kit::Variables().set("c", "d"); });
    const auto failing = [](int n) {
        if (n == 2) {
            throw std::runtime_error("no");
        }
        return kit::Variables().set("c", n);
    };
    EXPECT_THROW(kit::Variables().set("a", "b").rows("r", std::vector<int>{1, 2}, failing),
                 std::runtime_error);
    EXPECT_EQ(kit::Variables().release(), nullptr);
}
