// The response to one request, as plug-ins see it.
#ifndef HTTP_RESPONSE_H
#define HTTP_RESPONSE_H

struct TMPL_varlist;

// Compiled plug-ins depend on the order of the operations. Some names are misspelt
// (setContextType sets the content type, isHeaderCommited); they are part of the interface.
//   Headers   are collected until the first byte of the body, then written once; later changes
//             are not sent. Names are case-sensitive. Texts are copied and written unchanged: never
//             pass on what a client sent without checking it for CR and LF.
//   Threads   one: the thread that serves the request.
class HttpResponse {
public:
    // Calls setHeader("ContentType", type): the header is written with that spelling, without a
    // hyphen. A page whose content type the browser shall know calls setHeader("Content-Type",
    // type).
    virtual void setContextType(const char* type) = 0;
    // Sets the header to this one value. Logs a null argument and does nothing.
    virtual void setHeader(const char* name, const char* value) = 0;
    // Appends to the header's value, without any separator, or sets it. Logs a null argument and
    // does nothing.
    virtual void addHeader(const char* name, const char* value) = 0;
    // Returns whether the header is set; false for null.
    virtual bool containsHeader(const char* name) = 0;

    // Returns `url` escaped for use in a URL, with "/", "=", "?" and "&" unchanged; null for a null
    // `url`. The caller frees the result with free(3).
    virtual char* encodeURL(const char* url) = 0;

    // Redirects the client to `location`. Sets no status; the front server responds with 302. Logs
    // a null `location` and does nothing.
    virtual void sendRedirect(const char* location) = 0;

    // Adds a cookie without attributes. All cookies share one Set-Cookie line, of which browsers
    // read only the first: send one cookie per response. `name` and `value` must not be null.
    virtual void addCookie(const char* name, const char* value) = 0;

    // Sets the status code. Call at most once per response: a second code is appended to the first.
    virtual void setStatus(int code) = 0;

    // Writes formatted text and flushes it to the front server. `format` is as for printf(3), but
    // libfcgi's formatter interprets it. Returns the count of characters, negative on failure.
    virtual int print(const char* format, ...) __attribute__((format(printf, 2, 3))) = 0;
    // Writes `count` items of `size` bytes. Returns the count of whole items written; 0 for null
    // data, for a size of 0 and for more than INT_MAX bytes. If the client has gone, the result is
    // UINT_MAX / size: compare it with `count`, not with 0.
    virtual unsigned int write(const void* data, unsigned int size, unsigned int count) = 0;
    // Writes one character. Returns the character, or -1 on failure.
    virtual int write(int character) = 0;

    // Sets the template file to render after the servlet has returned, with `vars`, "devtype" (see
    // setDevtype) and "local" (the request's language). `name` must not be null. The response takes
    // ownership of `vars`, which may be null; see tmpl.h.
    virtual void setTemplate(const char* name, TMPL_varlist* vars) = 0;
    // Returns the variables that setTemplate() set, or null. To add some, pass the list that
    // TMPL_add_var() returns to setTemplate() again.
    virtual TMPL_varlist* getMainVarList() = 0;

    // Returns whether the headers have been written: then no more can be set.
    virtual bool isHeaderCommited() = 0;

    // Sets the device type that the template's variable "devtype" contains; it is cut off after 31
    // characters. Call it before setTemplate(). Logs a null `type` and does nothing.
    virtual void setDevtype(char* type) = 0;

protected:
    ~HttpResponse() = default;
};

#endif
