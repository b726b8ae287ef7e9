// Helpers of the tests for lists of values.
#ifndef CGI_LIST_H
#define CGI_LIST_H

#include "cgi.h"

#include <memory>
#include <string>
#include <vector>

struct FreeVarlist {
    void operator()(CGI_varlist* list) const { CGI_free_varlist(list); }
};
using List = std::unique_ptr<CGI_varlist, FreeVarlist>;
using Texts = std::vector<std::string>;

inline Texts valuesOf(const List& list, const char* name) {
    char** all = CGI_lookup_all(list.get(), name);
    Texts texts;
    while (all != nullptr && *all != nullptr)
        texts.push_back(*all++);
    return texts;
}

// Returns the first value, or "(none)".
inline std::string valueOf(const List& list, const char* name) {
    const char* value = CGI_lookup(list.get(), name);
    return value != nullptr ? value : "(none)";
}

#endif
