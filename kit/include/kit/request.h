// Reading one request.
#ifndef KIT_REQUEST_H
#define KIT_REQUEST_H

#include "HttpRequest.h"
#include "cgi.h"
#include "kit/body.h"
#include "kit/cookie.h"
#include "kit/language.h"
#include "kit/reading.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Weak, since older containers lack it, and so do hosts that contain the container but do not
// export it. NOLINTNEXTLINE(readability-redundant-declaration)
extern const char* requestVariable(HttpRequest& request, const char* name) __attribute__((weak));

namespace kit {

class Response;
class SignIns;

// The request that a page or a listener is called with.
//   Lifetime  every text that it returns lives until the request is served; copy what you keep.
//   Threads   one: the thread that serves the request.
class Request {
public:
    // `raw` must outlive this object.
    explicit Request(HttpRequest& raw) : m_raw(raw) {}
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    // Returns the container's object, for everything that this class does not offer.
    HttpRequest& raw() { return m_raw; }

    // Returns the first value of the parameter, or nothing if it is absent, which is not the same
    // as empty. Searches the form first, then the query, then an upload that has been received.
    std::optional<std::string_view> parameter(const char* name) {
        return view(m_raw.getParameter(name));
    }
    // Returns all values of the parameter in that order; empty if it is absent.
    std::vector<std::string_view> parameters(const char* name) {
        std::vector<std::string_view> values;
        for (char** value = m_raw.getParameterValues(name); value && *value; ++value) {
            values.emplace_back(*value);
        }
        return values;
    }

    // Return the parameter as a number from `min` to `max`, as a line of `min` to `max` characters,
    // or as one of `choices`; or else what is wrong with it. See reading.h.
    template <typename Number>
    Reading<Number> number(const char* name, Number min, Number max) {
        return readNumber<Number>(parameter(name), min, max);
    }
    Reading<std::string_view> text(const char* name, std::size_t min, std::size_t max) {
        return readText(parameter(name), min, max);
    }
    Reading<std::string_view> choice(const char* name,
                                     std::initializer_list<std::string_view> choices) {
        return readChoice(parameter(name), choices);
    }
    // Returns whether the checkbox `name` was ticked; browsers do not send the others.
    bool isChecked(const char* name) { return parameter(name).has_value(); }

    // Returns a variable of the request's CGI environment, such as HTTP_ORIGIN, or nothing if it is
    // absent, or if the container is older than this function.
    std::optional<std::string_view> variable(const char* name) {
        return view(requestVariable ? requestVariable(m_raw, name) : nullptr);
    }

    // Returns the value of a header, whatever the case of its letters is, or nothing if the client
    // did not send it, the front server does not pass it on, the container is older than this
    // function, or `name` is no name of a header. Clients can send anything.
    std::optional<std::string_view> header(std::string_view name) {
        if (!internal::isToken(name)) {
            return std::nullopt;
        }
        std::string cgiName; // RFC 3875, section 4.1.18
        for (char c : name) {
            cgiName += c == '-' ? '_' : base::asciiUpper(c);
        }
        const bool isOfBody = cgiName == "CONTENT_TYPE" || cgiName == "CONTENT_LENGTH";
        return variable((isOfBody ? cgiName : "HTTP_" + cgiName).c_str());
    }

    // Returns the method, such as "GET", or an empty text.
    std::string_view method() { return view(m_raw.getMethod()).value_or(""); }

    // Returns the header Content-Type, or an empty text.
    std::string_view contentType() { return view(m_raw.getContextType()).value_or(""); }
    // Returns whether the content type is `type`, such as "application/json", whatever its
    // parameters are.
    bool hasContentType(std::string_view type) {
        std::string_view rest = contentType();
        return base::equalsIgnoringCase(internal::takeUntil(rest, ';'), type);
    }
    // Returns the announced length of the body; 0 if there is no body, or if the client sends
    // chunks and does not know the length.
    std::size_t contentLength() {
        const int length = m_raw.getContentLength();
        return length > 0 ? static_cast<std::size_t>(length) : 0;
    }

    // Returns the whole body; or TooLong if it has more than `maxBytes`, or Incomplete if the
    // client has gone before its end. Call once, and for no form; see BodyReader.
    Reading<std::string> body(std::size_t maxBytes) {
        BodyReader reader(m_raw, maxBytes);
        std::string whole;
        whole.reserve(std::min(contentLength(), maxBytes));
        for (auto piece = reader.next(); !piece.empty(); piece = reader.next()) {
            whole += piece;
        }
        return reader.problem() == Problem::None ? Reading<std::string>(std::move(whole))
                                                 : Reading<std::string>(reader.problem());
    }
    // Returns a reader of at most `maxBytes` of the body, for large ones.
    BodyReader bodyReader(std::uint64_t maxBytes) { return {m_raw, maxBytes}; }

    // Returns the one of `choices` that suits the client best: as setLanguage() says, else as the
    // browser's settings say; the first one if none does. `choices` must not be empty. The result
    // is an element of `choices`.
    std::string_view language(std::initializer_list<std::string_view> choices) {
        assert(choices.size() > 0 && "`choices` must not be empty");
        char none = 0;
        const char* chosen = m_raw.getLocale(&none, 0); // null unless setLanguage() was called
        const char* accepted = chosen ? chosen : m_raw.getAcceptLanguage();
        return preferredLanguage(accepted ? accepted : "", choices).value_or(*choices.begin());
    }
    // Sets the language of this request, for language() and the template variable "local". Call at
    // most once per request, best in a listener.
    void setLanguage(const std::string& language) { m_raw.setLocal(language.c_str()); }

    // Returns whether the browser uses HTTPS, as far as the front server says so.
    bool isHttps() {
        const auto https = variable("HTTPS");
        return https == "on" || https == "1";
    }

    // Returns the value of the first cookie of this name, or nothing.
    std::optional<std::string_view> cookie(const char* name) {
        if (m_newCookie && m_newCookie->first == name) {
            return m_newCookie->second;
        }
        if (!m_cookies) {
            m_cookies.reset(CGI_get_cookie(nullptr, m_raw.getCookie()));
        }
        return view(CGI_lookup(m_cookies.get(), name));
    }

    // Returns whether the method is POST. Change data only then: links and prefetching use GET.
    bool isPost() { return method() == "POST"; }

    // Returns the client's IP address, or an empty text if the front server sends none.
    std::string_view remoteAddress() { return view(m_raw.getRemoteAddr()).value_or(""); }

    // Returns the id of the requested page, which is the parameter "p", or an empty text. A zero
    // byte follows the text.
    std::string_view page() { return parameter("p").value_or(""); }

    // Returns the client's session, or null if it has none or the session has expired.
    HttpSession* session() { return m_raw.getSession(false); }
    // Returns the client's session; creates one if it has none, and sends its cookie with the
    // response: call it before the first byte of the body.
    HttpSession& createSession() { return *m_raw.getSession(true); }

    // Receives what is left of the body and discards it. Call it before you refuse the upload of a
    // user who has signed in: curl sends no more once it sees the refusal, and Apache sends the end
    // of the response only after the whole body, so both would wait until Apache's time-out.
    void discardBody() {
        char discarded[4096];
        while (m_raw.receiveBlockData(discarded, sizeof discarded) > 0) {
        }
    }

private:
    friend class SignIns;
    friend std::string formToken(Request& request, Response& response);
    friend bool isFromForm(Request& request);

    struct FreeList {
        void operator()(CGI_varlist* list) const { CGI_free_varlist(list); }
    };

    static std::optional<std::string_view> view(const char* text) {
        return text ? std::optional<std::string_view>(text) : std::nullopt;
    }

    HttpRequest& m_raw;
    std::unique_ptr<CGI_varlist, FreeList> m_cookies;
    // The name and value of a cookie that this request's response sets: cookie() finds it already,
    // as session() finds a session that was created during the request.
    std::optional<std::pair<std::string, std::string>> m_newCookie;
    // The token of the request's forms, if it is not the one that the browser has sent: that of the
    // sign-in, or one that the response gives to the browser; see forms.h.
    std::string m_formToken;
    // Whose find() has set that token; null if none.
    const SignIns* m_signedInTo = nullptr;
};

} // namespace kit

#endif
