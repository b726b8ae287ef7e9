// Writing the response to one request, with safe default headers.
#ifndef KIT_RESPONSE_H
#define KIT_RESPONSE_H

#include "HttpResponse.h"
#include "base/descriptor.h"
#include "kit/cookie.h"
#include "kit/json.h"
#include "kit/request.h"
#include "kit/variables.h"
#include "web_debug.h"

#include <cassert>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>

namespace kit {

// The response that a page or a listener writes. Every response has these headers unless header()
// sets others before the body: a content type, no caching, a content security policy that allows
// only the device's own scripts (against XSS) and no framing (against clickjacking), no MIME
// sniffing, no Referer for other sites, and over HTTPS no return to HTTP for a year (HSTS).
//   Order    set status, headers and cookie first: after the first byte of the body has been sent,
//            setting them has no effect.
//   Errors   header(), cookie(), seeOther() and download() return false if they refuse an argument;
//            send() returns nothing. Each of them then logs what it refused and changes nothing.
//   Threads  one: the thread that serves the request.
class Response {
public:
    // Both must outlive this object; `request` is the one that is answered.
    Response(HttpResponse& raw, Request& request) : m_raw(raw), m_request(request) {}
    Response(const Response&) = delete;
    Response& operator=(const Response&) = delete;

    // Returns the container's object, for everything that this class does not offer.
    HttpResponse& raw() { return m_raw; }

    // Sets the status code, which is 200 otherwise; the last call counts. Returns this object.
    Response& status(int code) {
        m_raw.setHeader("Status", std::to_string(code).c_str());
        return *this;
    }

    // Sets a header, replacing its value. Refuses a name that is not a token, and a value with a
    // control character other than a tab (RFC 7230, section 3.2), which prevents header injection.
    bool header(const std::string& name, std::string_view value) {
        if (!internal::isToken(name) || !isHeaderValue(value)) {
            WebDebug::getInstance()->error(
                "Page %s: refused header %s (control character or bad name)",
                m_request.page().data(), name.c_str());
            return false;
        }
        m_raw.setHeader(name.c_str(), std::string(value).c_str());
        return true;
    }

    // Sets a cookie, which is Secure over HTTPS in any case. Refuses one with characters that
    // setCookieText() does not allow, and a second one: a response has room for one, and the cookie
    // of a new session is one.
    bool cookie(const Cookie& cookie) {
        Cookie safe = cookie;
        safe.secure = cookie.secure || m_request.isHttps();
        const auto text = setCookieText(safe);
        if (!text || m_raw.containsHeader("Set-Cookie")) {
            WebDebug::getInstance()->error(
                "Page %s: refused cookie %s (bad character, or the second cookie)",
                m_request.page().data(), cookie.name.c_str());
            return false;
        }
        m_raw.setHeader("Set-Cookie", text->c_str());
        return true;
    }

    // Redirects the browser to `path` on this device with status 303: it uses GET, whatever the
    // method of this request was. Refuses other hosts ("//host", "http:…"), which prevents open
    // redirects, and control characters.
    bool seeOther(std::string_view path) {
        const bool local = !path.empty() && path[0] == '/' &&
                           (path.size() == 1 || (path[1] != '/' && path[1] != '\\'));
        if (!local || !isHeaderValue(path) || path.find('\t') != path.npos) {
            WebDebug::getInstance()->error(
                "Page %s: refused redirect to %s (no path on this device, or control character)",
                m_request.page().data(), std::string(path).c_str());
            return false;
        }
        setDefault("Cache-Control", "no-store");
        status(303);
        m_raw.sendRedirect(std::string(path).c_str());
        return true;
    }

    // Answers with the template file `name` of the folder WEB-INFO/templates below the document
    // root. It is rendered when the page returns; the last call counts. Answers with status 500
    // (logged) if the file cannot be opened. A template that is wrong results in an empty page and
    // a line on standard error.
    void show(const std::string& name, Variables variables) {
        const auto root = m_request.raw().getDocumentRoot();
        const std::string path =
            std::string(root ? root : "/phone/www") + "/WEB-INFO/templates/" + name;
        if (!base::Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC))) {
            WebDebug::getInstance()->error("Page %s: cannot open the template %s: %s",
                                           m_request.page().data(), path.c_str(),
                                           std::strerror(errno));
            fail();
            return;
        }
        setDefaults("text/html; charset=utf-8");
        TMPL_free_varlist(m_raw.getMainVarList()); // of an earlier call
        m_raw.setTemplate(path.c_str(), variables.release());
    }

    // Send `body` unchanged, or `value` as JSON. Further calls append to it.
    void text(std::string_view body) { send("text/plain; charset=utf-8", body); }
    void html(std::string_view body) { send("text/html; charset=utf-8", body); }
    void json(const Json& value) { send("application/json", value.serialized()); }
    // Sends `body` unchanged as `contentType`, which must not be null. Refuses a content type with
    // a control character other than a tab, and sends nothing then.
    void send(const char* contentType, std::string_view body) {
        assert(contentType && "`contentType` must not be null");
        if (!isHeaderValue(contentType)) {
            WebDebug::getInstance()->error("Page %s: refused content type %s (control character)",
                                           m_request.page().data(), contentType);
            return;
        }
        setDefaults(contentType);
        m_raw.write(body.data(), 1, static_cast<unsigned int>(body.size()));
    }

    // Sends `body` as a download that the browser saves as `fileName`. Refuses a file name that is
    // empty or has anything but ASCII letters, digits, "-", "_" and ".", and a content type that
    // send() refuses. `contentType` must not be null.
    bool download(const std::string& fileName, const char* contentType, std::string_view body) {
        assert(contentType && "`contentType` must not be null");
        if (fileName.empty() || fileName.find_first_not_of(kFileNameCharacters) != fileName.npos ||
            !isHeaderValue(contentType)) {
            WebDebug::getInstance()->error(
                "Page %s: refused download %s (bad file name or content type)",
                m_request.page().data(), fileName.c_str());
            return false;
        }
        m_raw.setHeader("Content-Disposition", ("attachment; filename=" + fileName).c_str());
        send(contentType, body);
        return true;
    }

    // Answers with status 500 and a line of text, instead of a template that was to be shown. Does
    // nothing if a part of the response has been sent.
    void fail() {
        if (!m_raw.isHeaderCommited()) {
            status(500);
            m_raw.setTemplate("", m_raw.getMainVarList());
            m_raw.setHeader("Content-Type", "text/plain; charset=utf-8");
            text("The page failed; the device's log says why.\n");
        }
    }

private:
    static constexpr const char* kFileNameCharacters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.";

    static bool isHeaderValue(std::string_view value) {
        for (char c : value) {
            const auto byte = static_cast<unsigned char>(c);
            if ((byte < 0x20 && c != '\t') || byte == 0x7F) {
                return false;
            }
        }
        return true;
    }

    void setDefault(const char* name, const char* value) {
        if (!m_raw.containsHeader(name)) {
            m_raw.setHeader(name, value);
        }
    }

    void setDefaults(const char* contentType) {
        setDefault("Content-Type", contentType);
        setDefault("Cache-Control", "no-store");
        setDefault("X-Content-Type-Options", "nosniff");
        // A page's URL may contain private data. Without any Referer, browsers would send the forms
        // of the device's own pages with "Origin: null".
        setDefault("Referrer-Policy", "same-origin");
        if (m_request.isHttps()) {
            setDefault("Strict-Transport-Security", "max-age=31536000");
        }
        setDefault("Content-Security-Policy",
                   "default-src 'self'; base-uri 'none'; form-action 'self'; "
                   "frame-ancestors 'none'; object-src 'none'");
    }

    HttpResponse& m_raw;
    Request& m_request;
};

} // namespace kit

#endif
