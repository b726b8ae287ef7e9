// The implementation of HttpResponse for one FastCGI request.
#ifndef HTTP_RESPONSE_IMPL_H
#define HTTP_RESPONSE_IMPL_H

#include "HttpResponse.h"
#include "QKSTL/QKHashMap.h"

#include <fcgiapp.h>

#include "tmpl.h"

#include <memory>
#include <string>

class HttpRequestImpl;

//   Owner     the controller.
//   Threads   one: created, used and deleted by the thread that serves the request.
// The order of the members is part of the binary interface.
class HttpResponseImpl : public HttpResponse {
public:
    // Writes to the output stream of `request`, which is not owned and must outlive this object.
    explicit HttpResponseImpl(FCGX_Request* request);

    HttpResponseImpl(const HttpResponseImpl&) = delete;
    HttpResponseImpl& operator=(const HttpResponseImpl&) = delete;

    void setContextType(const char* type) override;
    void setHeader(const char* name, const char* value) override;
    void addHeader(const char* name, const char* value) override;
    bool containsHeader(const char* name) override;
    char* encodeURL(const char* url) override;
    void sendRedirect(const char* location) override;
    void addCookie(const char* name, const char* value) override;
    void setStatus(int code) override;
    int print(const char* format, ...) override __attribute__((format(printf, 2, 3)));
    unsigned int write(const void* data, unsigned int size, unsigned int count) override;
    int write(int character) override;
    void setTemplate(const char* name, TMPL_varlist* vars) override;
    TMPL_varlist* getMainVarList() override;
    bool isHeaderCommited() override;
    void setDevtype(char* type) override;

    // Does not free the template's variables: flush() does.
    virtual ~HttpResponseImpl();

    // Sets the request whose language flush() passes to the template. It is not owned and must
    // outlive the call of flush().
    void setHttpRequest(HttpRequestImpl* request);

    // Removes a header; a null or unknown name does nothing.
    void removeHeader(const char* name);

    // Writes the header block unless it has been written: "name: value \r\n" for each header in the
    // map's order, then "\r\n". Does not flush the stream.
    void commitHeader();

    // Writes formatted text without committing the headers and without flushing. Returns the count
    // of characters, negative on failure.
    int webPrintf(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Commits the headers, renders the template if one was set, and frees its variables. Call it
    // once, after setHttpRequest(); call nothing but the destructor after it.
    void flush();

private:
    using HeaderMap = QKHashMap<std::string, std::string, INT_HASH<std::string>>;
    static constexpr unsigned int kDevtypeSize = 32;

    bool headerCommitted;
    std::string templateName;
    TMPL_varlist* mainVarList;
    FCGX_Request* request;
    HttpRequestImpl* httpRequest;
    std::unique_ptr<HeaderMap> headers;
    char devtype[kDevtypeSize];
};

#endif
