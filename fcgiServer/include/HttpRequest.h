// One request, as plug-ins see it.
#ifndef HTTP_REQUEST_H
#define HTTP_REQUEST_H

class HttpSession;
struct CGI_varlist;

// Compiled plug-ins depend on the order of the operations. Some names are misspelt
// (getContextType returns the content type, getProtocal, getRefferer, setLocal); they are part of
// the interface.
//   Owner     the container; the object and every text that it returns live until the request has
//             been served. The texts may be read, not changed.
//   Null      a getter returns null for what the client or the front server did not send.
//   Threads   one: the thread that serves the request.
class HttpRequest {
public:
    // Returns the first value of a form or query field, or null. Form fields come before query
    // fields.
    virtual char* getParameter(const char* name) = 0;
    // Returns all values of a field, with a null after the last, or null. Do not free them.
    virtual char** getParameterValues(const char* name) = 0;

    // Return variables of the CGI environment (RFC 3875, section 4.1): QUERY_STRING, HTTP_COOKIE,
    // FCGI_ROLE, REQUEST_URI, DOCUMENT_ROOT.
    virtual char* getQueryString() = 0;
    virtual char* getCookie() = 0;
    virtual char* getRole() = 0;
    virtual char* getRequestURI() = 0;
    virtual char* getDocumentRoot() = 0;
    // Returns REMOTE_ADDR, without the "::ffff:" before an IPv4 address.
    virtual char* getRemoteAddr() = 0;
    // Returns REMOTE_HOST.
    virtual char* getRemoteHost() = 0;
    // Returns SERVER_PORT; 0 if it is absent.
    virtual int getServerPort() = 0;
    // Returns SERVER_NAME.
    virtual char* getServerName() = 0;
    // Returns CONTENT_TYPE.
    virtual char* getContextType() = 0;
    // Returns the number that CONTENT_LENGTH begins with; 0 if there is none.
    virtual int getContentLength() = 0;
    // Returns SERVER_PROTOCOL.
    virtual char* getProtocal() = 0;
    // Return REFFERER and USER_AGENT: null unless the front server is configured to send variables
    // of exactly these names.
    virtual char* getRefferer() = 0;
    virtual char* getUserAgent() = 0;
    // Returns REQUEST_METHOD.
    virtual char* getMethod() = 0;
    // Returns CONTEXT_PATH: null unless it is configured, as for getRefferer().
    virtual char* getContextPath() = 0;
    // Returns SCRIPT_NAME.
    virtual char* getServletPath() = 0;
    // Returns whether SCRIPT_NAME is a number other than 0: in practice always false, even over
    // HTTPS.
    virtual bool isSecure() = 0;

    // Returns the client's language: what setLocal() set, else the first entry of Accept-Language
    // (with its quality, if it has one), else "en". The result is `buffer`, or the text that
    // setLocal() stored; null if it does not fit into `size` bytes with its terminator.
    virtual char* getLocale(char* buffer, int size) = 0;
    // Sets the language for this request; the text is copied. Null does nothing. Call at most once
    // per request: a second call takes effect but leaks the first copy.
    virtual void setLocal(const char* locale) = 0;

    // Return HTTP_ACCEPT, HTTP_ACCEPT_LANGUAGE, HTTP_ACCEPT_ENCODING, HTTP_ACCEPT_CHARSET.
    virtual char* getAccept() = 0;
    virtual char* getAcceptLanguage() = 0;
    virtual char* getAcceptEncoding() = 0;
    virtual char* getAcceptCharset() = 0;

    // Returns the id of the request's session, or null: the cookie JSESSIONID as the client sent
    // it, or the id of a session created during this request. An id does not mean that the session
    // still exists.
    virtual const char* getSessionId() = 0;
    // Returns the valid session of this client (id and address must match), or null. With `create`,
    // creates one if there is none, and sends its cookie with the response: call it before writing
    // the first byte of the body. The session factory owns the session.
    virtual HttpSession* getSession(bool create) = 0;

    // Receives an uploaded file at `path`; see CGI_fileupload() in cgi.h for success and failure.
    // The text fields of the upload become parameters. Returns the list of all parameters, which
    // belongs to the request: do not free it.
    virtual CGI_varlist* receiveUploadFile(const char* path) = 0;
    // Receives an uploaded file in `buffer`; see CGI_fileupload_data() in cgi.h. Returns the count
    // of bytes of the file, 0 on failure.
    virtual int receiveUploadData(char* buffer, unsigned long size) = 0;
    // Reads raw bytes of the body; see CGI_readblock() in cgi.h. Returns the count of bytes placed
    // in `buffer`, 0 at the end of the body.
    virtual int receiveBlockData(char* buffer, unsigned long size) = 0;

protected:
    ~HttpRequest() = default;
};

// Returns any variable of the request's CGI environment, such as HTTP_ORIGIN or HTTPS, or null if
// it is absent; `name` must not be null. Also returns null for a request object that is not the
// container's own. A function and not an operation of HttpRequest, whose table cannot grow; declare
// it weak to run in older containers too, which lack it.
const char* requestVariable(HttpRequest& request, const char* name);

// Ends the request's session, like HttpSession::invalidate(), in such a way that the next sweep of
// any host can free it; does nothing without a session. Use no pointer to the session afterwards.
// HttpRequest::getSession() then creates another. Does nothing for a request object that is not the
// container's own. Declare it weak, as above.
void endRequestSession(HttpRequest& request);

#endif
