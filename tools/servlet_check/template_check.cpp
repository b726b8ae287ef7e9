#include "template_check.h"

#include "tmpl.h"

#include <cctype>
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

// One line, "file:line: what is wrong", without its end; empty for a template that can be shown.
// The container gives no formats of its own, so none is given here.
std::string complaintOf(const std::string& file) {
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

// Takes the complaint apart, whose place may be in an included file.
void add(const std::string& file, const std::string& complaint, Findings& findings) {
    const std::string effect = ": the page is empty, and the container logs "
                               "\"HttpResponseImpl::flush() TMPL_write error\"";
    for (std::size_t colon = complaint.find(':'); colon != std::string::npos;
         colon = complaint.find(':', colon + 1)) {
        unsigned line = 0;
        const char* const end = complaint.data() + complaint.size();
        const auto [rest, error] = std::from_chars(complaint.data() + colon + 1, end, line);
        if (error == std::errc() && end - rest > 2 && rest[0] == ':' && rest[1] == ' ') {
            findings.problem(complaint.substr(0, colon), line, std::string(rest + 2, end) + effect);
            return;
        }
    }
    findings.problem(file, 1, complaint + effect);
}

} // namespace

void checkTemplates(const fs::path& folder, Findings& findings) {
    std::error_code error;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file(error))
            continue;
        const std::string file = entry.path().string();
        const std::string complaint = complaintOf(file);
        if (!complaint.empty())
            add(file, complaint, findings);
    }
}
