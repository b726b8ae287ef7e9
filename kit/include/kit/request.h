// Reading one request.
#ifndef KIT_REQUEST_H
#define KIT_REQUEST_H

#include "HttpRequest.h"
#include "cgi.h"
#include "kit/reading.h"

#include <cstring>
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
    bool isPost() { return view(m_raw.getMethod()) == "POST"; }

    // Returns the client's IP address, or an empty text if the front server sends none.
    std::string_view remoteAddress() { return view(m_raw.getRemoteAddr()).value_or(""); }

    // Returns the id of the requested page, which is the parameter "p", or an empty text. A zero
    // byte follows the text.
    std::string_view page() { return parameter("p").value_or(""); }

    // Returns the client's session, or null if it has none or the session has expired. Creates
    // none: call raw().getSession(true) for that.
    HttpSession* session() { return m_raw.getSession(false); }

    // Receives what is left of the body and discards it. Call it before you refuse the upload of a
    // user who has signed in: when curl sees the refusal it sends no more, and Apache, which waits
    // for the rest before it sends the end of the response, holds both up for a minute.
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
