// The answer to one request, made right by default.
#ifndef KIT_RESPONSE_H
#define KIT_RESPONSE_H

#include "HttpResponse.h"
#include "kit/cookie.h"
#include "kit/request.h"
#include "kit/variables.h"
#include "web_debug.h"

#include <string>
#include <string_view>

namespace kit {

// Wraps the container's response for one call. An answer has a content type, is not stored by
// browsers and proxies, runs no script but the device's own, is framed by nobody, and is taken for
// what it says; header() overrides each of these. Headers are set before the body.
//   Errors   an operation that refuses what it is given logs it, gives false, and changes nothing.
class Response {
public:
    // Both must outlive it; `request` is the one that is answered.
    Response(HttpResponse& raw, Request& request) : m_raw(raw), m_request(request) {}
    Response(const Response&) = delete;
    Response& operator=(const Response&) = delete;

    // The container's object: for what has no shorter form here.
    HttpResponse& raw() { return m_raw; }

    // 200 unless set; the last call counts.
    Response& status(int code) {
        m_raw.setHeader("Status", std::to_string(code).c_str());
        return *this;
    }

    // Sets a header to this one value. Refused: a name that is no token, and a value with a control
    // character other than a tab, CR, LF and NUL above all (RFC 7230, section 3.2).
    bool header(const std::string& name, std::string_view value) {
        if (!internal::isToken(name) || !isHeaderValue(value)) {
            return refuse("a header");
        }
        m_raw.setHeader(name.c_str(), std::string(value).c_str());
        return true;
    }

    // Sends a cookie. Refused: one that cannot be written, and a second one, the session's
    // included, since an answer has room for one.
    bool cookie(const Cookie& cookie) {
        const auto text = setCookieText(cookie);
        if (!text || m_raw.containsHeader("Set-Cookie")) {
            return refuse("a cookie");
        }
        m_raw.setHeader("Set-Cookie", text->c_str());
        return true;
    }

    // Sends the browser on with GET, whatever the method of this request was, to `path` on this
    // device. Refused: another host ("//host", "http:…"), and control characters.
    bool seeOther(std::string_view path) {
        const bool local = !path.empty() && path[0] == '/' &&
                           (path.size() == 1 || (path[1] != '/' && path[1] != '\\'));
        if (!local || !isHeaderValue(path) || path.find('\t') != path.npos) {
            return refuse("a redirect");
        }
        setDefault("Cache-Control", "no-store");
        status(303);
        m_raw.sendRedirect(std::string(path).c_str());
        return true;
    }

    // Answers with the template `name`, found in WEB-INFO/templates of the document root.
    void show(const std::string& name, Variables variables) {
        setDefaults("text/html; charset=utf-8");
        const auto root = m_request.raw().getDocumentRoot();
        const std::string path =
            std::string(root ? root : "/phone/www") + "/WEB-INFO/templates/" + name;
        TMPL_free_varlist(m_raw.getMainVarList()); // of a page that was shown before
        m_raw.setTemplate(path.c_str(), variables.release());
    }

    // Answers with a body as it is. A second call appends to the first.
    void text(std::string_view body) { send("text/plain; charset=utf-8", body); }
    void html(std::string_view body) { send("text/html; charset=utf-8", body); }
    void json(std::string_view body) { send("application/json", body); }
    // The type is the page's own: as header(), a wrong one is refused, and nothing is sent.
    void send(const char* contentType, std::string_view body) {
        if (!isHeaderValue(contentType)) {
            refuse("a content type");
            return;
        }
        setDefaults(contentType);
        m_raw.write(body.data(), 1, static_cast<unsigned int>(body.size()));
    }

    // Answers with a file to be saved as `fileName`: letters, digits, "-", "_" and "." only.
    bool download(const std::string& fileName, const char* contentType, std::string_view body) {
        if (fileName.empty() || fileName.find_first_not_of(kFileNameCharacters) != fileName.npos ||
            !isHeaderValue(contentType)) {
            return refuse("a file");
        }
        m_raw.setHeader("Content-Disposition", ("attachment; filename=" + fileName).c_str());
        send(contentType, body);
        return true;
    }

    // Answers with status 500, unless something has been sent.
    void fail() {
        if (!m_raw.isHeaderCommited()) {
            status(500);
            // Whatever was to be shown is not.
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

    static bool refuse(const char* what) {
        WebDebug::getInstance()->error("Refused to send %s", what);
        return false;
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
        // The address of a page may hold what is nobody else's business.
        setDefault("Referrer-Policy", "no-referrer");
        setDefault("Content-Security-Policy",
                   "default-src 'self'; base-uri 'none'; form-action 'self'; "
                   "frame-ancestors 'none'; object-src 'none'");
    }

    HttpResponse& m_raw;
    Request& m_request;
};

} // namespace kit

#endif
