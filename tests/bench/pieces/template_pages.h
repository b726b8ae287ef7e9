// One page written by the device's templates and by ctemplate: variables in a head, and a table of
// rows of six cells, all escaped for HTML.
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

// What the page shows.
struct PageContent {
    explicit PageContent(long rows);

    std::vector<std::string> variables;
    std::vector<std::vector<std::string>> rows;
};

// The template's text in the language of each.
const std::string& ourTemplateText();
// Files that both caches keep: waits until they are old enough for that.
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

// Ends the program unless both write the same bytes.
void checkThatPagesAreEqual();

} // namespace pieces

#endif
