#include "template_check.h"

#include "tmpl.h"

#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <system_error>

namespace {

namespace fs = std::filesystem;

// Returns one line, "file:line: message", without its line feed; empty for a correct template.
// Passes no formats, since the container has none of its own.
std::string errorOf(const std::string& file) {
    char* text = nullptr;
    std::size_t size = 0;
    FILE* err = open_memstream(&text, &size);
    if (err == nullptr)
        throw std::bad_alloc();
    TMPL_web_write(file.c_str(), nullptr, nullptr, nullptr, nullptr, err);
    std::fclose(err);
    const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
    std::string result(text, size);
    return result.substr(0, result.find('\n'));
}

// Splits the message into place and text. The place may be in an included file.
void add(const std::string& file, const std::string& message, Findings& findings) {
    const std::string effect = ": the page is empty, and the container logs "
                               "\"HttpResponseImpl::flush() TMPL_write error\"";
    for (std::size_t colon = message.find(':'); colon != std::string::npos;
         colon = message.find(':', colon + 1)) {
        unsigned line = 0;
        const char* const end = message.data() + message.size();
        const auto [rest, error] = std::from_chars(message.data() + colon + 1, end, line);
        if (error == std::errc() && end - rest > 2 && rest[0] == ':' && rest[1] == ' ') {
            findings.problem(message.substr(0, colon), line, std::string(rest + 2, end) + effect);
            return;
        }
    }
    findings.problem(file, 1, message + effect);
}

} // namespace

void checkTemplates(const fs::path& folder, Findings& findings) {
    std::error_code error;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file(error))
            continue;
        const std::string file = entry.path().string();
        const std::string message = errorOf(file);
        if (!message.empty())
            add(file, message, findings);
    }
}
