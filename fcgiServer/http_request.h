// The implementation of HttpRequest for one FastCGI request.
#ifndef HTTP_REQUEST_IMPL_H
#define HTTP_REQUEST_IMPL_H

#include "HttpRequest.h"

#include <fcgiapp.h>

#include "cgi.h"

class HttpResponse;
class SessionFactory;

//   Owner     the controller; texts that the operations return belong to the FastCGI request or to
//             this object.
//   Threads   one: created, used and deleted by the thread that serves the request.
// The order of the members is part of the binary interface.
class HttpRequestImpl : public HttpRequest {
public:
    // Decodes cookies, form and query; what cannot be decoded is left out. The three objects are
    // not owned and must outlive this one. `request` must not be null; `factory` and `response` may
    // be null if getSession() is not called.
    HttpRequestImpl(FCGX_Request* request, SessionFactory* factory, HttpResponse* response);

    HttpRequestImpl(const HttpRequestImpl&) = delete;
    HttpRequestImpl& operator=(const HttpRequestImpl&) = delete;

    char* getParameter(const char* name) override;
    char** getParameterValues(const char* name) override;
    char* getQueryString() override;
    char* getCookie() override;
    char* getRole() override;
    char* getRequestURI() override;
    char* getDocumentRoot() override;
    char* getRemoteAddr() override;
    char* getRemoteHost() override;
    int getServerPort() override;
    char* getServerName() override;
    char* getContextType() override;
    int getContentLength() override;
    char* getProtocal() override;
    char* getRefferer() override;
    char* getUserAgent() override;
    char* getMethod() override;
    char* getContextPath() override;
    char* getServletPath() override;
    bool isSecure() override;
    char* getLocale(char* buffer, int size) override;
    void setLocal(const char* locale) override;
    char* getAccept() override;
    char* getAcceptLanguage() override;
    char* getAcceptEncoding() override;
    char* getAcceptCharset() override;
    const char* getSessionId() override;
    HttpSession* getSession(bool create) override;
    CGI_varlist* receiveUploadFile(const char* path) override;
    int receiveUploadData(char* buffer, unsigned long size) override;
    int receiveBlockData(char* buffer, unsigned long size) override;

    virtual ~HttpRequestImpl();

    // Decodes cookies, form and query into the lists. The constructor calls it; do not call it
    // again. Returns 0, or -1 (logged) for a request without a method.
    int doProcessData();

private:
    friend const char* requestVariable(HttpRequest& request, const char* name);
    friend void endRequestSession(HttpRequest& request);

    static constexpr unsigned int kSessionIdSize = 64;

    char* variable(const char* name);
    long numericVariable(const char* name);
    void keepSessionId(const char* id);

    SessionFactory* sessionFactory;
    HttpResponse* response;
    FCGX_Request* request;
    CGI_varlist* parameters;
    CGI_varlist* cookies;
    char* locale;
    char sessionId[kSessionIdSize];
};

#endif
