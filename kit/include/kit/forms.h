// Forms: a token against cross-site request forgery (CSRF), and reading fields in such a way that
// the form can be shown again with what was entered and what is wrong with it.
//
//     kit::Form form(request);
//     const auto name = form.text("name", 1, 40);
//     const auto count = form.number("count", 1, 5);
//     if (!kit::isFromForm(request) || !form.isValid()) {
//         response.status(422);
//         response.show("order.html", form.fill(kit::Variables().set(
//             "token", kit::formToken(request, response))));
//     }
//
// In the template:
//
//     <form method="post" action="/servlet?p=order&amp;q=send">
//         <input type="hidden" name="token" value="<TMPL_VAR name="token">">
//         <input name="name" value="<TMPL_VAR name="name">">
//         <TMPL_IF name="nameError">The name <TMPL_VAR name="nameError">.</TMPL_IF>
#ifndef KIT_FORMS_H
#define KIT_FORMS_H

#include "kit/reading.h"
#include "kit/request.h"
#include "kit/response.h"
#include "kit/secrets.h"
#include "kit/variables.h"

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kit {

namespace internal {

// The cookie with the token of a browser whose user is not signed in.
constexpr const char* kTokenCookie = "formToken";

// Returns whether the request is a POST with this token as the parameter "token". False for a text
// that is no token, such as an empty one.
inline bool isPostWith(std::string_view token, Request& request) {
    return request.isPost() && isRandomToken(token) &&
           equalSecrets(request.parameter("token").value_or(""), token);
}

} // namespace internal

// Returns the CSRF token for the forms in the response: put it into each as the hidden field
// "token". It is that of the sign-in, if SignIns::find() has found one for this request; otherwise
// the browser's own, which is set as a cookie (HttpOnly, SameSite=Strict) unless the browser has
// it. So call it before the first byte of the body. Empty, so that isFromForm() will return false,
// if the system has no random bytes.
inline std::string formToken(Request& request, Response& response) {
    if (!request.m_formToken.empty()) {
        return request.m_formToken;
    }
    const std::string_view known = request.cookie(internal::kTokenCookie).value_or("");
    if (isRandomToken(known)) {
        return std::string(known);
    }
    request.m_formToken = randomToken();
    if (!request.m_formToken.empty()) {
        Cookie cookie{internal::kTokenCookie, request.m_formToken};
        cookie.sameSite = Cookie::SameSite::Strict;
        response.cookie(cookie);
    }
    return request.m_formToken;
}

// Returns whether the request is a POST with the token that formToken() returned for this browser,
// or this sign-in, as the parameter "token": in the form, in the query, or in a field of an upload
// that has been received. Call it before you change anything, so that a page of another site cannot
// make the browser change something. Pages for signed-in users call SignIns::find() first, without
// which the token of the sign-in is not accepted.
inline bool isFromForm(Request& request) {
    const std::string_view own = request.m_formToken.empty()
                                     ? request.cookie(internal::kTokenCookie).value_or("")
                                     : request.m_formToken;
    return internal::isPostWith(own, request);
}

// Reads the fields of a form, and remembers what was sent and what is wrong with it.
//   Lifetime  must not outlive the request; nor must the texts that it returns.
//   Threads   one: the thread that serves the request.
class Form {
public:
    // `request` must outlive this object.
    explicit Form(Request& request) : m_request(request) {}
    Form(const Form&) = delete;
    Form& operator=(const Form&) = delete;

    // Return the field as Request's operations of the same names do, and remember it for fill().
    template <typename Number>
    Reading<Number> number(const char* name, Number min, Number max) {
        return remember(name, m_request.number<Number>(name, min, max));
    }
    Reading<std::string_view> text(const char* name, std::size_t min, std::size_t max) {
        return remember(name, m_request.text(name, min, max));
    }
    Reading<std::string_view> choice(const char* name,
                                     std::initializer_list<std::string_view> choices) {
        return remember(name, m_request.choice(name, choices));
    }
    bool isChecked(const char* name) {
        const bool checked = m_request.isChecked(name);
        m_fields.push_back({name, checked ? "1" : "", ""});
        return checked;
    }
    // Returns the field as text() does, but fill() does not send it back to the browser.
    Reading<std::string_view> password(const char* name, std::size_t min, std::size_t max) {
        const auto reading = text(name, min, max);
        m_fields.back().sent = "";
        return reading;
    }

    // Marks a field that has been read as wrong for a reason that only the page knows, unless it is
    // wrong already. `error` is a predicate, such as "is taken".
    void reject(const char* name, const std::string& error) {
        for (Field& field : m_fields) {
            if (field.name == name && field.error.empty()) {
                field.error = error;
            }
        }
    }

    // Returns whether nothing is wrong with the fields read so far.
    bool isValid() const { return countErrors() == 0; }

    // Sets for each field that was read the variable NAME to the text that was sent ("1" for a
    // checkbox that was ticked), and, if it is wrong, NAMEError to the problem in English, such as
    // "is missing". Sets errorCount to the number of fields that are wrong, unless there is none.
    // Returns `variables`.
    Variables& fill(Variables& variables) const {
        for (const Field& field : m_fields) {
            variables.set(field.name.c_str(), field.sent);
            if (!field.error.empty()) {
                variables.set((field.name + "Error").c_str(), field.error);
            }
        }
        return isValid() ? variables : variables.set("errorCount", countErrors());
    }
    Variables&& fill(Variables&& variables) const { return std::move(fill(variables)); }

private:
    struct Field {
        std::string name;
        std::string_view sent;
        std::string error; // empty: none
    };

    template <typename T>
    Reading<T> remember(const char* name, Reading<T> reading) {
        const Problem problem = reading.problem();
        m_fields.push_back({name, m_request.parameter(name).value_or(""),
                            problem == Problem::None ? "" : describe(problem)});
        return reading;
    }

    std::ptrdiff_t countErrors() const {
        return std::count_if(m_fields.begin(), m_fields.end(),
                             [](const Field& field) { return !field.error.empty(); });
    }

    Request& m_request;
    std::vector<Field> m_fields;
};

} // namespace kit

#endif
