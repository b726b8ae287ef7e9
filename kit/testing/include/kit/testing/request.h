// Builds a request as a front server passes it on, in one readable expression:
//
//     get("/servlet?p=hello&name=you").header("Accept-Language", "de")
//     post("/servlet?p=login&q=login").form({{"user", "a&b"}, {"password", "x"}})
//     post("/servlet?p=upgrade").multipart({field("token", "7"), file("firmware", "a.img", bytes)})
#ifndef KIT_TESTING_REQUEST_H
#define KIT_TESTING_REQUEST_H

#include <kit/testing/memory_stream.h>

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kit::testing {

// The client's address of requests without from().
inline constexpr char kClientAddress[] = "192.0.2.7";

// Names and values, not encoded, in the form's order.
using Fields = std::vector<std::pair<std::string, std::string>>;

// One part of a multipart form.
struct Part {
    std::string name;                    // of the field
    std::string content;                 // not encoded
    std::optional<std::string> fileName; // unset for a text field
};
// Returns a text field.
Part field(std::string name, std::string text);
// Returns a file.
Part file(std::string name, std::string fileName, std::string content);

// An immutable request: every operation returns a changed copy. It has the CGI variables that
// lighttpd sends for its method, URI and body.
//   Errors  std::invalid_argument if the name of a variable is empty or contains "=", if a name or
//           value contains a zero byte, or if the size of a piece is 0.
class Request {
public:
    // `uri` is sent unchanged, even if a browser would escape it.
    Request(std::string method, const std::string& uri);

    // Sets a header that the client sends: "Accept-Language" arrives as HTTP_ACCEPT_LANGUAGE,
    // "Content-Type" as CONTENT_TYPE.
    [[nodiscard]] Request header(const std::string& name, std::string value) const;
    // Adds a cookie to the header Cookie. The value is sent unchanged.
    [[nodiscard]] Request cookie(const std::string& name, const std::string& value) const;
    // Sets the client's IP address.
    [[nodiscard]] Request from(std::string address) const;

    // Sets a CGI variable by its own name, replacing its value: for example CONTENT_LENGTH, to
    // announce a length that the body does not have.
    [[nodiscard]] Request variable(const std::string& name, std::string value) const;
    // Removes a CGI variable, if it is set.
    [[nodiscard]] Request without(const std::string& name) const;

    // Set the body and its content type: a form, a multipart form, or any bytes. The last call of
    // the three counts.
    [[nodiscard]] Request form(const Fields& fields) const;
    [[nodiscard]] Request multipart(const std::vector<Part>& parts) const;
    [[nodiscard]] Request body(std::string bytes, std::string contentType) const;

    // Delivers the body in pieces of at most `size` bytes; `size` must not be 0.
    [[nodiscard]] Request inPieces(std::size_t size) const;
    // Ends the body after `size` bytes, as when the client hangs up; CONTENT_LENGTH stays as it is.
    [[nodiscard]] Request cutOffAfter(std::size_t size) const;
    // Calls `action` once the page has read the whole body, before it learns that there is no more:
    // for what happens while an upload arrives, such as signing out. The action must serve other
    // requests on another thread.
    [[nodiscard]] Request onceRead(std::function<void()> action) const;

    // Returns the value of a CGI variable, or nothing if it is not set.
    std::optional<std::string> valueOf(const std::string& variable) const;

    // Returns the FastCGI request, for tests that call the container directly.
    MemoryRequest inMemory() const;

private:
    void set(const std::string& name, std::string value);

    std::map<std::string, std::string> m_variables;
    std::string m_body;
    std::size_t m_pieceSize = 8192;
    std::size_t m_delivered = std::string::npos;
    std::function<void()> m_onceRead;
};

// Return a request with this method for `uri`.
Request get(const std::string& uri);
Request post(const std::string& uri);

} // namespace kit::testing

#endif
