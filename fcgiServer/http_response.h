// The answer to one request, over one FastCGI request.
#ifndef HTTP_RESPONSE_IMPL_H
#define HTTP_RESPONSE_IMPL_H

#include "HttpResponse.h"
#include "QKSTL/QKHashMap.h"

#include <fcgiapp.h>

#include "tmpl.h"

#include <string>

class HttpRequestImpl;

// Made, used and deleted by one thread. The members are in this order for those who were compiled
// against them.
class HttpResponseImpl : public HttpResponse {
public:
    // `request`, whose output stream receives everything, is not owned and must outlive this
    // object.
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

    // Leaves the template's variables alone: flush() frees them.
    virtual ~HttpResponseImpl();

    // Binds the request that flush() asks for its language. Not owned.
    void setHttpRequest(HttpRequestImpl* request);

    // Forgets a header; a null or unknown name does nothing.
    void removeHeader(const char* name);

    // Writes the header block unless it has been written: "name: value \r\n" for each header in
    // the order of the map, then "\r\n". Does not flush the stream.
    void commitHeader();

    // Writes formatted text without committing the header and without flushing.
    int webPrintf(const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Commits the header, renders the template if one was named, and frees its variables. The
    // controller calls it once, after setHttpRequest(); nothing is called after it.
    void flush();

private:
    using HeaderMap = QKHashMap<std::string, std::string, INT_HASH<std::string>>;
    static constexpr unsigned int kDevtypeSize = 32;

    bool headerCommitted;
    std::string templateName;
    TMPL_varlist* mainVarList;
    FCGX_Request* request;
    HttpRequestImpl* httpRequest;
    HeaderMap* headers;
    char devtype[kDevtypeSize];
};

#endif
