// Reads urlencoded forms and raw bodies.
#include "base/ascii.h"
#include "decode.h"
#include "header_value.h"

#include <fcgiapp.h>

#include <algorithm>
#include <climits>

namespace {

// Returns whether the body is an urlencoded form. Front servers pass on an empty type for a missing
// one.
bool isFormType(const char* contentType) {
    if (contentType == nullptr)
        return true;
    const std::string_view type = cgi::headerType(contentType);
    return type.empty() || base::equalsIgnoringCase(type, "application/x-www-form-urlencoded");
}

// Reads a body of exactly `length` bytes. Returns false when it is shorter or longer. Memory is
// allocated as bytes arrive, so a client cannot claim memory by announcing them.
bool readBody(std::string& body, std::size_t length, FCGX_Stream* in) {
    char piece[cgi::kReadBytes];
    while (body.size() < length) {
        const std::size_t wanted = std::min(sizeof piece, length - body.size());
        const int count = FCGX_GetStr(piece, static_cast<int>(wanted), in);
        if (count <= 0)
            return false;
        body.append(piece, static_cast<std::size_t>(count));
    }
    return FCGX_GetChar(in) == EOF;
}

} // namespace

CGI_varlist* CGI_get_post(CGI_varlist* list, const char* content_type, int content_length,
                          FCGX_Stream* in) {
    if (in == nullptr || !isFormType(content_type) || content_length < 0 ||
        static_cast<std::size_t>(content_length) > cgi::kMaxFormBytes)
        return list;
    return cgi::addTo(list, [content_length, in](std::size_t room) {
        std::string body;
        const bool complete = readBody(body, static_cast<std::size_t>(content_length), in);
        return complete ? cgi::decodeFields(body, room) : nullptr;
    });
}

int CGI_readblock(char* buffer, unsigned long size, FCGX_Stream* in) {
    if (buffer == nullptr || in == nullptr)
        return 0;
    const int count = static_cast<int>(std::min<unsigned long>(size, INT_MAX));
    return std::max(FCGX_GetStr(buffer, count, in), 0);
}
