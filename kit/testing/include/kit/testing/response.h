// What the client gets, read from what a plug-in wrote.
#ifndef KIT_TESTING_RESPONSE_H
#define KIT_TESTING_RESPONSE_H

#include <optional>
#include <string>
#include <vector>

namespace kit::testing {

// A name and its value. Header and attribute names are looked up in any case.
struct NamedValue {
    // Without blanks around them.
    std::string name;
    std::string value;
};

// A cookie as it was set, read as browsers do (RFC 6265, section 5.2).
struct Cookie {
    // Without blanks around them.
    std::string name;
    std::string value;
    std::vector<NamedValue> attributes; // "Max-Age=0" and "HttpOnly", the latter without a value

    // The value of the first attribute of this name.
    std::optional<std::string> attribute(const std::string& name) const;
};

struct Response {
    // Reads what was written to the front server: header lines, an empty line, the body. A line
    // ends at its line feed; blanks around names and values are dropped, as front servers do.
    //   Failure  std::runtime_error for what a front server answers with an error of its own: no
    //            empty line, a line without a colon, a status that is not a number of three digits.
    explicit Response(const std::string& written);

    int status;                      // of the header Status; else 302 with a Location, or 200
    std::vector<NamedValue> headers; // as they were written, in their order
    std::string body;                // all that follows the empty line
    bool passed = true; // false when the listener of a ListenerRunner ended the request

    // The first header of this name.
    std::optional<std::string> header(const std::string& name) const;

    // The cookies that were set, in their order, and the last of this name.
    std::vector<Cookie> cookies() const;
    std::optional<Cookie> cookie(const std::string& name) const;
};

} // namespace kit::testing

#endif
