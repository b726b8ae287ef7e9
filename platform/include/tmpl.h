// Rendering pages from templates.
//
// A template is text with tags; tag and attribute names are case-insensitive, attribute values
// stand in double quotes:
//
//   <TMPL_VAR name="x">                 the value, escaped for HTML text and attributes
//   <TMPL_VAR name="x" default="y">     y when x is absent or empty
//   <TMPL_VAR name="x" fmt="raw">       as it is; also "html" (the default), "url", "js" (safe
//                                       inside a script string) and those of the format list
//   <TMPL_IF name="x">…<TMPL_ELSIF name="y">…<TMPL_ELSE>…</TMPL_IF>
//                                       by whether x is present and not empty; with value="v", by
//                                       whether it equals v
//   <TMPL_LOOP name="rows">…</TMPL_LOOP>  once per row
//   <TMPL_INCLUDE name="file">          another template, found from the folder of the one that
//                                       includes it; at most 16 deep
//
// Inside a loop a name is looked up in the row, then outwards. Lists and loops are used by one
// thread at a time; rendering is safe on several threads at once.
#ifndef TMPL_H
#define TMPL_H

#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

struct FCGX_Stream; // the FastCGI kit's stream, from <fcgiapp.h>
typedef struct FCGX_Stream FCGX_Stream;

// Variables and loops by name, the rows of one loop, and formats by name; what is inside of them
// is the library's own.
typedef struct TMPL_varlist TMPL_varlist;
typedef struct TMPL_loop TMPL_loop;
typedef struct TMPL_fmtlist TMPL_fmtlist;

// Writes `value`, in a form of the caller's own, to `out`.
typedef void (*TMPL_format)(const char* value, FCGX_Stream* out);

// Adds variables: name, value, name, value, …, and a null pointer at the end: (char*)0 or
// static_cast<char*>(nullptr), not the number 0, which is narrower than a pointer. A null `list`
// starts a new one. Names and values are copied and are case-sensitive; the value added last under
// a name wins. A null value ends the arguments like a null name. Gives
// back the list to use from then on, which the caller frees with TMPL_free_varlist.
TMPL_varlist* TMPL_add_var(TMPL_varlist* list, ...);

// Adds a row, which belongs to the loop from then on; a null loop starts one, a null row is an
// empty row. Gives back the loop to use from then on.
TMPL_loop* TMPL_add_row(TMPL_loop* loop, TMPL_varlist* row);

// Adds `loop` under `name`; it belongs to the list from then on. A null list starts one, a null
// loop has no rows. A variable may have the same name; <TMPL_IF> looks at the variable first, and
// is true for a loop that has rows.
TMPL_varlist* TMPL_add_loop(TMPL_varlist* list, const char* name, TMPL_loop* loop);

// Adds a format for fmt="name", which cannot replace one of the four built-in ones; a null list
// starts one. The caller frees it with TMPL_free_fmtlist.
TMPL_fmtlist* TMPL_add_format(TMPL_fmtlist* list, const char* name, TMPL_format format);

// Frees the list, its loops and their rows. Null does nothing.
void TMPL_free_varlist(TMPL_varlist* list);
// Frees the list. Null does nothing.
void TMPL_free_fmtlist(TMPL_fmtlist* list);

// Renders the file `name`, or `text` when that is not null (`name` then only names it in
// messages, and its folder is where includes are found).
//   formats, vars   only read; null: none.
//   out             null: nowhere; the template is checked all the same.
//   Result          0, or 1 when a file cannot be read, 2 when a template is wrong; each failure
//                   with one line "file:line: what is wrong" on `err` (null: nowhere) and nothing
//                   on `out`: the whole template, its includes too, is read and checked before
//                   the first byte is written.
//   Cache           a parsed file is kept and used again until the file, or one that it includes,
//                   changes on disk.
int TMPL_web_write(const char* name, const char* text, const TMPL_fmtlist* formats,
                   const TMPL_varlist* vars, FCGX_Stream* out, FILE* err);

#ifdef __cplusplus
}
#endif

#endif
