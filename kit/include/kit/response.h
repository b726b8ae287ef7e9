// Writing the response to one request, with safe default headers.
#ifndef KIT_RESPONSE_H
#define KIT_RESPONSE_H

#include "HttpResponse.h"
#include "base/ascii.h"
#include "base/descriptor.h"
#include "kit/conditional.h"
#include "kit/cookie.h"
#include "kit/error_pages.h"
#include "kit/json.h"
#include "kit/request.h"
#include "kit/variables.h"
#include "web_debug.h"

#include <cassert>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kit {

// The body of a response that is sent in pieces, in memory that does not grow with it. The pieces
// reach the front server 8 KiB at a time, which may collect them before it sends them on.
//   Lifetime  as long as the response, which Response::stream() has made it from.
class Stream {
public:
    // `raw` must outlive this object. `isRead`: whether anybody will read the body.
    Stream(HttpResponse& raw, bool isRead) : m_raw(raw), m_isRead(isRead) {}

    // Sends the piece unchanged. Returns false once nobody reads any more, because the client has
    // gone or has asked for the headers only: make no further pieces then.
    bool write(std::string_view piece) {
        const auto size = static_cast<unsigned int>(piece.size());
        m_isRead = m_isRead && m_raw.write(piece.data(), 1, size) == size;
        return m_isRead;
    }

private:
    HttpResponse& m_raw;
    bool m_isRead;
};

// The response that a page or a listener writes. Every response has these headers unless header()
// sets others before the body: a content type, no caching, a content security policy that allows
// only the device's own scripts (against XSS) and no framing (against clickjacking), no MIME
// sniffing, no Referer for other sites, and over HTTPS no return to HTTP for a year (HSTS).
//   Order    set status, headers and cookies first: after the first byte of the body has been sent,
//            setting them has no effect.
//   Errors   header(), cookie(), seeOther(), download(), attachment() and notModified() return
//            false if they refuse an argument; send() returns nothing. Each of them then logs what
//            it refused and changes nothing.
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

    // Sets a cookie, which is Secure over HTTPS in any case; another one of the same name replaces
    // it. Refuses one for which setCookieText() returns nothing, and more than 20.
    bool cookie(const Cookie& cookie) {
        Cookie safe = cookie;
        safe.secure = cookie.secure || m_request.isHttps();
        const auto text = setCookieText(safe);
        const std::string header = text ? cookieHeader(cookie.name) : "";
        if (header.empty()) {
            WebDebug::getInstance()->error(
                "Page %s: refused cookie %s (bad character or attributes, or too many)",
                m_request.page().data(), cookie.name.c_str());
            return false;
        }
        m_raw.setHeader(header.c_str(), text->c_str());
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
    void show(const char* name, Variables variables) {
        // Keeps the text of the name in the library, where servlet_check finds it.
        asm("" : "+r"(name)); // NOLINT(hicpp-no-assembler)
        show(std::string(name), std::move(variables));
    }
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
    void json(const Json& value) {
        const std::string body = value.serialized();
        send("application/json", body);
    }
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
        // cppcheck-suppress invalidLifetime // json() keeps its text for as long
        m_raw.write(body.data(), 1, static_cast<unsigned int>(body.size()));
    }

    // Sends `body` as a download that the browser saves as `fileName`. Refuses a file name that
    // attachment() refuses, and a content type that send() refuses. `contentType` must not be null.
    bool download(const std::string& fileName, const char* contentType, std::string_view body) {
        assert(contentType && "`contentType` must not be null");
        if (!isFileName(fileName) || !isHeaderValue(contentType)) {
            WebDebug::getInstance()->error(
                "Page %s: refused download %s (bad file name or content type)",
                m_request.page().data(), fileName.c_str());
            return false;
        }
        attachment(fileName);
        send(contentType, body);
        return true;
    }

    // Lets the browser save the answer as `fileName` instead of showing it. Refuses a file name
    // that is empty or has anything but ASCII letters, digits, "-", "_" and ".".
    bool attachment(const std::string& fileName) {
        if (!isFileName(fileName)) {
            WebDebug::getInstance()->error("Page %s: refused the file name %s",
                                           m_request.page().data(), fileName.c_str());
            return false;
        }
        m_raw.setHeader("Content-Disposition", ("attachment; filename=" + fileName).c_str());
        return true;
    }

    // Begins a body of any size, which is sent in pieces, with this content type; see Stream. For a
    // content type that send() refuses, the stream refuses all pieces. `contentType` must not be
    // null.
    Stream stream(const char* contentType) {
        send(contentType, "");
        return {m_raw, isHeaderValue(contentType) && m_request.method() != "HEAD"};
    }

    // Answers with the file: with its length, an ETag and a date, with status 304 if the browser
    // has it already, and with the part that a Range header asks for (one part; several are
    // answered with the whole file). The file is read piece by piece, so it may be larger than the
    // memory. Browsers keep the answer and ask each time whether it is still valid, unless header()
    // has set Cache-Control.
    //   Result    false if there is no such file, or if it is a folder, a device or a pipe: the
    //             status is 404 then, and the page sends the text. True in all other cases, also if
    //             the file cannot be read (logged, status 500).
    //   Type      contentTypeOf() `path`, unless header() has set Content-Type. Scripts in HTML,
    //             SVG and XML do not run, unless header() has set Content-Security-Policy.
    //   Security  `path` must not contain anything that a client sent: see fileFrom().
    //   Limits    32-bit plug-ins need -D_FILE_OFFSET_BITS=64 for a file of 2 GiB or more. Replace
    //             a file by renaming another: one that becomes shorter while it is sent is cut off.
    bool file(const std::string& path);

    // Answers like file() with the file `name` below `folder`, where `name` may come from a client.
    // Also returns false, with status 404, for a name that leads out of the folder: an absolute
    // one, one with a part that is empty or begins with a dot (logged), and one with a symbolic
    // link.
    bool fileFrom(const std::string& folder, std::string_view name);

    // Returns whether the browser already has this version of the page: then the answer has been
    // sent (status 304, or 412 if the request has an If-Match that fails), and the page has nothing
    // more to do. Otherwise the browser keeps the answer that the page now sends, and shows it
    // again after it has asked whether it is still valid. `version` changes whenever the answer
    // does: printable ASCII without blanks and quotes; refuses others. For GET and HEAD only;
    // changes nothing for other methods.
    //     if (!response.notModified(std::to_string(list.changes()))) { response.show(…); }
    bool notModified(std::string_view version) {
        if (!internal::isReading(m_request)) {
            return false;
        }
        if (!internal::isCookieText(version, ",;\\")) {
            WebDebug::getInstance()->error("Page %s: refused version %s (bad character)",
                                           m_request.page().data(), std::string(version).c_str());
            return false;
        }
        return isAnsweredBy({"W/\"" + std::string(version) + '"'});
    }

    // Answers an error with the plug-in's page for it, see ErrorPages, or else with this text.
    void error(int code, std::string_view plainText) {
        status(code);
        if (!ErrorPages::show(m_request, *this, code)) {
            text(plainText);
        }
    }

    // Answers with status 500 as error() does, instead of a template that was to be shown; a second
    // call, because the plug-in's page has failed too, with a line of text. Does nothing if a part
    // of the response has been sent.
    void fail() {
        constexpr std::string_view kText = "The page failed; the device's log says why.\n";
        if (m_raw.isHeaderCommited()) {
            return;
        }
        m_raw.setTemplate("", m_raw.getMainVarList());
        m_raw.setHeader("Cache-Control", "no-store");
        if (m_raw.containsHeader("Content-Disposition")) {
            m_raw.setHeader("Content-Disposition", "inline"); // it is not the file
        }
        if (std::exchange(m_hasFailed, true)) {
            status(500).text(kText);
        } else {
            error(500, kText);
        }
    }

private:
    static constexpr const char* kFileNameCharacters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.";

    static bool isFileName(const std::string& name) {
        return !name.empty() && name.find_first_not_of(kFileNameCharacters) == name.npos;
    }

    static bool isHeaderValue(std::string_view value) {
        for (char c : value) {
            const auto byte = static_cast<unsigned char>(c);
            if ((byte < 0x20 && c != '\t') || byte == 0x7F) {
                return false;
            }
        }
        return true;
    }

    // Returns the spelling of Set-Cookie for the cookie `name`, or an empty text if there is none
    // left. The container keeps one value for each spelling of a header's name, and letter case
    // means nothing to front servers and browsers (RFC 9110, section 5.1). "Set-Cookie" itself is
    // left to the session's cookie, which the container appends to what it finds there.
    std::string cookieHeader(const std::string& name) {
        constexpr unsigned int kSpellings = 21;
        constexpr std::string_view kContainers = "Set-Cookie";
        for (const auto& [known, header] : m_cookies) {
            if (known == name) {
                return header;
            }
        }
        for (unsigned int spelling = 0; spelling < kSpellings; ++spelling) {
            std::string header = "set-cookie";
            for (unsigned int letter = 0; spelling >> letter != 0; ++letter) {
                char& place = header[letter < 3 ? letter : letter + 1]; // not the "-"
                place = (spelling >> letter & 1U) != 0 ? base::asciiUpper(place) : place;
            }
            if (header != kContainers && !m_raw.containsHeader(header.c_str())) {
                m_cookies.emplace_back(name, header);
                return header;
            }
        }
        return "";
    }

    // Sends the answer of a conditional request, if that is all that the browser needs, and returns
    // whether it has.
    bool isAnsweredBy(const internal::Validators& validators) {
        m_raw.setHeader("ETag", validators.entityTag.c_str());
        if (validators.lastModified) {
            m_raw.setHeader("Last-Modified", httpDate(*validators.lastModified).c_str());
        }
        setDefault("Cache-Control", "private, no-cache");
        const internal::Condition condition = internal::conditionOf(m_request, validators);
        if (condition == internal::Condition::Met) {
            return false;
        }
        status(condition == internal::Condition::NotModified ? 304 : 412);
        return true;
    }

    bool isNoFile();
    bool sendFile(const base::Descriptor& file, const std::string& path);
    void sendPart(const base::Descriptor& file, const std::string& path,
                  const internal::Validators& validators, std::uint64_t size);
    void copyBody(const base::Descriptor& file, const std::string& path, internal::ByteRange part);

    void setDefault(const char* name, const char* value) {
        if (!m_raw.containsHeader(name)) {
            m_raw.setHeader(name, value);
        }
    }

    void setDefaults(const char* contentType) {
        if (m_hasFailed) {
            m_raw.setHeader("Content-Type", contentType); // not that of the page that failed
        }
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
    std::vector<std::pair<std::string, std::string>> m_cookies; // names, spellings of Set-Cookie
    bool m_hasFailed = false;
};

} // namespace kit

// Defines file() and fileFrom().
#include "kit/files.h"

#endif
