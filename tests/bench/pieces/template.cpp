// Renders templates with tables of several lengths.
#include "pieces.h"

#include "body.h"
#include "template_pages.h"

#include <memory>

namespace {

using namespace pieces;

void addPages(long rows) {
    const auto content = std::make_shared<const PageContent>(rows);
    const auto out = std::make_shared<DiscardedOutput>();
    add("template/fill and render", rows, "ours", [content, out] {
        const OurVariables variables = fillOurs(*content);
        renderOurs(variables.get(), out->stream());
    });
    add("template/fill and render", rows, "ctemplate", [content, out] {
        const TheirVariables variables = fillTheirs(*content);
        renderTheirs(*variables, out->stream());
    });
    const std::shared_ptr<const TMPL_varlist> ours = fillOurs(*content);
    add("template/render", rows, "ours", [ours, out] { renderOurs(ours.get(), out->stream()); });
    const std::shared_ptr<const ctemplate::TemplateDictionary> theirs = fillTheirs(*content);
    add("template/render", rows, "ctemplate",
        [theirs, out] { renderTheirs(*theirs, out->stream()); });
}

} // namespace

void pieces::addTemplate() {
    const auto out = std::make_shared<DiscardedOutput>();
    add("template/parse", static_cast<long>(ourTemplateText().size()), "ours", [out] {
        TMPL_web_write("page.html", ourTemplateText().c_str(), nullptr, nullptr, nullptr, stderr);
    });
    for (const long rows : {1, 10, 50, 100, 1000, 10000})
        addPages(rows);
}
