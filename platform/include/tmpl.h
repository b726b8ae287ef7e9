// Renders pages from templates.
//
// A template is text with tags; tag and attribute names are case-insensitive, attribute values
// stand in double quotes:
//
//   <TMPL_VAR name="x">                 the value, escaped for HTML text and attributes
//   <TMPL_VAR name="x" default="y">     y when x is absent or empty
//   <TMPL_VAR name="x" fmt="raw">       the value as it is; other formats are "html" (the default),
//                                       "url", "js" (safe inside a script string) and those of the
//                                       format list
//   <TMPL_IF name="x">…<TMPL_ELSIF name="y">…<TMPL_ELSE>…</TMPL_IF>
//                                       true if x is present and not empty; with value="v", if x
//                                       equals v
//   <TMPL_LOOP name="rows">…</TMPL_LOOP>  once for each row
//   <TMPL_INCLUDE name="file">          another template, relative to the folder of the one that
//                                       includes it; at most 16 deep
//
// Inside a loop a name is looked up in the row, then in the rows and variables around the loop.
//
// For all functions:
//   Lists     a function that adds starts a list (loop, format list) when given null, and returns
//             the one to use from then on.
//   Failure   without memory, what cannot be added is left out, and freed if it was handed over.
//   Threads   only one thread at a time may change a list or a loop; any number of threads may
//             render at once.
#ifndef TMPL_H
#define TMPL_H

#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

struct FCGX_Stream; // a stream of libfcgi, from <fcgiapp.h>
typedef struct FCGX_Stream FCGX_Stream;

// Variables and loops by name, the rows of one loop, and formats by name. Their members are private
// to the library.
typedef struct TMPL_varlist TMPL_varlist;
typedef struct TMPL_loop TMPL_loop;
typedef struct TMPL_fmtlist TMPL_fmtlist;

// Writes `value` to `out` in the caller's own format.
typedef void (*TMPL_format)(const char* value, FCGX_Stream* out);

// Adds variables. The arguments are name, value, name, value, …, and a null pointer at the end:
// (char*)0 or static_cast<char*>(nullptr), not the number 0, which is narrower than a pointer. A
// null value ends them, too, and its name is not added. Names and values are copied; names are
// case-sensitive; the value added last under a name wins. The caller frees the list with
// TMPL_free_varlist().
TMPL_varlist* TMPL_add_var(TMPL_varlist* list, ...);

// Adds a row, which belongs to the loop from then on. A null row stands for an empty one.
TMPL_loop* TMPL_add_row(TMPL_loop* loop, TMPL_varlist* row);

// Adds `loop` under `name`; the loop belongs to the list from then on. A null loop stands for one
// without rows. A variable may have the same name: <TMPL_IF> then asks the variable, and otherwise
// is true for a loop that has rows.
TMPL_varlist* TMPL_add_loop(TMPL_varlist* list, const char* name, TMPL_loop* loop);

// Adds a format for fmt="name". The four built-in formats cannot be replaced. The caller frees the
// list with TMPL_free_fmtlist().
TMPL_fmtlist* TMPL_add_format(TMPL_fmtlist* list, const char* name, TMPL_format format);

// Frees the list, its loops and their rows. Does nothing for null.
void TMPL_free_varlist(TMPL_varlist* list);
// Frees the list. Does nothing for null.
void TMPL_free_fmtlist(TMPL_fmtlist* list);

// Renders the file `name`; or `text` if that is not null. `name` then stands for the text in
// messages, and includes are relative to its folder.
//   formats, vars   are only read; may be null.
//   out             may be null: the template is checked, and nothing is written.
//   err             may be null. Otherwise each failure writes one line to it:
//                   "file:line: what is wrong".
//   Result          0, or 1 when a file cannot be read, 2 when a template is wrong or there is not
//                   enough memory. The whole template and its includes are read and checked before
//                   the first byte is written, so a failure writes nothing to `out`.
//   Cache           a parsed file is kept and used again until the file, or one that it includes,
//                   changes on disk.
int TMPL_web_write(const char* name, const char* text, const TMPL_fmtlist* formats,
                   const TMPL_varlist* vars, FCGX_Stream* out, FILE* err);

#ifdef __cplusplus
}
#endif

#endif
