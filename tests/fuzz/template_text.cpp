// Renders arbitrary templates: each is rendered like the model or refused with one line.
#include "fuzz.h"
#include "template_model.h"
#include "tmpl.h"

#include <kit/testing/memory_stream.h>

#include <cctype>
#include <cstring>

namespace {

using fuzz::require;
using fuzz::Scope;
using kit::testing::MemoryOutput;

constexpr const char* kName = FUZZ_FOLDER "/templates/text.html";
constexpr const char* const kEnd = nullptr;

// Collects the error messages of one rendering at a time.
class Messages {
public:
    FILE* file() {
        std::rewind(m_file);
        return m_file;
    }
    std::string text() {
        std::fflush(m_file);
        return {m_text, static_cast<std::size_t>(std::ftell(m_file))};
    }

private:
    char m_text[4096] = {};
    FILE* const m_file = fmemopen(m_text, sizeof m_text, "w"); // until the process ends
};

void writeLength(const char* value, FCGX_Stream* out) {
    const std::string length = std::to_string(std::string(value).size());
    FCGX_PutStr(length.data(), static_cast<int>(length.size()), out);
}

// A loop inside itself ends, since each row hides its own loop.
std::vector<Scope> rows(const char* loopName) {
    return {{{{"name", "first"}, {"empty", ""}}, {{loopName, {}}}},
            {{{"name", "last"}, {"yes", ""}}, {{loopName, {}}}}};
}

const Scope kPage = {{{"title", "<A> & \"b\" 'c'"},
                      {"empty", ""},
                      {"yes", "1"},
                      {"name", "n"},
                      {"line", "a\nb\\c\xe2\x80\xa8"}},
                     {{"rows", rows("rows")}, {"lines", rows("lines")}, {"none", {}}}};

TMPL_varlist* listOf(const Scope& scope) {
    TMPL_varlist* list = nullptr;
    for (const auto& [name, value] : scope.variables)
        list = TMPL_add_var(list, name.c_str(), value.c_str(), kEnd);
    for (const auto& [name, itsRows] : scope.loops) {
        TMPL_loop* loop = nullptr;
        for (const Scope& row : itsRows)
            loop = TMPL_add_row(loop, listOf(row));
        list = TMPL_add_loop(list, name.c_str(), loop);
    }
    return list;
}

// The model cannot read included files.
bool hasNoInclude(const std::string& text) {
    return strcasestr(text.c_str(), "TMPL_INCLUDE") == nullptr;
}

// Requires the position of the error, then the reason, on one line.
void requireOneLine(const std::string& message) {
    require(message.find('\n') == message.size() - 1, "an error is reported on one line");
    const std::size_t colon = message.find(".html:");
    require(colon != std::string::npos && std::isdigit(message[colon + 6]) != 0,
            "an error is reported with file and line");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const TMPL_varlist* const values = listOf(kPage);
    static const TMPL_fmtlist* const formats = TMPL_add_format(nullptr, "length", writeLength);
    static Messages messages;
    const std::string text = fuzz::upToZero(fuzz::Input(data, size).rest());
    MemoryOutput out;
    const int result = TMPL_web_write(kName, fuzz::terminated(text).get(), formats, values,
                                      out.stream(), messages.file());
    const std::string message = messages.text();
    if (result == 0) {
        require(message.empty(), "a rendered template reports no error");
        require(!hasNoInclude(text) || out.text() == fuzz::TemplateModel(text).render(kPage),
                "a template is rendered like the model");
    } else {
        require(result == 1 || result == 2, "the result is 0, 1 or 2");
        require(out.text().empty(), "a template with an error writes nothing");
        requireOneLine(message);
    }
    return 0;
}
