#include "fake_templates.h"

#include <cstdarg>
#include <memory>

TMPL_varlist* TMPL_add_var(TMPL_varlist* list, ...) {
    if (list == nullptr) {
        list = new TMPL_varlist;
    }
    va_list arguments;
    va_start(arguments, list);
    while (const char* name = va_arg(arguments, const char*)) {
        list->variables[name] = va_arg(arguments, const char*);
    }
    va_end(arguments);
    return list;
}

TMPL_loop* TMPL_add_row(TMPL_loop* loop, TMPL_varlist* row) {
    const std::unique_ptr<TMPL_varlist> owner(row);
    if (loop == nullptr) {
        loop = new TMPL_loop;
    }
    loop->rows.push_back(row != nullptr ? row->variables : TemplateRow());
    return loop;
}

TMPL_varlist* TMPL_add_loop(TMPL_varlist* list, const char* name, TMPL_loop* loop) {
    const std::unique_ptr<TMPL_loop> owner(loop);
    if (list == nullptr) {
        list = new TMPL_varlist;
    }
    list->loops[name] = loop->rows;
    return list;
}

void TMPL_free_varlist(TMPL_varlist* list) {
    delete list;
}
