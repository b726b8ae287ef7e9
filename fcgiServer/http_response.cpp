#include "http_response.h"

#include "app_log.h"
#include "cgi.h"
#include "http_request.h"
#include "log_module.h"
#include "web_debug.h"

#include <cassert>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <syslog.h>

namespace {

constexpr int kStatusTextSize = 16;
constexpr int kLocaleSize = 128;

// Ends the argument list of TMPL_add_var().
const char* const kEndOfVariables = nullptr;

// Copies as much of `text` as fits into `size` bytes with a terminator.
void copyBounded(char* target, std::size_t size, const char* text) {
    const std::size_t length = strnlen(text, size - 1);
    std::memmove(target, text, length);
    target[length] = '\0';
}

} // namespace

HttpResponseImpl::HttpResponseImpl(FCGX_Request* request)
    : headerCommitted(false), mainVarList(nullptr), request(request), httpRequest(nullptr),
      headers(std::make_unique<HeaderMap>()), devtype() {}

HttpResponseImpl::~HttpResponseImpl() = default;

void HttpResponseImpl::setHttpRequest(HttpRequestImpl* boundRequest) {
    httpRequest = boundRequest;
}

void HttpResponseImpl::setHeader(const char* name, const char* value) {
    if (name == nullptr || value == nullptr) {
        app_log(kLogModule, LOG_WARNING, "HttpResponseImpl::setHeader End1\n");
        return;
    }
    removeHeader(name);
    headers->put(name, value);
}

void HttpResponseImpl::addHeader(const char* name, const char* value) {
    if (name == nullptr || value == nullptr) {
        app_log(kLogModule, LOG_WARNING, "HttpResponseImpl::addHeader End\n");
        return;
    }
    if (auto* entry = headers->getAssoc(std::string_view(name)))
        entry->value += value;
    else
        headers->insert(name, value);
}

void HttpResponseImpl::removeHeader(const char* name) {
    if (name == nullptr)
        return;
    if (auto* entry = headers->getAssoc(std::string_view(name)))
        headers->removeAssoc(entry);
}

bool HttpResponseImpl::containsHeader(const char* name) {
    return name != nullptr && headers->getAssoc(std::string_view(name)) != nullptr;
}

void HttpResponseImpl::setContextType(const char* type) {
    setHeader("ContentType", type);
}

void HttpResponseImpl::sendRedirect(const char* location) {
    setHeader("Location", location);
}

void HttpResponseImpl::setStatus(int code) {
    char text[kStatusTextSize] = {};
    std::snprintf(text, sizeof text, "%d", code);
    addHeader("Status", text);
}

void HttpResponseImpl::addCookie(const char* name, const char* value) {
    assert(name != nullptr && value != nullptr);
    const std::string cookie = std::string(name) + "=" + value + " ";
    addHeader("Set-Cookie", cookie.c_str());
}

void HttpResponseImpl::setDevtype(char* type) {
    if (type == nullptr) {
        WebDebug::getInstance()->error("HttpResponseImpl::setDevtype() para error.");
        return;
    }
    copyBounded(devtype, sizeof devtype, type);
}

bool HttpResponseImpl::isHeaderCommited() {
    return headerCommitted;
}

void HttpResponseImpl::commitHeader() {
    if (headerCommitted)
        return;
    headerCommitted = true;
    for (auto* entry = headers->firstAssoc(); entry != nullptr; entry = headers->nextAssoc(entry))
        webPrintf("%s: %s \r\n", entry->key.c_str(), entry->value.c_str());
    webPrintf("\r\n");
}

int HttpResponseImpl::webPrintf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int written = FCGX_VFPrintF(request->out, format, arguments);
    va_end(arguments);
    return written;
}

int HttpResponseImpl::print(const char* format, ...) {
    commitHeader();
    va_list arguments;
    va_start(arguments, format);
    const int written = FCGX_VFPrintF(request->out, format, arguments);
    va_end(arguments);
    FCGX_FFlush(request->out);
    return written;
}

unsigned int HttpResponseImpl::write(const void* data, unsigned int size, unsigned int count) {
    commitHeader();
    if (data == nullptr) {
        app_log(kLogModule, LOG_WARNING, "HttpResponseImpl::write() End. ptr == NULL\n");
        return 0;
    }
    const std::uint64_t bytes = std::uint64_t{size} * count;
    if (size == 0 || bytes > INT_MAX)
        return 0;
    const int written =
        FCGX_PutStr(static_cast<const char*>(data), static_cast<int>(bytes), request->out);
    return static_cast<unsigned int>(written) / size;
}

int HttpResponseImpl::write(int character) {
    commitHeader();
    return FCGX_PutChar(character, request->out);
}

char* HttpResponseImpl::encodeURL(const char* url) {
    return CGI_encode_url(url, "/=?&");
}

void HttpResponseImpl::setTemplate(const char* name, TMPL_varlist* vars) {
    assert(name != nullptr);
    mainVarList = vars; // before copying the name, which may throw: flush() frees the list
    templateName = name;
    mainVarList = TMPL_add_var(vars, "devtype", devtype, kEndOfVariables);
}

TMPL_varlist* HttpResponseImpl::getMainVarList() {
    return mainVarList;
}

void HttpResponseImpl::flush() {
    assert(httpRequest != nullptr); // call it after setHttpRequest()
    commitHeader();
    char local[kLocaleSize] = {};
    HttpRequest* localised = httpRequest;
    const char* locale = localised->getLocale(local, sizeof local);
    if (locale == nullptr)
        locale = "en";
    if (locale != local)
        copyBounded(local, sizeof local, locale);
    mainVarList = TMPL_add_var(mainVarList, "local", local, kEndOfVariables);
    if (!templateName.empty()) {
        const int failure = TMPL_web_write(templateName.c_str(), nullptr, nullptr, mainVarList,
                                           request->out, stderr);
        if (failure != 0)
            app_log(kLogModule, LOG_WARNING, "HttpResponseImpl::flush() TMPL_write error =%d!\n",
                    failure);
    }
    if (mainVarList != nullptr)
        TMPL_free_varlist(mainVarList);
}
