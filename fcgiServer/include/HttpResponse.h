// The answer to one request, as plug-ins see it.
#ifndef HTTP_RESPONSE_H
#define HTTP_RESPONSE_H

struct TMPL_varlist;

// Compiled plug-ins depend on the order of the operations. Some names are misspelt
// (setContextType sets the content type, isHeaderCommited); they are part of the interface.
//   Headers   are collected until the first byte of the body, then written once; what is set later
//             is not sent. Names are case-sensitive. Texts are copied and are written as they are:
//             never pass on what a client sent without looking for CR and LF.
//   Threads   one: the thread that serves the request.
class HttpResponse {
public:
    // setHeader("ContentType", type): written with that spelling, without a hyphen. A page that
    // wants a content type known to the browser calls setHeader("Content-Type", type).
    virtual void setContextType(const char* type) = 0;
    // Sets the header to this one value. A null argument is logged and does nothing.
    virtual void setHeader(const char* name, const char* value) = 0;
    // Appends to the header's value, without any separator, or sets it. A null argument is logged
    // and does nothing.
    virtual void addHeader(const char* name, const char* value) = 0;
    // Whether the header is set; false for null.
    virtual bool containsHeader(const char* name) = 0;

    // `url` escaped for use in a URL, with "/", "=", "?" and "&" left as they are. The caller
    // frees the result with free(3); null for a null `url`.
    virtual char* encodeURL(const char* url) = 0;

    // Sends the client to `location`. Sets no status; the front server answers with 302.
    virtual void sendRedirect(const char* location) = 0;

    // Adds a cookie without attributes. All cookies share one Set-Cookie line, of which browsers
    // read the first: send one cookie with a response. Arguments must not be null.
    virtual void addCookie(const char* name, const char* value) = 0;

    // The status line; call it at most once, since a second code is appended to the first.
    virtual void setStatus(int code) = 0;

    // Writes formatted text, as printf(3) but with the FastCGI kit's formatter, and sends it off
    // at once. The count of characters, negative on failure.
    virtual int print(const char* format, ...) __attribute__((format(printf, 2, 3))) = 0;
    // Writes `count` items of `size` bytes; the count of whole items written. 0 for null data,
    // for a size of 0 and for more than INT_MAX bytes.
    virtual unsigned int write(const void* data, unsigned int size, unsigned int count) = 0;
    // Writes one character; the character, or -1.
    virtual int write(int character) = 0;

    // Names the template file that is rendered when the servlet has returned, with `vars` and with
    // "devtype" (see setDevtype) and "local" (the request's language). `name` must not be null.
    // `vars`, which may be null, belongs to the response from then on; see tmpl.h.
    virtual void setTemplate(const char* name, TMPL_varlist* vars) = 0;
    // The list as it stands, null before setTemplate(). To add variables, hand the list that
    // TMPL_add_var gives back to setTemplate() again.
    virtual TMPL_varlist* getMainVarList() = 0;

    // Whether the headers have been written, so that none can be set any more.
    virtual bool isHeaderCommited() = 0;

    // The device type that the template's "devtype" shows, at most 31 characters; call it before
    // setTemplate(). Null is logged and does nothing.
    virtual void setDevtype(char* type) = 0;

protected:
    ~HttpResponse() = default;
};

#endif
