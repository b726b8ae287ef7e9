// Renders a fixed template with arbitrary values; compared with a model that escapes byte by byte.
#include "escapes.h"
#include "fuzz.h"
#include "tmpl.h"

#include <kit/testing/memory_stream.h>

#include <vector>

namespace {

using fuzz::html;
using fuzz::js;
using fuzz::require;
using fuzz::url;
using kit::testing::MemoryOutput;

constexpr const char* const kEnd = nullptr;
constexpr const char* kTemplate = R"(<TMPL_VAR name="x">
<TMPL_VAR name="x" fmt="raw">
<TMPL_VAR name="x" fmt="url">
<TMPL_VAR name="x" fmt="js">
<TMPL_VAR name="x" default="nothing" fmt="html">
<TMPL_IF name="x" value="yes">yes<TMPL_ELSIF name="x">set<TMPL_ELSE>empty</TMPL_IF>
<TMPL_LOOP name="rows">[<TMPL_VAR name="x">]</TMPL_LOOP>
)";

std::string expectedPage(const std::string& value, const std::vector<std::string>& rows) {
    const char* const branch = value == "yes" ? "yes" : value.empty() ? "empty" : "set";
    std::string page = html(value) + "\n" + value + "\n" + url(value) + "\n" + js(value) + "\n" +
                       html(value.empty() ? "nothing" : value) + "\n" + branch + "\n";
    for (const std::string& row : rows)
        page += "[" + html(row.empty() ? value : row) + "]";
    return page + "\n";
}

TMPL_varlist* variables(const std::string& name, const std::string& value,
                        const std::vector<std::string>& rows) {
    TMPL_varlist* list = TMPL_add_var(nullptr, fuzz::terminated(name).get(), "first",
                                      fuzz::terminated(name).get(), "second", kEnd);
    list = TMPL_add_var(list, "x", fuzz::terminated(value).get(), kEnd);
    TMPL_loop* loop = nullptr;
    for (const std::string& row : rows)
        loop = TMPL_add_row(
            loop,
            row.empty() ? nullptr : TMPL_add_var(nullptr, "x", fuzz::terminated(row).get(), kEnd));
    return TMPL_add_loop(list, "rows", loop);
}

} // namespace

// One line with the name of a variable, then, separated by zero bytes, the value of another one and
// the rows. An empty row has no variable, so that the outer one is used.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string name = fuzz::upToZero(input.line());
    const std::string value = input.upTo(std::string_view("\0", 1));
    std::vector<std::string> rows;
    while (!input.isEmpty())
        rows.push_back(input.upTo(std::string_view("\0", 1)));

    TMPL_varlist* list = variables(name, value, rows);
    MemoryOutput out;
    require(TMPL_web_write("page", kTemplate, nullptr, list, out.stream(), nullptr) == 0,
            "a valid template is rendered");
    require(out.text() == expectedPage(value, rows), "the page is the model's");
    TMPL_free_varlist(list);
    return 0;
}
