#include "tmpl_failing_new.h"
#include "tmpl_fixture.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace {

// Too long to be kept without memory of its own.
const std::string kLongText(5000, 'v');
const char* const kLongValue = kLongText.c_str();

} // namespace

TEST(WithoutMemory, ListsStayAsTheyWere) {
    bool ranOut = true;
    for (int allocations = 0; ranOut; ++allocations) {
        Variables vars = variables("kept", "1");
        TMPL_varlist* added = nullptr;
        {
            MemoryFor memory(allocations);
            added = TMPL_add_var(vars.get(), kLongValue, kLongValue, kEnd);
            ranOut = memory.ranOut();
        }
        EXPECT_EQ(added, vars.get());
        const std::string text =
            "<TMPL_VAR name=\"kept\"><TMPL_VAR name=\"" + std::string(kLongValue) + "\">";
        EXPECT_EQ(renderText(text, vars.get()),
                  success(ranOut ? "1" : "1" + std::string(kLongValue)));
    }
}

TEST(WithoutMemory, NoListIsStarted) {
    // A new thread has no memory that its lists could share.
    std::thread([] {
        MemoryFor memory(0);
        TMPL_varlist* vars = TMPL_add_var(nullptr, "a", "b", kEnd);
        TMPL_loop* loop = TMPL_add_row(nullptr, nullptr);
        TMPL_varlist* loops = TMPL_add_loop(nullptr, "a", nullptr);
        TMPL_fmtlist* formats = TMPL_add_format(nullptr, "a", [](const char*, FCGX_Stream*) {});
        EXPECT_TRUE(vars == nullptr && loop == nullptr && loops == nullptr && formats == nullptr);
    }).join();
}

TEST(Memory, IsSharedByTheRowsOfAPage) {
    constexpr int kRows = 50;
    TMPL_varlist* list = nullptr;
    bool ranOut = true;
    {
        MemoryFor memory(4);
        TMPL_loop* loop = nullptr;
        for (int i = 0; i < kRows; ++i)
            loop =
                TMPL_add_row(loop, TMPL_add_var(nullptr, "name", "A name", "number", "12", kEnd));
        list = TMPL_add_loop(nullptr, "rows", loop);
        ranOut = memory.ranOut();
    }
    const Variables vars(list);
    EXPECT_FALSE(ranOut);
    const std::string page = renderText("<TMPL_LOOP name=\"rows\">.</TMPL_LOOP>", list).page;
    EXPECT_EQ(std::string(kRows, '.'), page);
}

TEST(WithoutMemory, AddedRowsAndLoopsAreFreed) {
    // That the rows are freed is checked by the leak detector of the sanitizer build.
    for (int allocations = 0; allocations < 12; ++allocations) {
        Variables vars = variables("kept", "1");
        TMPL_varlist* row = TMPL_add_var(nullptr, kLongValue, kLongValue, kEnd);
        {
            MemoryFor memory(allocations);
            TMPL_loop* loop = TMPL_add_row(nullptr, row);
            loop = TMPL_add_row(loop, nullptr);
            TMPL_add_loop(vars.get(), kLongValue, loop);
        }
        EXPECT_EQ(renderText("<TMPL_VAR name=\"kept\">", vars.get()), success("1"));
    }
}

TEST(WithoutMemory, NothingOfAPageIsWritten) {
    const TemplateFolder folder;
    folder.write("part.html", "<TMPL_VAR name=\"a\" default=\"d\" fmt=\"stars\">");
    const std::string page = folder.write(
        "page.html", "text<TMPL_LOOP name=\"rows\"><TMPL_IF name=\"a\">1<TMPL_ELSE>2</TMPL_IF>"
                     "<TMPL_INCLUDE name=\"part.html\"></TMPL_LOOP>");
    const Formats formats(
        TMPL_add_format(nullptr, "stars", [](const char* value, FCGX_Stream* out) {
            FCGX_FPrintF(out, "*%s*", value);
        }));
    const Variables vars(TMPL_add_loop(nullptr, "rows", TMPL_add_row(nullptr, nullptr)));
    bool ranOut = true;
    int refused = 0;
    while (ranOut) {
        kit::testing::MemoryOutput out;
        int result = 0;
        {
            MemoryFor memory(refused);
            result = TMPL_web_write(page.c_str(), nullptr, formats.get(), vars.get(), out.stream(),
                                    nullptr);
            ranOut = memory.ranOut();
        }
        EXPECT_EQ(result, ranOut ? 2 : 0);
        EXPECT_EQ(out.text(), ranOut ? "" : "text2*d*");
        refused += ranOut;
    }
    EXPECT_GT(refused, 10);
}

TEST(WithoutMemory, AWrongPageIsReported) {
    for (int allocations = 0; allocations < 30; ++allocations) {
        kit::testing::MemoryOutput out;
        MemoryFor memory(allocations);
        EXPECT_EQ(TMPL_web_write("a file name that is too long to be kept without memory.html",
                                 "\n<TMPL_VAR name=\"a\" unknown=\"b\">", nullptr, nullptr,
                                 out.stream(), nullptr),
                  2);
    }
}

TEST(Memory, IsNotTakenForValuesThatReplaceOthers) {
    const Variables vars = variables("a", "short");
    TMPL_add_var(vars.get(), "a", kLongValue, kEnd);
    const MemoryFor memory(0);
    for (int i = 0; i < 1000; ++i)
        TMPL_add_var(vars.get(), "a", i % 2 == 0 ? "short" : kLongValue, kEnd);
    EXPECT_FALSE(memory.ranOut());
}
