// The variables of a template, owned until they are handed over.
#ifndef PAGE_VARIABLES_H
#define PAGE_VARIABLES_H

#include "tmpl.h"

#include <memory>
#include <string>
#include <vector>

namespace phone {

// One thread at a time.
class PageVariables {
public:
    PageVariables& add(const char* name, const std::string& value);
    // Adds the rows and, when there are any, their number under `name` with "Count" behind it.
    PageVariables& addLoop(const char* name, std::vector<PageVariables> rows);

    // The list, null when nothing was added, which is the caller's from now on.
    TMPL_varlist* release() { return m_list.release(); }

private:
    struct Free {
        void operator()(TMPL_varlist* list) const { TMPL_free_varlist(list); }
    };
    std::unique_ptr<TMPL_varlist, Free> m_list;
};

} // namespace phone

#endif
