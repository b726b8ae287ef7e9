// A request as a front server hands it on, in one readable expression:
//
//     get("/servlet?p=hello&name=you").header("Accept-Language", "de")
//     post("/servlet?p=login&q=login").form({{"user", "a&b"}, {"password", "x"}})
//     post("/servlet?p=upgrade").multipart({field("token", "7"), file("firmware", "a.img", bytes)})
#ifndef KIT_TESTING_REQUEST_H
#define KIT_TESTING_REQUEST_H

#include <kit/testing/memory_stream.h>

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kit::testing {

// Where requests come from unless they say otherwise.
inline constexpr char kClientAddress[] = "192.0.2.7";

// Names and values, not encoded, in the order of the form.
using Fields = std::vector<std::pair<std::string, std::string>>;

// One part of a multipart form.
struct Part {
    std::string name;                    // the field's
    std::string content;                 // not encoded
    std::optional<std::string> fileName; // none: a text field
};
// A text field, and a file.
Part field(std::string name, std::string text);
Part file(std::string name, std::string fileName, std::string content);

// A value: every operation leaves the request alone and gives a changed one. It has the CGI
// variables that lighttpd sends for its method, its URI and its body.
//   Failure  std::invalid_argument for a variable whose name is empty or holds "=", for a zero byte
//            in a name or a value, and for pieces of no bytes.
class Request {
public:
    // `uri` is sent as it is, whatever a browser would make of it.
    Request(std::string method, const std::string& uri);

    // A header as the client sends it: "Accept-Language" arrives as HTTP_ACCEPT_LANGUAGE,
    // "Content-Type" as CONTENT_TYPE, and so on.
    [[nodiscard]] Request header(const std::string& name, std::string value) const;
    // One more cookie in the Cookie header. The value is sent as it is.
    [[nodiscard]] Request cookie(const std::string& name, const std::string& value) const;
    // The client's address.
    [[nodiscard]] Request from(std::string address) const;

    // A CGI variable under its own name, in the place of what it would be; with CONTENT_LENGTH a
    // length that the body does not have.
    [[nodiscard]] Request variable(const std::string& name, std::string value) const;
    // Without a variable, whether or not it would be sent.
    [[nodiscard]] Request without(const std::string& name) const;

    // The body and its content type; the last of the three that is called counts.
    [[nodiscard]] Request form(const Fields& fields) const;
    [[nodiscard]] Request multipart(const std::vector<Part>& parts) const;
    [[nodiscard]] Request body(std::string bytes, std::string contentType) const;

    // Delivers the body in pieces of at most `size` bytes.
    [[nodiscard]] Request inPieces(std::size_t size) const;
    // The client hangs up after `size` bytes of the body; the length that it announced stays.
    [[nodiscard]] Request cutOffAfter(std::size_t size) const;

    // The value of a CGI variable as it will be sent, if it will.
    std::optional<std::string> valueOf(const std::string& variable) const;

    // The FastCGI request, for those who call the container themselves.
    MemoryRequest inMemory() const;

private:
    void set(const std::string& name, std::string value);

    std::map<std::string, std::string> m_variables;
    std::string m_body;
    std::size_t m_pieceSize = 8192;
    std::size_t m_delivered = std::string::npos;
};

// A request of that method for `uri`.
Request get(const std::string& uri);
Request post(const std::string& uri);

} // namespace kit::testing

#endif
