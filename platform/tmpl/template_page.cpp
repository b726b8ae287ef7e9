#include "template_page.h"

#include <algorithm>
#include <utility>

namespace tmpl {

Page::Page(TemplateCache& cache, std::shared_ptr<const ParsedTemplate> parsed) {
    add(cache, std::move(parsed), 0);
}

std::size_t Page::add(TemplateCache& cache, std::shared_ptr<const ParsedTemplate> parsed,
                      unsigned depth) {
    const std::size_t number = m_files.size();
    m_files.push_back({parsed, {}, 0, true});
    // Adding a file may move the others in memory, so look up m_files[number] each time.
    for (const Reference& reference : parsed->includes) {
        const Position asker{parsed->file, reference.line};
        const std::size_t included = include(cache, reference.target, asker, depth + 1);
        m_files[number].includes.push_back(included);
        m_files[number].includeDepth =
            std::max(m_files[number].includeDepth, m_files[included].includeDepth + 1);
    }
    m_files[number].isOpen = false;
    return number;
}

std::size_t Page::include(TemplateCache& cache, const std::string& path, const Position& asker,
                          unsigned depth) {
    const auto known = std::find_if(m_files.begin(), m_files.end(),
                                    [&](const File& file) { return file.parsed->file == path; });
    if (known != m_files.end() && known->isOpen)
        throw Fault(Fault::Wrong, asker, "\"" + path + "\" includes itself");
    const unsigned deepest = known != m_files.end() ? depth + known->includeDepth : depth;
    if (deepest > kMaxIncludeDepth)
        throw Fault(Fault::Wrong, asker,
                    "includes are nested more than " + std::to_string(kMaxIncludeDepth) + " deep");
    if (known != m_files.end())
        return static_cast<std::size_t>(known - m_files.begin());
    return add(cache, cache.get(path, asker), depth);
}

} // namespace tmpl
