// One request, as plug-ins see it.
#ifndef HTTP_REQUEST_H
#define HTTP_REQUEST_H

class HttpSession;
struct CGI_varlist;

// Compiled plug-ins depend on the order of the operations. Some names are misspelt
// (getContextType gives the content type, getProtocal, getRefferer, setLocal); they are part of
// the interface.
//   Owner     the container; the object and every text it gives live until the request is served.
//             The texts may be read, not changed.
//   Null      a getter gives null for what the client or the front server did not send.
//   Threads   one: the thread that serves the request.
class HttpRequest {
public:
    // The first value of a form or query field, or null. Form fields come before query fields.
    virtual char* getParameter(const char* name) = 0;
    // All its values with a null behind the last, or null. Not to be freed.
    virtual char** getParameterValues(const char* name) = 0;

    // Variables of the CGI environment (RFC 3875, section 4.1): QUERY_STRING, HTTP_COOKIE,
    // FCGI_ROLE, REQUEST_URI, DOCUMENT_ROOT.
    virtual char* getQueryString() = 0;
    virtual char* getCookie() = 0;
    virtual char* getRole() = 0;
    virtual char* getRequestURI() = 0;
    virtual char* getDocumentRoot() = 0;
    // REMOTE_ADDR, without the "::ffff:" before an IPv4 address.
    virtual char* getRemoteAddr() = 0;
    // REMOTE_HOST
    virtual char* getRemoteHost() = 0;
    // SERVER_PORT, 0 when absent.
    virtual int getServerPort() = 0;
    // SERVER_NAME
    virtual char* getServerName() = 0;
    // CONTENT_TYPE
    virtual char* getContextType() = 0;
    // CONTENT_LENGTH, its leading digits; 0 when absent.
    virtual int getContentLength() = 0;
    // SERVER_PROTOCOL
    virtual char* getProtocal() = 0;
    // REFFERER, USER_AGENT: null unless the front server is told to send variables of exactly
    // these names.
    virtual char* getRefferer() = 0;
    virtual char* getUserAgent() = 0;
    // REQUEST_METHOD
    virtual char* getMethod() = 0;
    // CONTEXT_PATH, as getRefferer().
    virtual char* getContextPath() = 0;
    // SCRIPT_NAME
    virtual char* getServletPath() = 0;
    // Whether SCRIPT_NAME is a number other than 0: in practice always false, also over HTTPS.
    virtual bool isSecure() = 0;

    // The client's language: what setLocal() set, else the first entry of Accept-Language (with
    // its quality, if it has one), else "en". The result is `buffer`, or the text that setLocal()
    // stored; null when `size` bytes do not hold it with its terminator.
    virtual char* getLocale(char* buffer, int size) = 0;
    // Sets it for this request, at most once; the text is copied. Null does nothing.
    virtual void setLocal(const char* locale) = 0;

    // HTTP_ACCEPT, HTTP_ACCEPT_LANGUAGE, HTTP_ACCEPT_ENCODING, HTTP_ACCEPT_CHARSET
    virtual char* getAccept() = 0;
    virtual char* getAcceptLanguage() = 0;
    virtual char* getAcceptEncoding() = 0;
    virtual char* getAcceptCharset() = 0;

    // The id of the request's session, or null: the cookie JSESSIONID as the client sent it, or
    // the id of a session made during this request. Having an id does not mean that the session
    // lives.
    virtual const char* getSessionId() = 0;
    // The live session of this client (id and address must match), or null. With `create`, makes
    // one when there is none, and sends its cookie with the response: call it before the first
    // byte of the body.
    virtual HttpSession* getSession(bool create) = 0;

    // The body of an upload; see CGI_fileupload, CGI_fileupload_data and CGI_readblock in cgi.h.
    // Its text fields become parameters. The list is the request's and must not be freed.
    virtual CGI_varlist* receiveUploadFile(const char* path) = 0;
    // The count of bytes of the file placed in `buffer`, 0 on failure.
    virtual int receiveUploadData(char* buffer, unsigned long size) = 0;
    // The count of raw body bytes placed in `buffer`, 0 at the end.
    virtual int receiveBlockData(char* buffer, unsigned long size) = 0;

protected:
    ~HttpRequest() = default;
};

#endif
