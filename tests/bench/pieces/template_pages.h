// One page, rendered by the device's templates and by ctemplate: variables at the top, and a table
// with rows of six cells, all escaped for HTML.
#ifndef TEMPLATE_PAGES_H
#define TEMPLATE_PAGES_H

#include "tmpl.h"

#include <ctemplate/template.h>

#include <memory>
#include <string>
#include <vector>

namespace pieces {

constexpr int kVariables = 20;
constexpr int kCells = 6;

// The values that the page shows.
struct PageContent {
    explicit PageContent(long rows);

    std::vector<std::string> variables;
    std::vector<std::vector<std::string>> rows;
};

// Returns the template in the device's own syntax.
const std::string& ourTemplateText();
// Returns a template file; waits until the file is old enough to be cached.
const std::string& ourTemplateFile();
const std::string& theirTemplateFile();

struct FreeVariables {
    void operator()(TMPL_varlist* list) const { TMPL_free_varlist(list); }
};
using OurVariables = std::unique_ptr<TMPL_varlist, FreeVariables>;
using TheirVariables = std::unique_ptr<ctemplate::TemplateDictionary>;

OurVariables fillOurs(const PageContent& content);
TheirVariables fillTheirs(const PageContent& content);

void renderOurs(const TMPL_varlist* variables, FCGX_Stream* out);
void renderTheirs(const ctemplate::TemplateDictionary& variables, FCGX_Stream* out);

// Ends the program unless both render the same bytes.
void checkThatPagesAreEqual();

} // namespace pieces

#endif
