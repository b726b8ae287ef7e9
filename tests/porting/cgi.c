// Decodes cookies, queries and forms. All uploads fail, which is enough for a device without them.
#include "cgi.h"

#include <fcgiapp.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>

enum { max_values = 1000, max_form = 1024 * 1024 };

struct pair {
    struct pair* next;
    char* name;
    char* value;
};

// An array that CGI_lookup_all() has returned; it lives as long as the list.
struct found {
    struct found* next;
    char* values[];
};

struct CGI_varlist {
    struct pair* first;
    struct pair** end;
    int count;
    struct found* found;
};

enum kind { query_pairs, cookie_pairs };

static int hex(char c) {
    const char* digits = "0123456789abcdef0123456789ABCDEF";
    const char* at = c != '\0' ? strchr(digits, c) : NULL;
    return at != NULL ? (int)(at - digits) % 16 : -1;
}

// Decodes `text` in place. Returns 0 when it decodes to a zero byte.
static int decode(char* text, enum kind kind) {
    char* to = text;
    for (const char* from = text; *from != '\0'; ++from, ++to) {
        *to = kind == query_pairs && *from == '+' ? ' ' : *from;
        if (*from == '%' && hex(from[1]) >= 0 && hex(from[2]) >= 0) {
            *to = (char)(hex(from[1]) * 16 + hex(from[2]));
            if (*to == '\0')
                return 0;
            from += 2;
        }
    }
    *to = '\0';
    return 1;
}

static void free_pair(struct pair* pair) {
    if (pair != NULL) {
        free(pair->name);
        free(pair->value);
    }
    free(pair);
}

static struct pair* make_pair(const char* text, size_t length, enum kind kind) {
    const char* equals = memchr(text, '=', length);
    const size_t name = equals != NULL ? (size_t)(equals - text) : length;
    const char* value = equals != NULL ? equals + 1 : text + length;
    size_t size = (size_t)(text + length - value);
    if (kind == cookie_pairs && size >= 2 && value[0] == '"' && value[size - 1] == '"') {
        ++value;
        size -= 2;
    }
    struct pair* pair = calloc(1, sizeof *pair);
    if (pair == NULL)
        return NULL;
    pair->name = strndup(text, name);
    pair->value = strndup(value, size);
    if (pair->name != NULL && pair->value != NULL && decode(pair->name, kind) &&
        decode(pair->value, kind) && pair->name[0] != '\0')
        return pair;
    free_pair(pair);
    return NULL;
}

static CGI_varlist* add(CGI_varlist* list, struct pair* pair) {
    if (pair != NULL && list == NULL && (list = calloc(1, sizeof *list)) != NULL)
        list->end = &list->first;
    if (pair == NULL || list == NULL || list->count >= max_values) {
        free_pair(pair);
        return list;
    }
    *list->end = pair;
    list->end = &pair->next;
    ++list->count;
    return list;
}

static CGI_varlist* add_pairs(CGI_varlist* list, const char* text, enum kind kind) {
    while (text != NULL && *text != '\0') {
        const size_t length = strcspn(text, kind == cookie_pairs ? ";" : "&");
        const char* begin = text;
        const char* end = text + length;
        while (kind == cookie_pairs && begin < end && strchr(" \t", *begin) != NULL)
            ++begin;
        while (kind == cookie_pairs && begin < end && strchr(" \t", end[-1]) != NULL)
            --end;
        list = add(list, make_pair(begin, (size_t)(end - begin), kind));
        text += length + (text[length] != '\0');
    }
    return list;
}

CGI_varlist* CGI_get_cookie(CGI_varlist* list, const char* cookie) {
    return add_pairs(list, cookie, cookie_pairs);
}

CGI_varlist* CGI_decode_query(CGI_varlist* list, const char* query) {
    return add_pairs(list, query, query_pairs);
}

CGI_varlist* CGI_get_post(CGI_varlist* list, const char* content_type, int content_length,
                          FCGX_Stream* in) {
    const char form[] = "application/x-www-form-urlencoded";
    // Front servers send an empty type for a missing one.
    if (content_type != NULL && *content_type != '\0' &&
        (strncasecmp(content_type, form, sizeof form - 1) != 0 ||
         strchr("; \t", content_type[sizeof form - 1]) == NULL))
        return list;
    if (in == NULL || content_length <= 0 || content_length > max_form)
        return list;
    char* body = calloc((size_t)content_length + 1, 1);
    if (body != NULL && FCGX_GetStr(body, content_length, in) == content_length &&
        FCGX_GetChar(in) == EOF)
        list = add_pairs(list, body, query_pairs);
    free(body);
    return list;
}

static struct pair* next_of_name(struct pair* pair, const char* name) {
    while (pair != NULL && strcmp(pair->name, name) != 0)
        pair = pair->next;
    return pair;
}

char* CGI_lookup(CGI_varlist* list, const char* name) {
    struct pair* pair = list != NULL && name != NULL ? next_of_name(list->first, name) : NULL;
    return pair != NULL ? pair->value : NULL;
}

char** CGI_lookup_all(CGI_varlist* list, const char* name) {
    if (CGI_lookup(list, name) == NULL)
        return NULL;
    struct found* found =
        calloc(1, sizeof *found + ((size_t)list->count + 1) * sizeof *found->values);
    if (found == NULL)
        return NULL;
    found->next = list->found;
    list->found = found;
    char** value = found->values;
    struct pair* pair = next_of_name(list->first, name);
    for (; pair != NULL; pair = next_of_name(pair->next, name))
        *value++ = pair->value;
    return found->values;
}

void CGI_free_varlist(CGI_varlist* list) {
    if (list == NULL)
        return;
    for (struct pair* next; list->first != NULL; list->first = next) {
        next = list->first->next;
        free_pair(list->first);
    }
    for (struct found* next; list->found != NULL; list->found = next) {
        next = list->found->next;
        free(list->found);
    }
    free(list);
}

char* CGI_encode_url(const char* text, const char* keep) {
    const char kept[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.~";
    char* encoded = text != NULL ? malloc(3 * strlen(text) + 1) : NULL;
    if (encoded == NULL)
        return NULL;
    char* to = encoded;
    for (; *text != '\0'; ++text) {
        if (strchr(kept, *text) != NULL || (keep != NULL && strchr(keep, *text) != NULL))
            *to++ = *text;
        else
            to += sprintf(to, "%%%02X", (unsigned char)*text);
    }
    *to = '\0';
    return encoded;
}

CGI_varlist* CGI_fileupload(CGI_varlist* list, const char* content_type, const char* path,
                            FCGX_Stream* in) {
    (void)content_type, (void)path, (void)in;
    return list;
}

CGI_varlist* CGI_fileupload_data(CGI_varlist* list, const char* content_type, char* buffer,
                                 unsigned long size, FCGX_Stream* in, int* received) {
    (void)content_type, (void)buffer, (void)size, (void)in;
    if (received != NULL)
        *received = 0;
    return list;
}

int CGI_readblock(char* buffer, unsigned long size, FCGX_Stream* in) {
    if (buffer == NULL || in == NULL)
        return 0;
    return FCGX_GetStr(buffer, size < INT_MAX ? (int)size : INT_MAX, in);
}
