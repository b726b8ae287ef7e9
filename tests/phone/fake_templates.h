// Takes the place of the template library: keeps the variables so that a test can look at them.
#ifndef FAKE_TEMPLATES_H
#define FAKE_TEMPLATES_H

#include "tmpl.h"

#include <map>
#include <string>
#include <vector>

using TemplateRow = std::map<std::string, std::string>;

struct TMPL_loop {
    std::vector<TemplateRow> rows;
};

struct TMPL_varlist {
    TemplateRow variables;
    std::map<std::string, std::vector<TemplateRow>> loops;
};

#endif
