// A template together with everything that it includes.
#ifndef TEMPLATE_PAGE_H
#define TEMPLATE_PAGE_H

#include "template_cache.h"

#include <cassert>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace tmpl {

// Maximum include depth; also stops a file that includes itself under different paths.
constexpr unsigned kMaxIncludeDepth = 16;

// Does not change after construction. For one thread.
class Page {
public:
    struct File {
        std::shared_ptr<const ParsedTemplate> parsed;
        // For each include of `parsed`, the number of its file in the page.
        std::vector<std::size_t> includes;
        // How deep the includes of this file are nested; 0 without any.
        unsigned includeDepth = 0;
        // True while its includes are being added: a file that includes it now includes itself.
        bool isOpen = true;
    };

    // `parsed` is the main template; the files that it includes come from the cache. Throws Fault
    // and std::bad_alloc.
    Page(TemplateCache& cache, std::shared_ptr<const ParsedTemplate> parsed);

    // Returns a file by its number, which must be below size(). The main template is number 0.
    const File& file(std::size_t number) const {
        assert(number < size());
        return m_files[number];
    }
    // Returns the count of files.
    std::size_t size() const { return m_files.size(); }

private:
    std::size_t add(TemplateCache& cache, std::shared_ptr<const ParsedTemplate> parsed,
                    unsigned depth);
    std::size_t include(TemplateCache& cache, const std::string& path, const Position& asker,
                        unsigned depth);

    std::vector<File> m_files;
};

} // namespace tmpl

#endif
