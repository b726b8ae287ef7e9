// The response that the client receives, parsed from what a plug-in wrote.
#ifndef KIT_TESTING_RESPONSE_H
#define KIT_TESTING_RESPONSE_H

#include <optional>
#include <string>
#include <vector>

namespace kit::testing {

// A header, or an attribute of a cookie. Look-ups ignore the case of ASCII letters in names.
struct NamedValue {
    // Without surrounding blanks.
    std::string name;
    std::string value;
};

// A cookie as it was set, parsed as browsers do (RFC 6265, section 5.2).
struct Cookie {
    // Without surrounding blanks.
    std::string name;
    std::string value;
    std::vector<NamedValue> attributes; // such as "Max-Age=0", and "HttpOnly" with an empty value

    // Returns the value of the last attribute with this name, or nothing.
    std::optional<std::string> attribute(const std::string& name) const;
};

struct Response {
    // Parses what was written to the front server: header lines, an empty line, the body. A line
    // ends at its line feed. Removes blanks around names and values, as front servers do.
    //   Errors  std::runtime_error for output that a front server rejects: no empty line, a line
    //           without a colon, a status that is not a number of three digits.
    explicit Response(const std::string& written);

    int status; // from the header Status; without it 302 if there is a Location, else 200
    std::vector<NamedValue> headers; // in the order in which they were written
    std::string body;                // everything after the empty line
    bool passed = true;              // false if the listener of a ListenerRunner ended the request

    // Returns the value of the first header with this name, or nothing.
    std::optional<std::string> header(const std::string& name) const;

    // Returns the cookies that were set, in order.
    std::vector<Cookie> cookies() const;
    // Returns the last cookie with this name, or nothing. The case of letters counts.
    std::optional<Cookie> cookie(const std::string& name) const;
};

} // namespace kit::testing

#endif
