// The C functions of tmpl.h. They let no exception out.
#include "tmpl.h"

#include "template_page.h"
#include "template_parser.h"
#include "template_renderer.h"
#include "tmpl_values.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <utility>

namespace {

// The name, in messages, of a template without a name.
constexpr const char* kUnnamed = "(text)";

// Never destroyed: threads may still be rendering when the static objects are.
tmpl::TemplateCache& cache() {
    static tmpl::TemplateCache& instance = *new tmpl::TemplateCache;
    return instance;
}

std::shared_ptr<const tmpl::ParsedTemplate> mainTemplate(const char* name, const char* text) {
    const tmpl::Position start{name != nullptr ? name : kUnnamed, 1};
    if (text != nullptr) {
        // One byte above the maximum is enough to refuse the text.
        const std::size_t size = ::strnlen(text, tmpl::kMaxTemplateSize + 1);
        return tmpl::parseTemplate(start.file, std::string(text, size));
    }
    if (name == nullptr)
        throw tmpl::Fault(tmpl::Fault::Unreadable, start, "neither a file nor a text was given");
    return cache().get(start.file, start);
}

// Adds the pairs of a name and a value up to the first null. Returns the list to use from then on.
TMPL_varlist* addVariables(TMPL_varlist* list, va_list pairs) {
    try {
        if (list == nullptr)
            list = tmpl::makeInArena<TMPL_varlist>();
        while (const char* name = va_arg(pairs, const char*)) {
            const char* value = va_arg(pairs, const char*);
            if (value == nullptr)
                break;
            list->addVariable(name, value);
        }
    } catch (const std::bad_alloc&) {
        // The remaining pairs are left out.
    }
    return list;
}

// Writes one line, whatever the texts contain, with one call and without taking memory.
void report(FILE* err, const char* file, unsigned line, const char* reason) {
    if (err == nullptr)
        return;
    char message[1024];
    std::snprintf(message, sizeof message - 1, "%.490s:%u: %.510s", file, line, reason);
    for (char* byte = message; *byte != '\0'; ++byte) {
        if (static_cast<unsigned char>(*byte) < 0x20 || *byte == 0x7f)
            *byte = '?';
    }
    std::strcat(message, "\n");
    std::fputs(message, err);
}

} // namespace

TMPL_varlist* TMPL_add_var(TMPL_varlist* list, ...) {
    va_list arguments;
    va_start(arguments, list);
    list = addVariables(list, arguments);
    va_end(arguments);
    return list;
}

TMPL_loop* TMPL_add_row(TMPL_loop* loop, TMPL_varlist* row) {
    try {
        if (loop == nullptr)
            loop = tmpl::makeInArena<TMPL_loop>();
        loop->add(std::exchange(row, nullptr));
    } catch (const std::bad_alloc&) {
        tmpl::freeRows(row);
    }
    return loop;
}

TMPL_varlist* TMPL_add_loop(TMPL_varlist* list, const char* name, TMPL_loop* loop) {
    tmpl::LoopOwner taken(loop);
    try {
        if (list == nullptr)
            list = tmpl::makeInArena<TMPL_varlist>();
        if (taken == nullptr)
            taken.reset(tmpl::makeInArena<TMPL_loop>());
        if (name != nullptr)
            list->addLoop(name, std::move(taken));
    } catch (const std::bad_alloc&) {
        // The loop is freed with `taken`, or was freed with the entry that found no memory.
    }
    return list;
}

TMPL_fmtlist* TMPL_add_format(TMPL_fmtlist* list, const char* name, TMPL_format format) {
    try {
        if (list == nullptr)
            list = new TMPL_fmtlist;
        if (name != nullptr && format != nullptr)
            list->add(name, format);
    } catch (const std::bad_alloc&) {
        // The format is left out.
    }
    return list;
}

void TMPL_free_varlist(TMPL_varlist* list) {
    tmpl::freeRows(list);
}

void TMPL_free_fmtlist(TMPL_fmtlist* list) {
    delete list;
}

int TMPL_web_write(const char* name, const char* text, const TMPL_fmtlist* formats,
                   const TMPL_varlist* vars, FCGX_Stream* out, FILE* err) {
    try {
        const tmpl::Page page(cache(), mainTemplate(name, text));
        tmpl::Renderer renderer(page, formats, vars);
        if (out != nullptr)
            renderer.render(*out);
        return 0;
    } catch (const tmpl::Fault& fault) {
        report(err, fault.position().file.c_str(), fault.position().line, fault.what());
        return fault.kind();
    } catch (const std::bad_alloc&) {
        report(err, name != nullptr ? name : kUnnamed, 1, "not enough memory");
    } catch (...) {
        report(err, name != nullptr ? name : kUnnamed, 1, "a format function threw an exception");
    }
    return tmpl::Fault::Wrong;
}
