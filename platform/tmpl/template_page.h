// A template together with everything that it includes.
#ifndef TEMPLATE_PAGE_H
#define TEMPLATE_PAGE_H

#include "template_cache.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace tmpl {

// Includes inside each other; also what ends an include of itself under changing names.
constexpr unsigned kMaxIncludeDepth = 16;

// Used by one thread. Throws Fault and std::bad_alloc when it is made.
class Page {
public:
    struct File {
        std::shared_ptr<const ParsedTemplate> parsed;
        // For each include of `parsed` the number of its file in the page.
        std::vector<std::size_t> includes;
        // How deep the includes below this file go; 0 without any.
        unsigned includeDepth = 0;
        // Still being added: whoever includes it now is included by it.
        bool isOpen = true;
    };

    // `parsed` is the main template; the files that it includes come from the cache.
    Page(TemplateCache& cache, std::shared_ptr<const ParsedTemplate> parsed);

    // The main template is number 0.
    const File& file(std::size_t number) const { return m_files[number]; }
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
