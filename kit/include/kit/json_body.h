// Reading JSON that a client sent.
//
//     const kit::JsonBody body = kit::readJson(request);
//     if (!body) {
//         return body.refuse(response);
//     }
//     const auto title = (*body)["title"].text(1, 80);
#ifndef KIT_JSON_BODY_H
#define KIT_JSON_BODY_H

#include "kit/json.h"
#include "kit/json_builder.h"
#include "kit/request.h"
#include "kit/response.h"

#include <cassert>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#if !__has_include(<nlohmann/json.hpp>)
#error "kit/json_body.h needs nlohmann/json.hpp; on Debian, install nlohmann-json3-dev"
#endif
#include <nlohmann/json.hpp>

namespace kit {

// What readJson() accepts. A value occupies sizeof(Json) bytes of memory, and as little as two
// bytes of the body; an array that grows needs up to three times its memory for a moment.
struct JsonLimits {
    std::size_t maxBytes = 64 * 1024; // the front servers here pass on no more of JSON
    std::size_t maxDepth = 16;        // of arrays and objects inside each other
};

// Either the JSON that a client sent, or why there is none.
class JsonBody {
public:
    // With a value.
    explicit JsonBody(Json value) : m_value(std::move(value)) {}
    // Without one. `status` is that of the response to such a body.
    JsonBody(int status, std::string error) : m_status(status), m_error(std::move(error)) {}

    // Returns whether there is a value.
    explicit operator bool() const { return m_status == 200; }
    // Returns the value; null if there is none.
    const Json& operator*() const { return m_value; }
    // Returns what is wrong and where, without a full stop; empty if there is a value.
    const std::string& error() const { return m_error; }

    // Answers with the status for what is wrong, and with {"error": error()}. There must be no
    // value.
    void refuse(Response& response) const {
        assert(!*this && "there must be no value");
        response.status(m_status).json({{"error", m_error}});
    }

private:
    Json m_value;
    int m_status = 200;
    std::string m_error;
};

// Reads JSON (RFC 8259) in UTF-8. Two members of one object must not have the same name.
inline JsonBody parseJson(std::string_view text, const JsonLimits& limits = {}) {
    if (text.size() > limits.maxBytes) {
        return {413, "more than " + std::to_string(limits.maxBytes) + " bytes"};
    }
    if (const std::size_t zero = text.find('\0'); zero != text.npos) { // ends the parser's text
        return {400, internal::placeIn(text, zero) + ": a zero byte"};
    }
    internal::JsonBuilder builder(limits.maxDepth);
    if (!nlohmann::json::sax_parse(text.begin(), text.end(), &builder)) {
        return {400, builder.errorIn(text)};
    }
    return JsonBody(builder.takeRoot());
}

// Reads the body of the request. Its content type must be application/json, which a page of another
// site cannot send without asking the device first (CORS): otherwise the status of refuse() is 415.
// It is 413 for a body that is too large, and 400 for one that is wrong or was cut off.
inline JsonBody readJson(Request& request, const JsonLimits& limits = {}) {
    if (!request.hasContentType("application/json")) {
        return {415, "the content type is not application/json"};
    }
    const auto body = request.body(limits.maxBytes);
    if (body.problem() == Problem::TooLong) {
        return {413, "more than " + std::to_string(limits.maxBytes) + " bytes"};
    }
    if (!body) {
        return {400, std::string("the body ") + describe(body.problem())};
    }
    return parseJson(*body, limits);
}

} // namespace kit

#endif
