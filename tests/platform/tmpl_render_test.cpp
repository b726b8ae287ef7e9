#include "tmpl_fixture.h"

#include <gtest/gtest.h>

using namespace std::string_literals;

namespace {

struct Example {
    const char* text;
    const char* page;
};

// Returns the variables for all tables: full is "f", empty is "", n is "main", absent is missing;
// the loop "rows" has two rows, in which n is 1 and 2; "none" has no rows.
Variables exampleVariables() {
    Variables vars(TMPL_add_var(nullptr, "full", "f", "empty", "", "n", "main", kEnd));
    TMPL_loop* rows = nullptr;
    for (const char* value : {"1", "2"})
        rows = TMPL_add_row(rows, TMPL_add_var(nullptr, "n", value, kEnd));
    TMPL_add_loop(vars.get(), "rows", rows);
    TMPL_add_loop(vars.get(), "none", nullptr);
    return vars;
}

void expectPages(std::initializer_list<Example> examples) {
    const Variables vars = exampleVariables();
    for (const Example& example : examples)
        EXPECT_EQ(renderText(example.text, vars.get()), success(example.page)) << example.text;
}

std::string formatted(const std::string& value, const std::string& format) {
    return renderText("<TMPL_VAR name=\"a\" fmt=\"" + format + "\">",
                      variables("a", value.c_str()).get())
        .page;
}

void writeLength(const char* value, FCGX_Stream* out) {
    FCGX_FPrintF(out, "%d", static_cast<int>(std::string(value).size()));
}

} // namespace

TEST(Text, StaysAsItIs) {
    expectPages({
        {"", ""},
        {"plain\r\n<b>&amp;</b>\t\xff", "plain\r\n<b>&amp;</b>\t\xff"},
        {"<", "<"},
        {"<<TMPL_VAR name=\"full\">>", "<f>"},
        {"<TMPL", "<TMPL"},
        {"<TMPLX name=\"full\">", "<TMPLX name=\"full\">"},
        {"<tm", "<tm"},
        {"</TMPL>", "</TMPL>"},
        {"< TMPL_VAR name=\"full\">", "< TMPL_VAR name=\"full\">"},
        {"&lt;TMPL_VAR", "&lt;TMPL_VAR"},
    });
}

TEST(Text, MayContainZeroBytes) {
    const TemplateFolder folder;
    const std::string text = "a\0b<TMPL_VAR name=\"n\">\0"s;
    EXPECT_EQ(renderFile(folder.write("page.html", text), variables("n", "1").get()),
              success("a\0b1\0"s));
}

TEST(Tags, AreRecognisedInAnyCaseAndSpacing) {
    expectPages({
        {"<tmpl_var NAME=\"full\">", "f"},
        {"<Tmpl_Var Name = \"full\" >", "f"},
        {"<TMPL_VAR\n\tname\r\n=\r\n\"full\"\n>", "f"},
        {"<TMPL_VAR name=\"full\"/>", "f"},
        {"<TMPL_VAR name=\"full\" />", "f"},
        {"<TMPL_VAR default=\"d\" name=\"absent\">", "d"},
        {"<tmpl_if name=\"full\">1<tmpl_else/>2</tmpl_IF >", "1"},
    });
}

TEST(Tags, AreRecognisedInCommentsAndAttributesOfThePage) {
    expectPages({{"<!-- <TMPL_VAR name=\"full\"> --><a b='<TMPL_VAR name=\"n\">'>",
                  "<!-- f --><a b='main'>"}});
}

TEST(Variable, HasItsDefaultWhenAbsentOrEmpty) {
    expectPages({
        {"<TMPL_VAR name=\"full\" default=\"d\">", "f"},
        {"<TMPL_VAR name=\"empty\" default=\"d\">", "d"},
        {"<TMPL_VAR name=\"absent\" default=\"d\">", "d"},
        {"<TMPL_VAR name=\"empty\">", ""},
        {"<TMPL_VAR name=\"absent\">", ""},
        {"<TMPL_VAR name=\"absent\" default=\"\">", ""},
        {"<TMPL_VAR name=\"absent\" default=\"a > b\nc\">", "a &gt; b\nc"},
        {"<TMPL_VAR name=\"absent\" default=\"a b\" fmt=\"url\">", "a%20b"},
        {"<TMPL_VAR name=\"absent\" default=\"<i>\" fmt=\"raw\">", "<i>"},
    });
}

TEST(Variable, IsEscapedForHtmlUnlessAFormatIsNamed) {
    const char* hostile = "</p><script x='1' y=\"2\">&amp;";
    EXPECT_EQ(renderText("<TMPL_VAR name=\"a\">", variables("a", hostile).get()),
              success("&lt;/p&gt;&lt;script x=&#39;1&#39; y=&quot;2&quot;&gt;&amp;amp;"));
    EXPECT_EQ(formatted("&<>\"'", "html"), "&amp;&lt;&gt;&quot;&#39;");
    EXPECT_EQ(formatted("gr\xc3\xbc\xc3\x9f\n", "html"), "gr\xc3\xbc\xc3\x9f\n");
}

TEST(Variable, NeverBecomesATag) {
    EXPECT_EQ(formatted("<TMPL_VAR name=\"a\">", "raw"), "<TMPL_VAR name=\"a\">");
}

TEST(RawFormat, KeepsEveryByte) {
    std::string all;
    for (int byte = 1; byte < 256; ++byte)
        all += static_cast<char>(byte);
    EXPECT_EQ(formatted(all, "raw"), all);
}

// RFC 3986, section 2.3.
TEST(UrlFormat, EscapesAllButTheUnreservedCharacters) {
    EXPECT_EQ(formatted("azAZ09-._~", "url"), "azAZ09-._~");
    EXPECT_EQ(formatted("a b+c/d?e=f&g%'\"", "url"), "a%20b%2Bc%2Fd%3Fe%3Df%26g%25%27%22");
    EXPECT_EQ(formatted("\x01\x7f\x80\xff\n", "url"), "%01%7F%80%FF%0A");
}

TEST(JsFormat, EscapesEverythingThatCouldEndAScriptString) {
    EXPECT_EQ(formatted("plain [text] (1;2) gr\xc3\xbcn", "js"), "plain [text] (1;2) gr\xc3\xbcn");
    EXPECT_EQ(formatted("\\'\"", "js"), "\\u005C\\u0027\\u0022");
    EXPECT_EQ(formatted("</script>&", "js"), "\\u003C\\u002Fscript\\u003E\\u0026");
    EXPECT_EQ(formatted("\r\n\t\x01\x1f\x7f", "js"), "\\u000D\\u000A\\u0009\\u0001\\u001F\\u007F");
    EXPECT_EQ(formatted("`${x}", "js"), "\\u0060\\u0024{x}");
    EXPECT_EQ(formatted("a\xe2\x80\xa8"
                        "b\xe2\x80\xa9"
                        "c\xe2\x80\xaa",
                        "js"),
              "a\\u2028b\\u2029c\xe2\x80\xaa");
    EXPECT_EQ(formatted("\xe2", "js"), "\xe2");
    EXPECT_EQ(formatted("\xe2\x80", "js"), "\xe2\x80");
}

TEST(JsFormat, EscapesAZeroByteInADefault) {
    const TemplateFolder folder;
    const std::string text = "<TMPL_VAR name=\"a\" default=\"x\0y\" fmt=\"js\">"s;
    EXPECT_EQ(renderFile(folder.write("page.html", text)), success("x\\u0000y"));
}

TEST(HtmlFormat, KeepsAZeroByteInADefault) {
    const TemplateFolder folder;
    const std::string text = "<TMPL_VAR name=\"a\" default=\"x\0<y\">"s;
    EXPECT_EQ(renderFile(folder.write("page.html", text)), success("x\0&lt;y"s));
}

TEST(Values, AreEscapedWhereverABufferEnds) {
    for (std::size_t size = 0; size < 1100; ++size) {
        const std::string value = std::string(size, 'v') + "<" + std::string(size % 20, 'w') + "&";
        const std::string page =
            std::string(size, 'v') + "&lt;" + std::string(size % 20, 'w') + "&amp;.";
        EXPECT_EQ(renderText("<TMPL_VAR name=\"a\">.", variables("a", value.c_str()).get()),
                  success(page));
    }
}

TEST(CallerFormats, ReceiveTheValueOrTheDefault) {
    const Formats formats(TMPL_add_format(nullptr, "length", writeLength));
    const Variables vars = exampleVariables();
    EXPECT_EQ(renderText("<TMPL_VAR name=\"n\" fmt=\"length\"> "
                         "<TMPL_VAR name=\"absent\" default=\"123456\" fmt=\"length\"> "
                         "<TMPL_VAR name=\"absent\" fmt=\"length\">",
                         vars.get(), formats.get()),
              success("4 6 0"));
}

TEST(CallerFormats, WorkInIncludedFiles) {
    const TemplateFolder folder;
    folder.write("part.html", "<TMPL_VAR name=\"a\" fmt=\"length\">");
    const std::string page = folder.write("page.html", "<TMPL_INCLUDE name=\"part.html\">");
    const Formats formats(TMPL_add_format(nullptr, "length", writeLength));
    EXPECT_EQ(render(page.c_str(), nullptr, variables("a", "12345").get(), formats.get()),
              success("5"));
}

TEST(Condition, IsTrueForAVariableThatIsNotEmpty) {
    expectPages({
        {"<TMPL_IF name=\"full\">yes</TMPL_IF>.", "yes."},
        {"<TMPL_IF name=\"empty\">yes</TMPL_IF>.", "."},
        {"<TMPL_IF name=\"absent\">yes</TMPL_IF>.", "."},
        {"<TMPL_IF name=\"full\">yes<TMPL_ELSE>no</TMPL_IF>.", "yes."},
        {"<TMPL_IF name=\"absent\">yes<TMPL_ELSE>no</TMPL_IF>.", "no."},
        {"<TMPL_IF name=\"full\"></TMPL_IF>.", "."},
        {"<TMPL_IF name=\"full\"><TMPL_ELSE></TMPL_IF>.", "."},
    });
}

TEST(Condition, WithAValueIsTrueIfTheVariableEqualsIt) {
    expectPages({
        {"<TMPL_IF name=\"full\" value=\"f\">yes<TMPL_ELSE>no</TMPL_IF>", "yes"},
        {"<TMPL_IF name=\"full\" value=\"F\">yes<TMPL_ELSE>no</TMPL_IF>", "no"},
        {"<TMPL_IF name=\"full\" value=\"\">yes<TMPL_ELSE>no</TMPL_IF>", "no"},
        {"<TMPL_IF name=\"empty\" value=\"\">yes<TMPL_ELSE>no</TMPL_IF>", "yes"},
        {"<TMPL_IF name=\"absent\" value=\"\">yes<TMPL_ELSE>no</TMPL_IF>", "yes"},
        {"<TMPL_IF name=\"absent\" value=\"f\">yes<TMPL_ELSE>no</TMPL_IF>", "no"},
    });
}

TEST(Condition, TakesTheFirstBranchThatIsTrue) {
    const std::string text =
        "<TMPL_IF name=\"v\" value=\"1\">one<TMPL_ELSIF name=\"v\" value=\"2\">"
        "two<TMPL_ELSIF name=\"v\">other<TMPL_ELSE>none</TMPL_IF>.";
    EXPECT_EQ(renderText(text, variables("v", "1").get()), success("one."));
    EXPECT_EQ(renderText(text, variables("v", "2").get()), success("two."));
    EXPECT_EQ(renderText(text, variables("v", "3").get()), success("other."));
    EXPECT_EQ(renderText(text, variables("v", "").get()), success("none."));
}

TEST(Condition, MayEndWithoutAnElse) {
    const std::string text = "<TMPL_IF name=\"a\">a<TMPL_ELSIF name=\"b\">b</TMPL_IF>.";
    EXPECT_EQ(renderText(text, variables("b", "1").get()), success("b."));
    EXPECT_EQ(renderText(text), success("."));
}

TEST(Condition, MayBeNested) {
    expectPages({
        {"<TMPL_IF name=\"full\"><TMPL_IF name=\"absent\">1<TMPL_ELSE>2</TMPL_IF>3<TMPL_ELSE>4"
         "</TMPL_IF>5",
         "235"},
        {"<TMPL_IF name=\"absent\"><TMPL_IF name=\"full\">1</TMPL_IF>2<TMPL_ELSE>"
         "<TMPL_IF name=\"full\">3</TMPL_IF>4</TMPL_IF>5",
         "345"},
    });
}

TEST(Condition, OnALoopIsTrueIfItHasRows) {
    expectPages({
        {"<TMPL_IF name=\"rows\">some<TMPL_ELSE>none</TMPL_IF>", "some"},
        {"<TMPL_IF name=\"none\">some<TMPL_ELSE>none</TMPL_IF>", "none"},
    });
}

TEST(Condition, OnANameOfBothAsksTheVariable) {
    Variables vars = variables("both", "");
    TMPL_add_loop(vars.get(), "both", TMPL_add_row(nullptr, nullptr));
    EXPECT_EQ(renderText("<TMPL_IF name=\"both\">yes<TMPL_ELSE>no</TMPL_IF>", vars.get()),
              success("no"));
}

TEST(Loop, IsWrittenOncePerRow) {
    expectPages({
        {"<TMPL_LOOP name=\"rows\"><TMPL_VAR name=\"n\">,</TMPL_LOOP>.", "1,2,."},
        {"<TMPL_LOOP name=\"rows\"></TMPL_LOOP>.", "."},
        {"<TMPL_LOOP name=\"none\">x</TMPL_LOOP>.", "."},
        {"<TMPL_LOOP name=\"absent\">x</TMPL_LOOP>.", "."},
        {"<TMPL_LOOP name=\"full\">x</TMPL_LOOP>.", "."},
    });
}

TEST(Loop, LooksANameUpInTheRowAndThenOutwards) {
    expectPages({
        {"<TMPL_LOOP name=\"rows\"><TMPL_VAR name=\"n\"><TMPL_VAR name=\"full\"></TMPL_LOOP>"
         "<TMPL_VAR name=\"n\">",
         "1f2fmain"},
        {"<TMPL_LOOP name=\"rows\"><TMPL_IF name=\"n\" value=\"2\">two<TMPL_ELSE>other</TMPL_IF>"
         "</TMPL_LOOP>",
         "othertwo"},
    });
}

TEST(Loop, HidesAnOuterValueWithAnEmptyOne) {
    Variables vars = variables("a", "outer");
    TMPL_add_loop(vars.get(), "rows", TMPL_add_row(nullptr, TMPL_add_var(nullptr, "a", "", kEnd)));
    EXPECT_EQ(
        renderText("<TMPL_LOOP name=\"rows\">[<TMPL_VAR name=\"a\">]</TMPL_LOOP>", vars.get()),
        success("[]"));
}

TEST(Loop, FindsInnerLoopsInTheRowAndThenOutwards) {
    // groups: "a" with the items 1 and 2, "b" with none, "c" without a loop, so the page's is used.
    const auto item = [](const char* n) { return TMPL_add_var(nullptr, "item", n, kEnd); };
    TMPL_varlist* a = TMPL_add_var(nullptr, "group", "a", kEnd);
    TMPL_add_loop(a, "items", TMPL_add_row(TMPL_add_row(nullptr, item("1")), item("2")));
    TMPL_varlist* b = TMPL_add_var(nullptr, "group", "b", kEnd);
    TMPL_add_loop(b, "items", nullptr);
    TMPL_varlist* c = TMPL_add_var(nullptr, "group", "c", kEnd);
    TMPL_loop* groups = TMPL_add_row(TMPL_add_row(TMPL_add_row(nullptr, a), b), c);
    Variables vars(TMPL_add_loop(nullptr, "groups", groups));
    TMPL_add_loop(vars.get(), "items", TMPL_add_row(nullptr, item("page's")));
    EXPECT_EQ(renderText("<TMPL_LOOP name=\"groups\"><TMPL_VAR name=\"group\">("
                         "<TMPL_LOOP name=\"items\"><TMPL_VAR name=\"group\">:"
                         "<TMPL_VAR name=\"item\" fmt=\"raw\"> </TMPL_LOOP>)</TMPL_LOOP>",
                         vars.get()),
              success("a(a:1 a:2 )b()c(c:page's )"));
}

TEST(Loop, MayContainItself) {
    expectPages({{"<TMPL_LOOP name=\"rows\"><TMPL_LOOP name=\"rows\"><TMPL_VAR name=\"n\">"
                  "</TMPL_LOOP>;</TMPL_LOOP>",
                  "12;12;"}});
}

TEST(Include, IsRelativeToTheFileThatIncludesIt) {
    const TemplateFolder folder;
    folder.write("parts/top.html", "top <TMPL_INCLUDE name=\"deep/menu.html\">");
    folder.write("parts/deep/menu.html", "menu <TMPL_INCLUDE name=\"../../foot.html\">");
    folder.write("foot.html", "foot");
    const std::string page = folder.write("page.html", "[<TMPL_INCLUDE name=\"parts/top.html\">]");
    EXPECT_EQ(renderFile(page), success("[top menu foot]"));
}

TEST(Include, MayHaveAnAbsolutePath) {
    const TemplateFolder folder;
    const std::string part = folder.write("elsewhere/part.html", "part");
    const std::string page =
        folder.write("pages/page.html", "<TMPL_INCLUDE name=\"" + part + "\">");
    EXPECT_EQ(renderFile(page), success("part"));
}

TEST(Include, SeesTheVariablesOfTheBlockAroundIt) {
    const TemplateFolder folder;
    folder.write("cell.html", "[<TMPL_VAR name=\"n\">]");
    const std::string page = folder.write(
        "page.html", "<TMPL_LOOP name=\"rows\"><TMPL_INCLUDE name=\"cell.html\"/></TMPL_LOOP>"
                     "<TMPL_IF name=\"absent\"><TMPL_INCLUDE name=\"cell.html\"></TMPL_IF>"
                     "<TMPL_INCLUDE name=\"cell.html\">");
    EXPECT_EQ(renderFile(page, exampleVariables().get()), success("[1][2][main]"));
}

TEST(Include, IsRelativeToTheNameOfAText) {
    const TemplateFolder folder;
    folder.write("part.html", "part");
    EXPECT_EQ(render(folder.path("no-such-file").c_str(), "<TMPL_INCLUDE name=\"part.html\">"),
              success("part"));
}

TEST(Include, MayBeSixteenDeep) {
    const TemplateFolder folder;
    for (int i = 0; i < 16; ++i)
        folder.write(std::to_string(i) + ".html", std::to_string(i) + " <TMPL_INCLUDE name=\"" +
                                                      std::to_string(i + 1) + ".html\">");
    folder.write("16.html", "end");
    EXPECT_EQ(renderFile(folder.path("0.html")),
              success("0 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 end"));
}

TEST(Include, MayContainLoopsAtEveryDepth) {
    const TemplateFolder folder;
    const auto nested = [](const std::string& inner) {
        std::string text = inner;
        for (int i = 0; i < 64; ++i)
            text = "<TMPL_LOOP name=\"one\">" + text + "</TMPL_LOOP>";
        return text;
    };
    for (int i = 0; i < 16; ++i)
        folder.write(std::to_string(i) + ".html",
                     nested("<TMPL_INCLUDE name=\"" + std::to_string(i + 1) + ".html\">"));
    folder.write("16.html", nested("<TMPL_VAR name=\"x\">"));
    Variables vars = variables("x", "found");
    TMPL_add_loop(vars.get(), "one", TMPL_add_row(nullptr, nullptr));
    EXPECT_EQ(renderFile(folder.path("0.html"), vars.get()), success("found"));
}

TEST(WebWrite, RendersATextWithoutAName) {
    EXPECT_EQ(render(nullptr, "<TMPL_VAR name=\"a\">", variables("a", "1").get()), success("1"));
}

TEST(WebWrite, PrefersTheTextToTheFile) {
    const TemplateFolder folder;
    EXPECT_EQ(render(folder.write("page.html", "file").c_str(), "text"), success("text"));
}

TEST(WebWrite, RendersTheSamePageEachTime) {
    const TemplateFolder folder;
    const std::string page =
        folder.write("page.html", "<TMPL_LOOP name=\"rows\"><TMPL_VAR name=\"n\"></TMPL_LOOP>");
    const Variables vars = exampleVariables();
    EXPECT_EQ(renderFile(page, vars.get()), success("12"));
    EXPECT_EQ(renderFile(page, vars.get()), success("12"));
}

TEST(WebWrite, OnlyChecksWithoutAnOutput) {
    EXPECT_EQ(TMPL_web_write("page.html", "text", nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(TMPL_web_write("page.html", "<TMPL_ELSE>", nullptr, nullptr, nullptr, nullptr), 2);
}

TEST(WebWrite, SucceedsWhenTheClientHasHungUp) {
    kit::testing::MemoryOutput out;
    out.breakPipe();
    Variables vars(TMPL_add_loop(nullptr, "rows", TMPL_add_row(nullptr, nullptr)));
    EXPECT_EQ(TMPL_web_write("page.html", "a<TMPL_LOOP name=\"rows\">b</TMPL_LOOP>", nullptr,
                             vars.get(), out.stream(), nullptr),
              0);
    EXPECT_EQ(out.text(), "");
}
