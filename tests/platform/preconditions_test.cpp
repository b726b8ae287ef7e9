// Callers inside the library that break a written precondition end at an assertion.
#include "cgi_temporary_folder.h"
#include "log_record.h"
#include "multipart.h"
#include "template_page.h"
#include "template_parser.h"
#include "template_renderer.h"
#include "template_tag.h"
#include "upload_file.h"
#include "varlist.h"
#include <kit/testing/memory_stream.h>

#include <gtest/gtest.h>

#include <cstdarg>

namespace {

class IgnoringSink final : public cgi::PartSink {
public:
    bool beginPart(cgi::Part) override { return true; }
    bool partData(const char*, std::size_t) override { return true; }
    bool endPart() override { return true; }
};

CGI_varlist::Owner listOf(std::size_t values) {
    auto list = CGI_varlist::make(values, std::string(2 * values, 'a'));
    for (const char* name = list->text(); !list->isFull(); name += 2)
        list->add({name, 1}, {name + 1, 0});
    return list;
}

// Formats without arguments, so that null can be passed.
device_log::EscapedText textOf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const device_log::EscapedText text = device_log::formatText(format, arguments);
    va_end(arguments);
    return text;
}

} // namespace

TEST(BoundaryDeathTest, MustNotBeEmptyOrContainACarriageReturn) {
    IgnoringSink sink;
    EXPECT_DEATH(cgi::MultipartParser("", sink), "boundary.empty");
    EXPECT_DEATH(cgi::MultipartParser("a\rb", sink), "boundary.find");
}

TEST(ListDeathTest, HoldsOnlyValuesThatItCanHold) {
    EXPECT_DEATH(CGI_varlist::ofOne("", "text"), "canHold");
    EXPECT_DEATH(CGI_varlist::ofOne("name", std::string_view("\0", 1)), "canHold");
    const auto list = CGI_varlist::make(1, "text");
    EXPECT_DEATH(list->add({list->text(), 0}, {list->text(), 0}), "canHold");
}

TEST(ListDeathTest, HasNoPlaceForMoreValuesThanItWasMadeFor) {
    const auto list = listOf(2);
    EXPECT_DEATH(list->add({list->text(), 1}, {list->text(), 1}), "there must be a place left");
}

TEST(ListDeathTest, TakesNoMoreValuesThanThereIsRoomFor) {
    const auto list = listOf(cgi::kMaxValues - 1);
    EXPECT_DEATH(list->take(nullptr), "other");
    EXPECT_DEATH(list->take(listOf(2)), "there must be room for the values");
    list->take(listOf(1));
    EXPECT_EQ(cgi::kMaxValues, list->size());
}

TEST(UploadFileDeathTest, IsCalledInTheGivenOrder) {
    const TemporaryFolder folder;
    cgi::UploadFile file(folder.path("new.bin").c_str());
    EXPECT_DEATH(file.append("x", 1), "begin\\(\\) comes before append");
    EXPECT_DEATH(file.keep(), "begin\\(\\) comes before keep");
    ASSERT_TRUE(file.begin());
    EXPECT_DEATH(file.begin(), "begin\\(\\) is called once");
    EXPECT_TRUE(file.append("x", 1) && file.keep());
    EXPECT_EQ("x", folder.read("new.bin"));
}

TEST(TagDeathTest, IsReadOnlyWhereOneBegins) {
    std::string source = "text<TMPL_ELSE>";
    const tmpl::Position position{"page.html", 1};
    EXPECT_DEATH(tmpl::readTag(source, 0, position), "findTag");
    EXPECT_EQ(tmpl::TagKind::Else, tmpl::readTag(source, 4, position).kind);
}

TEST(PageDeathTest, HasNoFileBeyondItsSize) {
    tmpl::TemplateCache cache;
    const tmpl::Page page(cache, tmpl::parseTemplate("page.html", "text"));
    EXPECT_EQ("text", page.file(0).parsed->source);
    EXPECT_DEATH(page.file(1), "number < size");
}

TEST(RendererDeathTest, RendersOnce) {
    tmpl::TemplateCache cache;
    const tmpl::Page page(cache, tmpl::parseTemplate("page.html", "text"));
    tmpl::Renderer renderer(page, nullptr, nullptr);
    kit::testing::MemoryOutput out;
    renderer.render(*out.stream());
    EXPECT_EQ("text", out.text());
    EXPECT_DEATH(renderer.render(*out.stream()), "renders one page once");
}

TEST(ValuesDeathTest, HaveNeitherNamesNorValuesThatAreNull) {
    TMPL_varlist variables{tmpl::Arena()};
    EXPECT_DEATH(variables.addVariable(nullptr, "value"), "name != nullptr");
    EXPECT_DEATH(variables.addVariable("name", nullptr), "value != nullptr");
    tmpl::LoopOwner loop(tmpl::makeInArena<TMPL_loop>());
    EXPECT_DEATH(variables.addLoop(nullptr, std::move(loop)), "name != nullptr");
    EXPECT_DEATH(variables.addLoop("name", nullptr), "loop != nullptr");
    TMPL_fmtlist formats;
    EXPECT_DEATH(formats.add("name", nullptr), "format != nullptr");
}

TEST(LogTextDeathTest, NeedsAFormat) {
    EXPECT_EQ("text", textOf("text").view());
    EXPECT_DEATH(textOf(nullptr), "format != nullptr");
}
