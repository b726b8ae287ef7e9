// One request, in ordinary C++.
#ifndef KIT_REQUEST_H
#define KIT_REQUEST_H

#include "HttpRequest.h"
#include "cgi.h"
#include "kit/reading.h"

#include <cstring>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace kit {

// Wraps the container's request for one call. All texts live until the request is served.
class Request {
public:
    // `raw` must outlive it.
    explicit Request(HttpRequest& raw) : m_raw(raw) {}
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    // The container's object: for what has no shorter form here.
    HttpRequest& raw() { return m_raw; }

    // The first value of a field of the form, of the query, or of an upload that has been received,
    // in that order. Absent is not the same as empty.
    std::optional<std::string_view> parameter(const char* name) {
        return view(m_raw.getParameter(name));
    }
    // All its values; none when it is absent.
    std::vector<std::string_view> parameters(const char* name) {
        std::vector<std::string_view> values;
        for (char** value = m_raw.getParameterValues(name); value && *value; ++value) {
            values.emplace_back(*value);
        }
        return values;
    }

    // The parameter as a number from `min` to `max`, a line of `min` to `max` characters, one of
    // `choices`; or what is wrong with it. See reading.h.
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
    // Whether a checkbox of that name was ticked: browsers leave out the others.
    bool isChecked(const char* name) { return parameter(name).has_value(); }

    // The first cookie of that name.
    std::optional<std::string_view> cookie(const char* name) {
        if (!m_cookies) {
            m_cookies.reset(CGI_get_cookie(nullptr, m_raw.getCookie()));
        }
        return view(CGI_lookup(m_cookies.get(), name));
    }

    // POST: the request may change something. Links and prefetching use GET.
    bool isPost() { return view(m_raw.getMethod()) == "POST"; }

    // The client's address, empty when the front server does not tell.
    std::string_view remoteAddress() { return view(m_raw.getRemoteAddr()).value_or(""); }

    // The page that is asked for, the parameter "p".
    std::string_view page() { return parameter("p").value_or(""); }

    // The live session of this client, or null.
    HttpSession* session() { return m_raw.getSession(false); }

private:
    struct FreeList {
        void operator()(CGI_varlist* list) const { CGI_free_varlist(list); }
    };

    static std::optional<std::string_view> view(const char* text) {
        return text ? std::optional<std::string_view>(text) : std::nullopt;
    }

    HttpRequest& m_raw;
    std::unique_ptr<CGI_varlist, FreeList> m_cookies;
};

} // namespace kit

#endif
