#include <kit/testing/request.h>

#include "base/ascii.h"

#include <cctype>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace kit::testing {
namespace {

const char kFormType[] = "application/x-www-form-urlencoded";
const char kBadVariable[] =
    "the name of a request's variable must not be empty or contain \"=\", and neither the name nor "
    "the value may contain a zero byte";

// URL Standard, section 5.2.
std::string formEncoded(const std::string& text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool kept = base::isAsciiLetter(c) || base::isAsciiDigit(c) || c == '*' || c == '-' ||
                          c == '.' || c == '_';
        char escaped[4];
        std::snprintf(escaped, sizeof escaped, "%%%02X", static_cast<unsigned int>(byte));
        result += kept ? std::string(1, c) : c == ' ' ? "+" : escaped;
    }
    return result;
}

// Quotes a name as browsers do in the header of a part (HTML Standard, multipart/form-data
// encoding).
std::string quoted(const std::string& name) {
    std::string result = "\"";
    for (const char c : name)
        result += c == '"' ? "%22" : c == '\r' ? "%0D" : c == '\n' ? "%0A" : std::string(1, c);
    return result + '"';
}

std::string partHeader(const Part& part) {
    std::string header = "Content-Disposition: form-data; name=" + quoted(part.name);
    if (part.fileName)
        header +=
            "; filename=" + quoted(*part.fileName) + "\r\nContent-Type: application/octet-stream";
    return header + "\r\n\r\n";
}

// Returns a boundary that no part contains.
std::string boundaryFor(const std::vector<Part>& parts) {
    std::string boundary = "----FormBoundary";
    for (const Part& part : parts)
        while (part.content.find(boundary) != std::string::npos)
            boundary += '0';
    return boundary;
}

// Returns the name of the CGI variable for a header (RFC 3875, section 4.1.18).
std::string cgiVariable(const std::string& header) {
    std::string name;
    for (const char c : header)
        name += c == '-' ? '_' : static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return name == "CONTENT_TYPE" || name == "CONTENT_LENGTH" ? name : "HTTP_" + name;
}

} // namespace

Part field(std::string name, std::string text) {
    return {std::move(name), std::move(text), std::nullopt};
}

Part file(std::string name, std::string fileName, std::string content) {
    return {std::move(name), std::move(content), std::move(fileName)};
}

Request::Request(std::string method, const std::string& uri) {
    const std::size_t mark = uri.find('?');
    const std::string query = mark != std::string::npos ? uri.substr(mark + 1) : "";
    const std::pair<const char*, std::string> variables[] = {
        {"CONTENT_LENGTH", "0"},
        {"DOCUMENT_ROOT", "/phone/www"},
        {"FCGI_ROLE", "RESPONDER"},
        {"GATEWAY_INTERFACE", "CGI/1.1"},
        {"HTTP_HOST", "192.0.2.1"},
        {"QUERY_STRING", query},
        {"REMOTE_ADDR", kClientAddress},
        {"REMOTE_PORT", "49152"},
        {"REQUEST_METHOD", std::move(method)},
        {"REQUEST_SCHEME", "http"},
        {"REQUEST_URI", uri},
        {"SCRIPT_NAME", uri.substr(0, mark)},
        {"SERVER_ADDR", "192.0.2.1"},
        {"SERVER_NAME", "192.0.2.1"},
        {"SERVER_PORT", "80"},
        {"SERVER_PROTOCOL", "HTTP/1.1"},
        {"SERVER_SOFTWARE", "testkit"},
    };
    for (const auto& [name, value] : variables)
        set(name, value);
}

void Request::set(const std::string& name, std::string value) {
    const std::string forbidden("=\0", 2);
    if (name.empty() || name.find_first_of(forbidden) != std::string::npos ||
        value.find('\0') != std::string::npos)
        throw std::invalid_argument(kBadVariable);
    m_variables[name] = std::move(value);
}

Request Request::variable(const std::string& name, std::string value) const {
    Request changed = *this;
    changed.set(name, std::move(value));
    return changed;
}

Request Request::without(const std::string& name) const {
    Request changed = *this;
    changed.m_variables.erase(name);
    return changed;
}

Request Request::header(const std::string& name, std::string value) const {
    if (name.empty())
        throw std::invalid_argument(kBadVariable);
    return variable(cgiVariable(name), std::move(value));
}

Request Request::cookie(const std::string& name, const std::string& value) const {
    const std::optional<std::string> before = valueOf("HTTP_COOKIE");
    return header("Cookie", (before ? *before + "; " : "") + name + '=' + value);
}

Request Request::from(std::string address) const {
    return variable("REMOTE_ADDR", std::move(address));
}

Request Request::form(const Fields& fields) const {
    std::string encoded;
    for (const auto& [name, value] : fields)
        encoded += (encoded.empty() ? "" : "&") + formEncoded(name) + '=' + formEncoded(value);
    return body(std::move(encoded), kFormType);
}

Request Request::multipart(const std::vector<Part>& parts) const {
    const std::string boundary = boundaryFor(parts);
    std::string encoded;
    for (const Part& part : parts)
        encoded += "--" + boundary + "\r\n" + partHeader(part) + part.content + "\r\n";
    encoded += "--" + boundary + "--\r\n";
    return body(std::move(encoded), "multipart/form-data; boundary=" + boundary);
}

Request Request::body(std::string bytes, std::string contentType) const {
    Request changed = variable("CONTENT_TYPE", std::move(contentType))
                          .variable("CONTENT_LENGTH", std::to_string(bytes.size()));
    changed.m_body = std::move(bytes);
    return changed;
}

Request Request::inPieces(std::size_t size) const {
    if (size == 0)
        throw std::invalid_argument("the size of a piece must not be 0");
    Request changed = *this;
    changed.m_pieceSize = size;
    return changed;
}

Request Request::cutOffAfter(std::size_t size) const {
    Request changed = *this;
    changed.m_delivered = size;
    return changed;
}

std::optional<std::string> Request::valueOf(const std::string& variable) const {
    const auto found = m_variables.find(variable);
    return found != m_variables.end() ? std::optional(found->second) : std::nullopt;
}

Request Request::onceRead(std::function<void()> action) const {
    Request changed = *this;
    changed.m_onceRead = std::move(action);
    return changed;
}

MemoryRequest Request::inMemory() const {
    std::vector<std::string> environment;
    for (const auto& [name, value] : m_variables)
        environment.emplace_back(name).append("=").append(value);
    return MemoryRequest(std::move(environment), m_body.substr(0, m_delivered), m_pieceSize,
                         m_onceRead);
}

Request get(const std::string& uri) {
    return Request("GET", uri);
}

Request post(const std::string& uri) {
    return Request("POST", uri);
}

} // namespace kit::testing
