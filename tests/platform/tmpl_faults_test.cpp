#include "template_page.h"
#include "template_parser.h"
#include "tmpl_fixture.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace {

struct WrongTemplate {
    const char* text;
    const char* error;
};

Rendered wrong(const std::string& error) {
    return {2, "", error + "\n"};
}
Rendered unreadable(const std::string& error) {
    return {1, "", error + "\n"};
}

void expectErrors(std::initializer_list<WrongTemplate> templates) {
    for (const WrongTemplate& each : templates)
        EXPECT_EQ(renderText("written?" + std::string(each.text)), wrong(each.error)) << each.text;
}

std::string blocks(std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        text += i % 2 == 0 ? "<TMPL_IF name=\"a\">" : "<TMPL_LOOP name=\"a\">";
    for (std::size_t i = count; i-- > 0;)
        text += i % 2 == 0 ? "</TMPL_IF>" : "</TMPL_LOOP>";
    return text;
}

[[noreturn]] void throwSomething(const char*, FCGX_Stream*) {
    throw 1;
}

} // namespace

TEST(UnknownTag, IsReportedWithItsLine) {
    expectErrors({
        {"<TMPL_FOO>", "page.html:1: unknown tag <TMPL_FOO>"},
        {"\n\n<TMPL_FOO>", "page.html:3: unknown tag <TMPL_FOO>"},
        {"\r\n<tmpl_Vars name=\"a\">", "page.html:2: unknown tag <tmpl_Vars>"},
        {"<TMPL_>", "page.html:1: unknown tag <TMPL_>"},
        {"<TMPL_", "page.html:1: unknown tag <TMPL_>"},
        {"</TMPL_VAR>", "page.html:1: unknown tag </TMPL_VAR>"},
        {"</TMPL_ELSE>", "page.html:1: unknown tag </TMPL_ELSE>"},
        {"</TMPL_", "page.html:1: unknown tag </TMPL_>"},
    });
}

TEST(UnterminatedTag, IsReportedWhereItBegins) {
    expectErrors({
        {"\n<TMPL_VAR", "page.html:2: <TMPL_VAR> does not end"},
        {"\n<TMPL_VAR\n\n name", "page.html:2: <TMPL_VAR> does not end"},
        {"<TMPL_VAR name=", "page.html:1: <TMPL_VAR> does not end"},
        {"<TMPL_VAR name=\"", "page.html:1: <TMPL_VAR> does not end"},
        {"<TMPL_VAR name=\"a>\n</p>", "page.html:1: <TMPL_VAR> does not end"},
        {"<TMPL_VAR name=\"a\"", "page.html:1: <TMPL_VAR> does not end"},
        {"<TMPL_VAR name=\"a\" /", "page.html:1: <TMPL_VAR> does not end"},
        {"<TMPL_IF name=\"a\"></TMPL_IF", "page.html:1: </TMPL_IF> does not end"},
    });
}

TEST(WrongAttribute, IsReported) {
    expectErrors({
        {"<TMPL_VAR>", "page.html:1: <TMPL_VAR> has no name"},
        {"<TMPL_VAR name=\"\">", "page.html:1: <TMPL_VAR> has no name"},
        {"<TMPL_IF value=\"v\">", "page.html:1: <TMPL_IF> has no name"},
        {"<TMPL_LOOP>", "page.html:1: <TMPL_LOOP> has no name"},
        {"<TMPL_INCLUDE>", "page.html:1: <TMPL_INCLUDE> has no name"},
        {"<TMPL_IF name=\"a\"><TMPL_ELSIF>", "page.html:1: <TMPL_ELSIF> has no name"},
        {"<TMPL_VAR nam=\"a\">", "page.html:1: <TMPL_VAR> has no attribute \"nam\""},
        {"<TMPL_VAR name=\"a\" value=\"b\">", "page.html:1: <TMPL_VAR> has no attribute \"value\""},
        {"<TMPL_LOOP name=\"a\" fmt=\"raw\">", "page.html:1: <TMPL_LOOP> has no attribute \"fmt\""},
        {"<TMPL_ELSE name=\"a\">", "page.html:1: <TMPL_ELSE> has no attribute \"name\""},
        {"<TMPL_IF name=\"a\"></TMPL_IF name=\"a\">",
         "page.html:1: </TMPL_IF> has no attribute \"name\""},
        {"<TMPL_VAR name=\"a\" Name=\"b\">",
         "page.html:1: <TMPL_VAR> has the attribute \"Name\" twice"},
        {"<TMPL_VAR name=\"a\" name=\"\">",
         "page.html:1: <TMPL_VAR> has the attribute \"name\" twice"},
        {"<TMPL_VAR name>", "page.html:1: the attribute \"name\" of <TMPL_VAR> has no value"},
        {"<TMPL_VAR name=a>",
         "page.html:1: the value of the attribute \"name\" of <TMPL_VAR> is not in double quotes"},
        {"<TMPL_VAR name='a'>",
         "page.html:1: the value of the attribute \"name\" of <TMPL_VAR> is not in double quotes"},
        {"<TMPL_VAR \"a\">", "page.html:1: <TMPL_VAR>: expected an attribute name, found '\"'"},
        {"<TMPL_VAR <b>>", "page.html:1: <TMPL_VAR>: expected an attribute name, found '<'"},
        {"<TMPL_VAR/ name=\"a\">", "page.html:1: <TMPL_VAR>: \"/\" is not followed by \">\""},
        {"<TMPL_LOOP name=\"a\"/>", "page.html:1: <TMPL_LOOP> cannot end in \"/>\""},
        {"<TMPL_IF name=\"a\"></TMPL_IF/>", "page.html:1: </TMPL_IF> cannot end in \"/>\""},
    });
}

TEST(UnbalancedBlock, IsReported) {
    expectErrors({
        {"\n<TMPL_IF name=\"a\">\n\n", "page.html:2: <TMPL_IF> is not closed"},
        {"<TMPL_IF name=\"a\">\n<TMPL_LOOP name=\"b\">\n",
         "page.html:2: <TMPL_LOOP> is not closed"},
        {"<TMPL_IF name=\"a\">\n<TMPL_ELSE>\n", "page.html:1: <TMPL_IF> is not closed"},
        {"\n</TMPL_IF>", "page.html:2: </TMPL_IF> without <TMPL_IF>"},
        {"</TMPL_LOOP>", "page.html:1: </TMPL_LOOP> without <TMPL_LOOP>"},
        {"<TMPL_IF name=\"a\"></TMPL_IF></TMPL_IF>", "page.html:1: </TMPL_IF> without <TMPL_IF>"},
        {"<TMPL_ELSE>", "page.html:1: <TMPL_ELSE> without <TMPL_IF>"},
        {"<TMPL_ELSIF name=\"a\">", "page.html:1: <TMPL_ELSIF> without <TMPL_IF>"},
        {"\n<TMPL_IF name=\"a\">\n</TMPL_LOOP>",
         "page.html:3: </TMPL_LOOP> inside the <TMPL_IF> of line 2"},
        {"<TMPL_LOOP name=\"a\">\n</TMPL_IF>",
         "page.html:2: </TMPL_IF> inside the <TMPL_LOOP> of line 1"},
        {"<TMPL_IF name=\"a\"><TMPL_LOOP name=\"b\">\n<TMPL_ELSE>",
         "page.html:2: <TMPL_ELSE> inside the <TMPL_LOOP> of line 1"},
        {"<TMPL_IF name=\"a\"><TMPL_LOOP name=\"b\"></TMPL_IF></TMPL_LOOP>",
         "page.html:1: </TMPL_IF> inside the <TMPL_LOOP> of line 1"},
        {"<TMPL_IF name=\"a\"><TMPL_ELSE>\n<TMPL_ELSE>",
         "page.html:2: <TMPL_ELSE> after <TMPL_ELSE>"},
        {"<TMPL_IF name=\"a\"><TMPL_ELSE>\n<TMPL_ELSIF name=\"b\">",
         "page.html:2: <TMPL_ELSIF> after <TMPL_ELSE>"},
    });
}

TEST(UnknownFormat, IsReportedEvenInABranchThatIsNotTaken) {
    expectErrors({
        {"\n<TMPL_VAR name=\"a\" fmt=\"none\">\n<TMPL_VAR name=\"b\" fmt=\"none\">",
         "page.html:2: unknown format \"none\""},
        {"<TMPL_IF name=\"a\"><TMPL_VAR name=\"a\" fmt=\"HTML\"></TMPL_IF>",
         "page.html:1: unknown format \"HTML\""},
        {"<TMPL_VAR name=\"a\" fmt=\"\">", "page.html:1: unknown format \"\""},
    });
}

TEST(UnknownFormat, IsReportedInTheFileThatUsesIt) {
    const TemplateFolder folder;
    const std::string part = folder.write("part.html", "\n\n<TMPL_VAR name=\"a\" fmt=\"none\">");
    const std::string page = folder.write("page.html", "text<TMPL_INCLUDE name=\"part.html\">");
    EXPECT_EQ(renderFile(page), wrong(part + ":3: unknown format \"none\""));
}

TEST(Blocks, MayBeNestedSixtyFourDeepAtMost) {
    EXPECT_EQ(renderText(blocks(tmpl::kMaxNesting)), success(""));
    EXPECT_EQ(renderText("\n" + blocks(tmpl::kMaxNesting + 1)),
              wrong("page.html:2: blocks are nested more than 64 deep"));
    EXPECT_EQ(renderText(std::string(blocks(tmpl::kMaxNesting)) + blocks(1)), success(""));
}

TEST(Template, MayHaveOneMebibyteAtMost) {
    const TemplateFolder folder;
    const std::string largest(tmpl::kMaxTemplateSize, 'x');
    EXPECT_EQ(renderFile(folder.write("page.html", largest)), success(largest));
    EXPECT_EQ(renderText(largest), success(largest));
    const std::string page = folder.write("page.html", largest + "x");
    EXPECT_EQ(renderFile(page), wrong(page + ":1: the template is larger than 1048576 bytes"));
    EXPECT_EQ(renderText(largest + "x"),
              wrong("page.html:1: the template is larger than 1048576 bytes"));
}

TEST(TemplateFile, IsReportedAtItsFirstLineWhenMissing) {
    const TemplateFolder folder;
    const std::string page = folder.path("page.html");
    EXPECT_EQ(renderFile(page),
              unreadable(page + ":1: cannot read \"" + page + "\": " + std::strerror(ENOENT)));
    EXPECT_EQ(renderFile(""),
              unreadable(std::string(":1: cannot read \"\": ") + std::strerror(ENOENT)));
}

TEST(TemplateFile, DirectoryIsReportedAsUnreadable) {
    const TemplateFolder folder;
    const std::string page = folder.path("");
    EXPECT_EQ(renderFile(page),
              unreadable(page + ":1: cannot read \"" + page + "\": " + std::strerror(EISDIR)));
}

TEST(TemplateFile, PipeIsReportedAsUnreadableWithoutBlocking) {
    const TemplateFolder folder;
    const std::string page = folder.path("pipe");
    ASSERT_EQ(::mkfifo(page.c_str(), 0600), 0);
    EXPECT_EQ(renderFile(page).result, 1);
}

TEST(TemplateFile, MissingNameAndTextIsReported) {
    EXPECT_EQ(render(nullptr, nullptr),
              unreadable("(text):1: neither a file nor a text was given"));
}

TEST(UnreadableInclude, IsReportedAtItsTag) {
    const TemplateFolder folder;
    const std::string part = folder.write("parts/part.html", "\n<TMPL_INCLUDE name=\"none\">");
    const std::string page =
        folder.write("page.html", "text<TMPL_INCLUDE name=\"parts/part.html\">");
    EXPECT_EQ(renderFile(page), unreadable(part + ":2: cannot read \"" + folder.path("parts/none") +
                                           "\": " + std::strerror(ENOENT)));
}

TEST(UnreadableInclude, IsReportedEvenInABranchThatIsNotTaken) {
    EXPECT_EQ(renderText("<TMPL_IF name=\"a\"><TMPL_INCLUDE name=\"/none\"></TMPL_IF>").result, 1);
}

TEST(WrongInclude, IsReportedInItsFile) {
    const TemplateFolder folder;
    const std::string part = folder.write("parts/part.html", "\n\n</TMPL_IF>");
    const std::string page =
        folder.write("page.html", "text\n<TMPL_INCLUDE name=\"parts/part.html\">");
    EXPECT_EQ(renderFile(page), wrong(part + ":3: </TMPL_IF> without <TMPL_IF>"));
}

TEST(WrongInclude, CannotCloseABlockOfTheFileThatIncludesIt) {
    const TemplateFolder folder;
    const std::string part = folder.write("part.html", "</TMPL_IF>");
    const std::string page =
        folder.write("page.html", "<TMPL_IF name=\"a\"><TMPL_INCLUDE name=\"part.html\">");
    EXPECT_EQ(renderFile(page), wrong(page + ":1: <TMPL_IF> is not closed"));
    folder.write("page.html", "<TMPL_IF name=\"a\"><TMPL_INCLUDE name=\"part.html\"></TMPL_IF>");
    EXPECT_EQ(renderFile(page), wrong(part + ":1: </TMPL_IF> without <TMPL_IF>"));
}

TEST(IncludeOfItself, IsReported) {
    const TemplateFolder folder;
    const std::string a = folder.write("a.html", "text\n<TMPL_INCLUDE name=\"b.html\">");
    const std::string b = folder.write("b.html", "\n\n<TMPL_INCLUDE name=\"a.html\">");
    EXPECT_EQ(renderFile(a), wrong(b + ":3: \"" + a + "\" includes itself"));
}

TEST(IncludeOfItself, IsReportedUnderChangingPaths) {
    const TemplateFolder folder;
    const std::string page = folder.write("a/a.html", "<TMPL_INCLUDE name=\"../a/a.html\">");
    const Rendered rendered = renderFile(page);
    EXPECT_EQ(rendered.result, 2);
    EXPECT_EQ(rendered.page, "");
    EXPECT_NE(rendered.error.find(":1: includes are nested more than 16 deep\n"),
              std::string::npos);
}

TEST(NestedInclude, IsReportedWhenSeventeenDeep) {
    const TemplateFolder folder;
    for (int i = 0; i < 17; ++i)
        folder.write(std::to_string(i) + ".html",
                     "\n<TMPL_INCLUDE name=\"" + std::to_string(i + 1) + ".html\">");
    folder.write("17.html", "end");
    EXPECT_EQ(renderFile(folder.path("0.html")),
              wrong(folder.path("16.html") + ":2: includes are nested more than 16 deep"));
}

TEST(NestedInclude, IsReportedWhenSeventeenDeepInAFileIncludedBefore) {
    const TemplateFolder folder;
    for (int i = 0; i < 16; ++i)
        folder.write(std::to_string(i) + ".html",
                     "<TMPL_INCLUDE name=\"" + std::to_string(i + 1) + ".html\">");
    folder.write("16.html", "end");
    const std::string page = folder.write("page.html", "<TMPL_INCLUDE name=\"8.html\">\n"
                                                       "<TMPL_INCLUDE name=\"1.html\">\n"
                                                       "<TMPL_INCLUDE name=\"below.html\">");
    const std::string below = folder.write("below.html", "\n<TMPL_INCLUDE name=\"1.html\">");
    EXPECT_EQ(renderFile(page), wrong(below + ":2: includes are nested more than 16 deep"));
}

TEST(ErrorMessage, IsOneShortLineWhateverTheTemplateContains) {
    EXPECT_EQ(render("a\nb.html", "<TMPL_ELSE>"),
              wrong("a?b.html:1: <TMPL_ELSE> without <TMPL_IF>"));
    EXPECT_EQ(renderText("<TMPL_VAR \x1b>"),
              wrong("page.html:1: <TMPL_VAR>: expected an attribute name, found '?'"));
    EXPECT_EQ(renderText("<TMPL_VAR name=\"a\" fmt=\"b\nc\x7f\">"),
              wrong("page.html:1: unknown format \"b?c?\""));
    const std::string longName(5000, 'x');
    EXPECT_EQ(renderText("<TMPL_" + longName + ">"),
              wrong("page.html:1: unknown tag <TMPL_" + longName.substr(0, 55) + "...>"));
    const Rendered rendered = render(longName.c_str(), "<TMPL_ELSE>");
    EXPECT_EQ(rendered.error.substr(490), ":1: <TMPL_ELSE> without <TMPL_IF>\n");
}

TEST(ErrorMessage, IsOmittedWithoutAnErrorFile) {
    kit::testing::MemoryOutput out;
    EXPECT_EQ(TMPL_web_write("page.html", "a<TMPL_ELSE>", nullptr, nullptr, out.stream(), nullptr),
              2);
    EXPECT_EQ(TMPL_web_write("/none", nullptr, nullptr, nullptr, out.stream(), nullptr), 1);
    EXPECT_EQ(out.text(), "");
}

TEST(ExceptionOfACallerFormat, IsCaughtAndReported) {
    const Formats formats(TMPL_add_format(nullptr, "throws", throwSomething));
    EXPECT_EQ(renderText("<TMPL_VAR name=\"a\" fmt=\"throws\">", nullptr, formats.get()),
              wrong("page.html:1: a format function threw an exception"));
}

TEST(TruncatedTemplate, IsRenderedOrReportedWithOneLine) {
    const std::string whole = "a<TMPL_IF name=\"x\" value=\"y\">b<TMPL_ELSIF name=\"z\">c"
                              "<TMPL_ELSE/>d</TMPL_IF><TMPL_LOOP name=\"r\">e"
                              "<TMPL_VAR name=\"v\" default=\"w\" fmt=\"js\">f</TMPL_LOOP>";
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const Rendered rendered = renderText(whole.substr(0, size));
        if (rendered.result == 0) {
            EXPECT_EQ(rendered.error, "");
            continue;
        }
        EXPECT_EQ(rendered.result, 2);
        EXPECT_EQ(rendered.page, "");
        EXPECT_EQ(rendered.error.rfind("page.html:1: ", 0), 0u) << rendered.error;
        EXPECT_EQ(rendered.error.find('\n'), rendered.error.size() - 1) << rendered.error;
    }
}
