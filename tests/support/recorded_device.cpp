#include "recorded_device.h"

#include "cgi.h"
#include "tmpl.h"

#include <fcgiapp.h>

#include <cstdarg>
#include <deque>
#include <map>

using recorded_device::Answers;
using recorded_device::nameOf;
using recorded_device::Values;

struct CGI_varlist {
    Values values;
    std::vector<char*> found;
};

struct TMPL_varlist {};

namespace {

// Lists live until reset(), so that a stale one can still be recognised.
struct State {
    Answers answers;
    std::vector<std::string> calls;
    std::map<const void*, std::string> names;
    std::deque<CGI_varlist> lists;
    std::deque<TMPL_varlist> variables;
};
State state;

std::string quoted(const char* text) {
    return text != nullptr ? "'" + std::string(text) + "'" : "null";
}

using Arguments = std::vector<std::string>;

std::string call(const std::string& function, const Arguments& arguments) {
    std::string text = function + '(';
    for (const std::string& argument : arguments)
        text += (&argument != &arguments.front() ? ", " : "") + argument;
    return text + ')';
}

void keep(const std::string& function, const Arguments& arguments) {
    state.calls.push_back(call(function, arguments));
}

void retire(const void* list) {
    if (list != nullptr)
        state.names[list].insert(0, "stale ");
}

// The list that takes the place of `list`.
CGI_varlist* extended(CGI_varlist* list, const Values& addition) {
    if (list == nullptr && addition.empty())
        return nullptr;
    CGI_varlist* fresh = &state.lists.emplace_back();
    if (list != nullptr)
        fresh->values = list->values;
    fresh->values.insert(fresh->values.end(), addition.begin(), addition.end());
    state.names[fresh] = "list " + std::to_string(state.lists.size());
    retire(list);
    return fresh;
}

CGI_varlist* keepAddition(const std::string& function, const Arguments& arguments,
                          CGI_varlist* list, const Values& addition) {
    const std::string text = call(function, arguments);
    CGI_varlist* fresh = extended(list, addition);
    state.calls.push_back(text + " = " + nameOf(fresh));
    return fresh;
}

} // namespace

void recorded_device::reset() {
    state = State();
    name(stderr, "stderr");
}

Answers& recorded_device::answers() {
    return state.answers;
}

std::vector<std::string> recorded_device::calls() {
    return state.calls;
}

void recorded_device::record(const std::string& call) {
    state.calls.push_back(call);
}

void recorded_device::name(const void* thing, const std::string& name) {
    state.names[thing] = name;
}

std::string recorded_device::nameOf(const void* thing) {
    if (thing == nullptr)
        return "null";
    const auto found = state.names.find(thing);
    return found != state.names.end() ? found->second : "a stranger";
}

CGI_varlist* CGI_get_cookie(CGI_varlist* list, const char* cookie) {
    return keepAddition("CGI_get_cookie", {nameOf(list), quoted(cookie)}, list,
                        state.answers.cookies);
}

CGI_varlist* CGI_get_post(CGI_varlist* list, const char* content_type, int content_length,
                          FCGX_Stream* in) {
    return keepAddition(
        "CGI_get_post",
        {nameOf(list), quoted(content_type), std::to_string(content_length), nameOf(in)}, list,
        state.answers.formFields);
}

CGI_varlist* CGI_decode_query(CGI_varlist* list, const char* query) {
    return keepAddition("CGI_decode_query", {nameOf(list), quoted(query)}, list,
                        state.answers.queryFields);
}

char* CGI_lookup(CGI_varlist* list, const char* name) {
    keep("CGI_lookup", {nameOf(list), quoted(name)});
    if (list != nullptr)
        for (auto& value : list->values)
            if (value.first == name)
                return value.second.data();
    return nullptr;
}

char** CGI_lookup_all(CGI_varlist* list, const char* name) {
    keep("CGI_lookup_all", {nameOf(list), quoted(name)});
    if (list == nullptr)
        return nullptr;
    list->found.clear();
    for (auto& value : list->values)
        if (value.first == name)
            list->found.push_back(value.second.data());
    if (list->found.empty())
        return nullptr;
    list->found.push_back(nullptr);
    return list->found.data();
}

void CGI_free_varlist(CGI_varlist* list) {
    keep("CGI_free_varlist", {nameOf(list)});
    retire(list);
}

char* CGI_encode_url(const char* text, const char* keptCharacters) {
    keep("CGI_encode_url", {quoted(text), quoted(keptCharacters)});
    return state.answers.encodedUrl;
}

CGI_varlist* CGI_fileupload(CGI_varlist* list, const char* content_type, const char* path,
                            FCGX_Stream* in) {
    return keepAddition("CGI_fileupload",
                        {nameOf(list), quoted(content_type), quoted(path), nameOf(in)}, list,
                        state.answers.uploadFields);
}

CGI_varlist* CGI_fileupload_data(CGI_varlist* list, const char* content_type, char* buffer,
                                 unsigned long size, FCGX_Stream* in, int* received) {
    if (state.answers.received)
        *received = *state.answers.received;
    return keepAddition(
        "CGI_fileupload_data",
        {nameOf(list), quoted(content_type), nameOf(buffer), std::to_string(size), nameOf(in)},
        list, state.answers.uploadFields);
}

int CGI_readblock(char* buffer, unsigned long size, FCGX_Stream* in) {
    keep("CGI_readblock", {nameOf(buffer), std::to_string(size), nameOf(in)});
    return state.answers.blockSize;
}

TMPL_varlist* TMPL_add_var(TMPL_varlist* list, ...) {
    Arguments arguments{nameOf(list)};
    va_list variables;
    va_start(variables, list);
    while (const char* text = va_arg(variables, const char*))
        arguments.push_back(quoted(text));
    va_end(variables);
    arguments.push_back("null");
    const std::string text = call("TMPL_add_var", arguments);
    if (state.answers.duringAddVar)
        state.answers.duringAddVar();
    TMPL_varlist* fresh = &state.variables.emplace_back();
    state.names[fresh] = "variables " + std::to_string(state.variables.size());
    retire(list);
    state.calls.push_back(text + " = " + nameOf(fresh));
    return fresh;
}

TMPL_loop* TMPL_add_row(TMPL_loop* loop, TMPL_varlist* row) {
    keep("TMPL_add_row", {nameOf(loop), nameOf(row)});
    return loop;
}

TMPL_varlist* TMPL_add_loop(TMPL_varlist* list, const char* name, TMPL_loop* loop) {
    keep("TMPL_add_loop", {nameOf(list), quoted(name), nameOf(loop)});
    return list;
}

TMPL_fmtlist* TMPL_add_format(TMPL_fmtlist* list, const char* name, TMPL_format) {
    keep("TMPL_add_format", {nameOf(list), quoted(name)});
    return list;
}

void TMPL_free_varlist(TMPL_varlist* list) {
    keep("TMPL_free_varlist", {nameOf(list)});
    retire(list);
}

void TMPL_free_fmtlist(TMPL_fmtlist* list) {
    keep("TMPL_free_fmtlist", {nameOf(list)});
}

int TMPL_web_write(const char* name, const char* text, const TMPL_fmtlist* formats,
                   const TMPL_varlist* vars, FCGX_Stream* out, FILE* err) {
    keep("TMPL_web_write",
         {quoted(name), quoted(text), nameOf(formats), nameOf(vars), nameOf(out), nameOf(err)});
    if (!state.answers.page.empty())
        FCGX_PutStr(state.answers.page.data(), static_cast<int>(state.answers.page.size()), out);
    return state.answers.renderResult;
}
