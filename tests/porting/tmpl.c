// Renders templates with the tag <TMPL_VAR name="x">. Any other tag is reported as unknown.
#include "tmpl.h"

#include <fcgiapp.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

struct var {
    struct var* next; // the one added before
    char* name;
    char* value;
};

struct TMPL_varlist {
    struct var* vars;
    TMPL_loop* loops;
    TMPL_varlist* next; // in its loop
};

struct TMPL_loop {
    TMPL_varlist* rows;
    TMPL_loop* next; // in its list
};

static TMPL_varlist* started(TMPL_varlist* list) {
    return list != NULL ? list : calloc(1, sizeof(TMPL_varlist));
}

static void free_var(struct var* var) {
    free(var->name);
    free(var->value);
    free(var);
}

static void add_var(TMPL_varlist* list, const char* name, const char* value) {
    struct var* var = calloc(1, sizeof *var);
    if (list == NULL || var == NULL) {
        free(var);
        return;
    }
    var->name = strdup(name);
    var->value = strdup(value);
    if (var->name == NULL || var->value == NULL) {
        free_var(var);
        return;
    }
    var->next = list->vars;
    list->vars = var;
}

TMPL_varlist* TMPL_add_var(TMPL_varlist* list, ...) {
    list = started(list);
    va_list arguments;
    va_start(arguments, list);
    for (const char* name; (name = va_arg(arguments, const char*)) != NULL;) {
        const char* value = va_arg(arguments, const char*);
        if (value == NULL)
            break;
        add_var(list, name, value);
    }
    va_end(arguments);
    return list;
}

TMPL_loop* TMPL_add_row(TMPL_loop* loop, TMPL_varlist* row) {
    loop = loop != NULL ? loop : calloc(1, sizeof *loop);
    if (loop == NULL) {
        TMPL_free_varlist(row);
    } else if (row != NULL) {
        row->next = loop->rows;
        loop->rows = row;
    }
    return loop;
}

static void free_loop(TMPL_loop* loop) {
    for (TMPL_varlist* next; loop->rows != NULL; loop->rows = next) {
        next = loop->rows->next;
        TMPL_free_varlist(loop->rows);
    }
    free(loop);
}

TMPL_varlist* TMPL_add_loop(TMPL_varlist* list, const char* name, TMPL_loop* loop) {
    (void)name;
    if (loop == NULL)
        return list;
    list = started(list);
    if (list == NULL) {
        free_loop(loop);
        return NULL;
    }
    loop->next = list->loops;
    list->loops = loop;
    return list;
}

void TMPL_free_varlist(TMPL_varlist* list) {
    if (list == NULL)
        return;
    for (struct var* next; list->vars != NULL; list->vars = next) {
        next = list->vars->next;
        free_var(list->vars);
    }
    for (TMPL_loop* next; list->loops != NULL; list->loops = next) {
        next = list->loops->next;
        free_loop(list->loops);
    }
    free(list);
}

// Ignores formats, since no tag here has one.
TMPL_fmtlist* TMPL_add_format(TMPL_fmtlist* list, const char* name, TMPL_format format) {
    (void)name, (void)format;
    return list;
}

void TMPL_free_fmtlist(TMPL_fmtlist* list) {
    (void)list;
}

static void write_escaped(const char* value, FCGX_Stream* out) {
    for (; *value != '\0'; ++value) {
        if (strchr("<>&\"'", *value) != NULL)
            FCGX_FPrintF(out, "&#%d;", *value);
        else
            FCGX_PutChar(*value, out);
    }
}

static void write_var(const TMPL_varlist* vars, const char* name, size_t length, FCGX_Stream* out) {
    const struct var* var = vars != NULL ? vars->vars : NULL;
    while (var != NULL && (strncmp(var->name, name, length) != 0 || var->name[length] != '\0'))
        var = var->next;
    if (var != NULL)
        write_escaped(var->value, out);
}

static int is_tag(const char* text) {
    return strncasecmp(text, "<TMPL_", 6) == 0 || strncasecmp(text, "</TMPL_", 7) == 0;
}

// Writes the page, or nothing if `out` is null. Returns the line of the first unknown tag, or 0.
static int render(const char* text, const TMPL_varlist* vars, FCGX_Stream* out) {
    const char tag[] = "<TMPL_VAR name=\"";
    int line = 1;
    for (; *text != '\0'; ++text) {
        if (is_tag(text)) {
            const char* name = text + sizeof tag - 1;
            if (strncasecmp(text, tag, sizeof tag - 1) != 0)
                return line;
            const size_t length = strcspn(name, "\"\n");
            if (strncmp(name + length, "\">", 2) != 0)
                return line;
            if (out != NULL)
                write_var(vars, name, length, out);
            text = name + length + 1;
        } else if (out != NULL) {
            FCGX_PutChar((unsigned char)*text, out);
        }
        line += *text == '\n';
    }
    return 0;
}

static char* contents_of(const char* name) {
    char* text = NULL;
    size_t room = 0;
    FILE* file = name != NULL ? fopen(name, "re") : NULL;
    if (file == NULL)
        return NULL;
    const ssize_t size = getdelim(&text, &room, '\0', file);
    const int empty = feof(file) && !ferror(file);
    fclose(file);
    if (size < 0) {
        free(text);
        return empty ? strdup("") : NULL;
    }
    return text;
}

int TMPL_web_write(const char* name, const char* text, const TMPL_fmtlist* formats,
                   const TMPL_varlist* vars, FCGX_Stream* out, FILE* err) {
    (void)formats;
    char* read = text == NULL ? contents_of(name) : NULL;
    const char* whole = text != NULL ? text : read;
    const int line = whole != NULL ? render(whole, vars, NULL) : 1;
    if (line != 0 && err != NULL)
        fprintf(err, "%s:%d: %s\n", name != NULL ? name : "(text)", line,
                whole != NULL ? "unknown tag" : "cannot be read");
    if (line == 0 && out != NULL)
        render(whole, vars, out);
    free(read);
    return whole == NULL ? 1 : line != 0 ? 2 : 0;
}
