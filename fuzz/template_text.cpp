// Templates of any text: rendered, or refused with one line that says why.
#include "fuzz.h"
#include "tmpl.h"

#include <kit/testing/memory_stream.h>

#include <cctype>

namespace {

using fuzz::require;
using kit::testing::MemoryOutput;

constexpr const char* kName = FUZZ_FOLDER "/templates/text.html";
constexpr const char* const kEnd = nullptr;

// The messages of one rendering at a time.
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

// Loops inside themselves end: each row hides its own loop.
TMPL_loop* rows(const char* loopName) {
    TMPL_loop* loop = nullptr;
    for (const char* name : {"first", "last"}) {
        TMPL_varlist* row = TMPL_add_var(nullptr, "name", name, "empty", "", kEnd);
        loop = TMPL_add_row(loop, TMPL_add_loop(row, loopName, nullptr));
    }
    return loop;
}

TMPL_varlist* variables() {
    TMPL_varlist* list = TMPL_add_var(nullptr, "title", "<A> & \"b\" 'c'", "empty", "", "yes", "1",
                                      "name", "n", "line", "a\nb\\c\xe2\x80\xa8", kEnd);
    list = TMPL_add_loop(list, "rows", rows("rows"));
    list = TMPL_add_loop(list, "lines", rows("lines"));
    return TMPL_add_loop(list, "none", nullptr);
}

// The place of a fault, then the reason, on one line.
void requireOneLine(const std::string& message) {
    require(message.find('\n') == message.size() - 1, "a fault is told in one line");
    const std::size_t colon = message.find(".html:");
    require(colon != std::string::npos && std::isdigit(message[colon + 6]) != 0,
            "a fault is told with its file and its line");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const TMPL_varlist* const values = variables();
    static const TMPL_fmtlist* const formats = TMPL_add_format(nullptr, "length", writeLength);
    static Messages messages;
    const std::string text = fuzz::upToZero(fuzz::Input(data, size).rest());
    MemoryOutput out;
    const int result = TMPL_web_write(kName, fuzz::terminated(text).get(), formats, values,
                                      out.stream(), messages.file());
    const std::string message = messages.text();
    if (result == 0) {
        require(message.empty(), "what is rendered has no fault");
        require(text.find('<') != std::string::npos || out.text() == text, "text stays as it is");
    } else {
        require(result == 1 || result == 2, "the result is one of three");
        require(out.text().empty(), "what has a fault is not rendered");
        requireOneLine(message);
    }
    return 0;
}
