#include "page_variables.h"

namespace phone {

PageVariables& PageVariables::add(const char* name, const std::string& value) {
    m_list.reset(TMPL_add_var(m_list.release(), name, value.c_str(), static_cast<char*>(nullptr)));
    return *this;
}

PageVariables& PageVariables::addLoop(const char* name, std::vector<PageVariables> rows) {
    if (rows.empty()) {
        return *this;
    }
    TMPL_loop* loop = nullptr;
    for (PageVariables& row : rows) {
        loop = TMPL_add_row(loop, row.release());
    }
    m_list.reset(TMPL_add_loop(m_list.release(), name, loop));
    return add((std::string(name) + "Count").c_str(), std::to_string(rows.size()));
}

} // namespace phone
