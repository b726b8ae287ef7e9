// Decodes and renders while memory runs out: the result must be complete or empty.
#include "fuzz.h"
#include "tmpl.h"
#include "tmpl_failing_new.h"
#include "varlist.h"

#include <kit/testing/memory_stream.h>

namespace {

using fuzz::require;
using kit::testing::MemoryInput;

constexpr int kUnlimited = 1000000;
constexpr const char* const kEnd = nullptr;

// The bytes that a client sent, and a letter for the function that decodes them.
struct Sent {
    unsigned function;
    std::string type;
    std::string body;
};

CGI_varlist* decode(const Sent& sent, CGI_varlist* list, MemoryInput& stream, char* buffer,
                    int& received) {
    if (sent.function == 'c')
        return CGI_get_cookie(list, sent.body.c_str());
    if (sent.function == 'f')
        return CGI_get_post(list, nullptr, static_cast<int>(sent.body.size()), stream.stream());
    if (sent.function == 'u')
        return CGI_fileupload_data(list, sent.type.c_str(), buffer, sent.body.size(),
                                   stream.stream(), &received);
    return CGI_decode_query(list, sent.body.c_str());
}

struct Decoded {
    std::size_t values = 0;
    int received = 0;
    bool ranOut = false;
};

// Decodes into a list that has one value, which must stay.
Decoded decodedWith(int allocations, const Sent& sent) {
    MemoryInput stream(sent.body, 7);
    const auto buffer = std::make_unique<char[]>(sent.body.size() + 1);
    CGI_varlist* list = CGI_decode_query(nullptr, "kept=1");
    Decoded decoded;
    {
        const MemoryFor memory(allocations);
        list = decode(sent, list, stream, buffer.get(), decoded.received);
        char** found = CGI_lookup_all(list, "kept");
        decoded.ranOut = memory.ranOut();
        require(found != nullptr || decoded.ranOut,
                "a look-up finds values unless memory runs out");
    }
    require(std::string(CGI_lookup(list, "kept")) == "1", "the list keeps its value");
    decoded.values = list->size();
    CGI_free_varlist(list);
    return decoded;
}

void decode(int allocations, const Sent& sent) {
    const Decoded all = decodedWith(kUnlimited, sent);
    const Decoded some = decodedWith(allocations, sent);
    const bool isAll = some.values == all.values && some.received == all.received;
    const bool isNothing = some.values == 1 && some.received == 0;
    require(isAll || (some.ranOut && isNothing), "a decoder adds everything or nothing");
}

// Counts the bytes written, without allocating.
class Counter {
public:
    Counter() {
        m_stream.emptyBuffProc = empty;
        m_stream.data = this;
        m_stream.wrNext = m_buffer;
        m_stream.stop = m_buffer + sizeof m_buffer;
    }
    Counter(const Counter&) = delete;
    Counter& operator=(const Counter&) = delete;

    FCGX_Stream* stream() { return &m_stream; }
    std::size_t count() const {
        return m_emptied + static_cast<std::size_t>(m_stream.wrNext - m_buffer);
    }

private:
    static void empty(FCGX_Stream* stream, int) {
        auto* self = static_cast<Counter*>(stream->data);
        self->m_emptied = self->count();
        stream->wrNext = self->m_buffer;
    }

    unsigned char m_buffer[512];
    std::size_t m_emptied = 0;
    FCGX_Stream m_stream{};
};

struct Rendered {
    int result = 0;
    std::size_t written = 0;
    bool ranOut = false;
};

// The lists may be incomplete, too.
Rendered renderedWith(int allocations, const std::string& text) {
    Counter out;
    Rendered rendered;
    TMPL_varlist* list = nullptr;
    TMPL_varlist* const row = TMPL_add_var(nullptr, "name", "a value with some length to it", kEnd);
    {
        const MemoryFor memory(allocations);
        list = TMPL_add_var(list, "title", "<A> & \"b\" that does not fit", "yes", "1", kEnd);
        list = TMPL_add_loop(list, "rows", TMPL_add_row(nullptr, row));
        const bool hasLists = !memory.ranOut();
        rendered.result = TMPL_web_write(FUZZ_FOLDER "/templates/text.html", text.c_str(), nullptr,
                                         list, out.stream(), nullptr);
        rendered.ranOut = hasLists && memory.ranOut();
    }
    TMPL_free_varlist(list);
    rendered.written = out.count();
    return rendered;
}

void render(int allocations, const std::string& text) {
    const Rendered all = renderedWith(kUnlimited, text);
    const Rendered some = renderedWith(allocations, text);
    require(some.result == 0 || some.written == 0, "a failed rendering writes nothing");
    require(!some.ranOut || some.result != 0, "rendering without memory fails");
    require(all.result == 0 || some.result != 0, "a template with an error fails with any memory");
}

} // namespace

// One byte for the function, one for the number of allocations that succeed; for an upload one line
// with its content type; then the text.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    Sent sent{input.byte(), "", ""};
    const int allocations = static_cast<int>(input.byte());
    if (sent.function == 'u')
        sent.type = fuzz::upToZero(input.line());
    sent.body = input.rest();
    if (sent.function == 't')
        render(allocations, fuzz::upToZero(sent.body));
    else
        decode(allocations, sent);
    return 0;
}
