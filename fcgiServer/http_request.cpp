#include "http_request.h"

#include "HttpResponse.h"
#include "app_log.h"
#include "base/short_text.h"
#include "http_session.h"
#include "log_module.h"
#include "session_factory.h"

#include <algorithm>
#include <cassert>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <syslog.h>

namespace {

const char kSessionCookie[] = "JSESSIONID";

// Saturates like strtol(3) on a 32-bit device, so 64-bit hosts give the same result.
int limited(long number) {
    return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

} // namespace

HttpRequestImpl::HttpRequestImpl(FCGX_Request* request, SessionFactory* factory,
                                 HttpResponse* response)
    : sessionFactory(factory), response(response), request(request), parameters(nullptr),
      cookies(nullptr), locale(nullptr), sessionId() {
    assert(request != nullptr);
    doProcessData();
}

HttpRequestImpl::~HttpRequestImpl() {
    CGI_free_varlist(parameters);
    parameters = nullptr;
    CGI_free_varlist(cookies);
    cookies = nullptr;
    std::free(locale);
    locale = nullptr;
}

int HttpRequestImpl::doProcessData() {
    const char* method = getMethod();
    if (method == nullptr) {
        app_log(kLogModule, LOG_WARNING, "HttpRequestImpl::init() End1\n");
        return -1;
    }
    cookies = CGI_get_cookie(cookies, getCookie());
    if (std::strcmp(method, "POST") == 0) {
        const char* type = getContextType(); // first: arguments are evaluated in any order
        parameters = CGI_get_post(parameters, type, getContentLength(), request->in);
    }
    parameters = CGI_decode_query(parameters, getQueryString());
    if (const char* id = CGI_lookup(cookies, kSessionCookie))
        keepSessionId(id);
    return 0;
}

// Ids that we create always fit; a longer one cannot belong to a session of ours.
void HttpRequestImpl::keepSessionId(const char* id) {
    const std::size_t length = std::strlen(id);
    if (length < sizeof sessionId)
        std::memcpy(sessionId, id, length + 1);
}

char* HttpRequestImpl::variable(const char* name) {
    return FCGX_GetParam(name, request->envp);
}

long HttpRequestImpl::numericVariable(const char* name) {
    const char* text = variable(name);
    return text != nullptr ? std::strtol(text, nullptr, 10) : 0;
}

char* HttpRequestImpl::getParameter(const char* name) {
    return CGI_lookup(parameters, name);
}
char** HttpRequestImpl::getParameterValues(const char* name) {
    return CGI_lookup_all(parameters, name);
}

char* HttpRequestImpl::getQueryString() {
    return variable("QUERY_STRING");
}
char* HttpRequestImpl::getCookie() {
    return variable("HTTP_COOKIE");
}
char* HttpRequestImpl::getRole() {
    return variable("FCGI_ROLE");
}
char* HttpRequestImpl::getRequestURI() {
    return variable("REQUEST_URI");
}
char* HttpRequestImpl::getDocumentRoot() {
    return variable("DOCUMENT_ROOT");
}
char* HttpRequestImpl::getRemoteHost() {
    return variable("REMOTE_HOST");
}
int HttpRequestImpl::getServerPort() {
    return limited(numericVariable("SERVER_PORT"));
}
char* HttpRequestImpl::getServerName() {
    return variable("SERVER_NAME");
}
char* HttpRequestImpl::getContextType() {
    return variable("CONTENT_TYPE");
}
int HttpRequestImpl::getContentLength() {
    return limited(numericVariable("CONTENT_LENGTH"));
}
char* HttpRequestImpl::getProtocal() {
    return variable("SERVER_PROTOCOL");
}
char* HttpRequestImpl::getRefferer() {
    return variable("REFFERER");
}
char* HttpRequestImpl::getUserAgent() {
    return variable("USER_AGENT");
}
char* HttpRequestImpl::getMethod() {
    return variable("REQUEST_METHOD");
}
char* HttpRequestImpl::getContextPath() {
    return variable("CONTEXT_PATH");
}
char* HttpRequestImpl::getServletPath() {
    return variable("SCRIPT_NAME");
}
bool HttpRequestImpl::isSecure() {
    return numericVariable("SCRIPT_NAME") != 0;
}
char* HttpRequestImpl::getAccept() {
    return variable("HTTP_ACCEPT");
}
char* HttpRequestImpl::getAcceptLanguage() {
    return variable("HTTP_ACCEPT_LANGUAGE");
}
char* HttpRequestImpl::getAcceptEncoding() {
    return variable("HTTP_ACCEPT_ENCODING");
}
char* HttpRequestImpl::getAcceptCharset() {
    return variable("HTTP_ACCEPT_CHARSET");
}

char* HttpRequestImpl::getRemoteAddr() {
    constexpr std::string_view kMappedPrefix = "::ffff:";
    char* address = variable("REMOTE_ADDR");
    if (address != nullptr && base::startsWith(address, kMappedPrefix))
        return address + kMappedPrefix.size();
    return address;
}

char* HttpRequestImpl::getLocale(char* buffer, int size) {
    if (locale != nullptr)
        return locale;
    const char* languages = getAcceptLanguage();
    if (languages == nullptr) {
        if (size <= 2)
            return nullptr;
        return std::strcpy(buffer, "en");
    }
    if (const char* comma = std::strchr(languages, ',')) {
        const int length = static_cast<int>(comma - languages);
        if (size <= length)
            return nullptr;
        std::memcpy(buffer, languages, static_cast<std::size_t>(length));
        buffer[length] = '\0';
        return buffer;
    }
    // Unlike above, a negative size counts as a huge one: existing pages may depend on it.
    if (static_cast<unsigned int>(size) <= std::strlen(languages))
        return nullptr;
    return std::strcpy(buffer, languages);
}

void HttpRequestImpl::setLocal(const char* text) {
    if (text != nullptr)
        locale = strdup(text); // leaks an earlier copy, which the page may still be using
}

const char* HttpRequestImpl::getSessionId() {
    if (sessionId[0] == '\0' || std::strcmp(sessionId, " ") == 0)
        return nullptr;
    return sessionId;
}

HttpSession* HttpRequestImpl::getSession(bool create) {
    const char* id = getSessionId();
    const char* address = getRemoteAddr();
    if (id != nullptr)
        if (HttpSession* session = sessionFactory->getSession(this))
            return session;
    if (!create)
        return nullptr;
    assert(sessionFactory != nullptr && response != nullptr);
    std::string remoteAddr = address != nullptr ? address : "";
    HttpSession* session = sessionFactory->createSession(remoteAddr);
    // Keeps the id even if addCookie() throws, so that onRequestFinished() can still find the
    // session and clear its busy flag.
    const struct KeepIdAtEnd {
        ~KeepIdAtEnd() { request->keepSessionId(id); }
        HttpRequestImpl* request;
        const char* id;
    } created{this, session->getId().c_str()};
    response->addCookie(kSessionCookie, created.id);
    return session;
}

CGI_varlist* HttpRequestImpl::receiveUploadFile(const char* path) {
    parameters = CGI_fileupload(parameters, getContextType(), path, request->in);
    return parameters;
}

int HttpRequestImpl::receiveUploadData(char* buffer, unsigned long size) {
    int received = 0;
    parameters =
        CGI_fileupload_data(parameters, getContextType(), buffer, size, request->in, &received);
    return received;
}

int HttpRequestImpl::receiveBlockData(char* buffer, unsigned long size) {
    return CGI_readblock(buffer, size, request->in);
}

const char* requestVariable(HttpRequest& request, const char* name) {
    assert(name != nullptr);
    auto* own = dynamic_cast<HttpRequestImpl*>(&request);
    return own != nullptr ? own->variable(name) : nullptr;
}

void endRequestSession(HttpRequest& request) {
    auto* own = dynamic_cast<HttpRequestImpl*>(&request);
    if (own != nullptr && own->sessionFactory != nullptr)
        own->sessionFactory->endSession(own);
}
