// Helpers of the tests for templates: a temporary folder, and rendering into memory.
#ifndef TMPL_FIXTURE_H
#define TMPL_FIXTURE_H

#include "tmpl.h"
#include <kit/testing/memory_stream.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <ostream>
#include <string>

// Removed with its contents when the test ends.
class TemplateFolder {
public:
    TemplateFolder() {
        std::string pattern = std::filesystem::temp_directory_path() / "tmpl_test.XXXXXX";
        m_path = ::mkdtemp(pattern.data());
    }
    ~TemplateFolder() { std::filesystem::remove_all(m_path); }
    TemplateFolder(const TemplateFolder&) = delete;
    TemplateFolder& operator=(const TemplateFolder&) = delete;

    std::string path(const std::string& name) const { return m_path + "/" + name; }

    // Writes the file `name`, which may be in a folder below this one, and returns its path.
    std::string write(const std::string& name, const std::string& text) const {
        const std::filesystem::path file = path(name);
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
        return file;
    }

    // Replaces the file by a new one, atomically, and returns its path.
    std::string replace(const std::string& name, const std::string& text) const {
        std::filesystem::rename(write(name + ".new", text), path(name));
        return path(name);
    }

private:
    std::string m_path;
};

struct FreeVariables {
    void operator()(TMPL_varlist* list) const { TMPL_free_varlist(list); }
};
struct FreeFormats {
    void operator()(TMPL_fmtlist* list) const { TMPL_free_fmtlist(list); }
};
using Variables = std::unique_ptr<TMPL_varlist, FreeVariables>;
using Formats = std::unique_ptr<TMPL_fmtlist, FreeFormats>;

constexpr char* kEnd = nullptr;

inline Variables variables(const char* name, const char* value) {
    return Variables(TMPL_add_var(nullptr, name, value, kEnd));
}

// What TMPL_web_write() returned and wrote.
struct Rendered {
    int result;
    std::string page;
    std::string error;

    bool operator==(const Rendered& other) const {
        return result == other.result && page == other.page && error == other.error;
    }
};

inline Rendered success(const std::string& page) {
    return {0, page, ""};
}

inline std::ostream& operator<<(std::ostream& out, const Rendered& rendered) {
    return out << rendered.result << ", page \"" << rendered.page << "\", error \""
               << rendered.error << '"';
}

inline Rendered render(const char* name, const char* text, const TMPL_varlist* vars = nullptr,
                       const TMPL_fmtlist* formats = nullptr) {
    kit::testing::MemoryOutput out;
    char* error = nullptr;
    std::size_t size = 0;
    std::FILE* err = ::open_memstream(&error, &size);
    const int result = TMPL_web_write(name, text, formats, vars, out.stream(), err);
    std::fclose(err);
    Rendered rendered{result, out.text(), std::string(error, size)};
    std::free(error);
    return rendered;
}

inline Rendered renderFile(const std::string& path, const TMPL_varlist* vars = nullptr) {
    return render(path.c_str(), nullptr, vars);
}

inline Rendered renderText(const std::string& text, const TMPL_varlist* vars = nullptr,
                           const TMPL_fmtlist* formats = nullptr) {
    return render("page.html", text.c_str(), vars, formats);
}

#endif
