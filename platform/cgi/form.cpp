// Reads urlencoded forms and raw bodies.
#include "base/ascii.h"
#include "decode.h"
#include "header_value.h"

#include <fcgiapp.h>

#include <algorithm>
#include <climits>
#include <string>
#include <string_view>

namespace {

// Returns whether the body is an urlencoded form. Front servers pass on an empty type for a missing
// one.
bool isFormType(const char* contentType) {
    if (contentType == nullptr)
        return true;
    const std::string_view type = cgi::headerType(contentType);
    return type.empty() || base::equalsIgnoringCase(type, "application/x-www-form-urlencoded");
}

// A body of a known length, which must be at most kMaxFormBytes.
class Body {
public:
    explicit Body(std::size_t length) : m_length(length) {}

    // Returns false when the body is shorter or longer. Throws std::bad_alloc.
    bool read(FCGX_Stream* in) {
        const bool isRead = isSmall() ? readInto(m_small, m_length, in) : readLarge(in);
        return isRead && FCGX_GetChar(in) == EOF;
    }

    std::string_view text() const {
        return isSmall() ? std::string_view(m_small, m_length) : m_large;
    }

private:
    bool isSmall() const { return m_length <= sizeof m_small; }

    // Memory is allocated as bytes arrive, so a client cannot claim memory by announcing them.
    bool readLarge(FCGX_Stream* in) {
        while (m_large.size() < m_length) {
            const std::size_t size = m_large.size();
            const std::size_t wanted = std::min(sizeof m_small, m_length - size);
            m_large.resize(size + wanted);
            if (!readInto(&m_large[size], wanted, in))
                return false;
        }
        return true;
    }

    static bool readInto(char* buffer, std::size_t size, FCGX_Stream* in) {
        const int wanted = static_cast<int>(size);
        return FCGX_GetStr(buffer, wanted, in) == wanted;
    }

    const std::size_t m_length;
    char m_small[cgi::kReadBytes];
    std::string m_large;
};

} // namespace

CGI_varlist* CGI_get_post(CGI_varlist* list, const char* content_type, int content_length,
                          FCGX_Stream* in) {
    if (in == nullptr || !isFormType(content_type) || content_length < 0 ||
        static_cast<std::size_t>(content_length) > cgi::kMaxFormBytes)
        return list;
    return cgi::addTo(list, [content_length, in](std::size_t room) {
        Body body(static_cast<std::size_t>(content_length));
        return body.read(in) ? cgi::decodeFields(body.text(), room) : nullptr;
    });
}

int CGI_readblock(char* buffer, unsigned long size, FCGX_Stream* in) {
    if (buffer == nullptr || in == nullptr)
        return 0;
    const int count = static_cast<int>(std::min<unsigned long>(size, INT_MAX));
    return std::max(FCGX_GetStr(buffer, count, in), 0);
}
