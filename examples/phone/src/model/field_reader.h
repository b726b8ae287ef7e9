// Reads the fields of a form one by one and collects the errors.
#ifndef MODEL_FIELD_READER_H
#define MODEL_FIELD_READER_H

#include "model/field_error.h"

#include <cstddef>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace phone {

// Checks any text that a user entered. Returns notUtf8, badCharacters (control characters),
// required (empty although `least` is not 0), tooShort or tooLong; nothing if the text is valid.
std::optional<FieldError> checkText(const char* field, std::string_view text, std::size_t least,
                                    std::size_t most);

// The maximum length of a host name without the root (RFC 1035, section 2.3.4).
constexpr std::size_t kMaxHost = 253;

// Returns whether `text` is a host name (RFC 1123, section 2.1) or an IP address, of at most
// kMaxHost characters.
bool isHost(std::string_view text);
// Returns whether `text` is one label of a host name.
bool isHostLabel(std::string_view text);

// Returns the address as inet_ntop(3) writes it; empty if `text` is no IPv4 or IPv6 address.
std::string canonicalAddress(const std::string& text);

// The value returned for a field with an error must not be used. `values` (see settings.h) must
// outlive the reader.
class FieldReader {
public:
    explicit FieldReader(const std::map<std::string, std::string>& values) : m_values(values) {}

    std::string text(const char* field, std::size_t least, std::size_t most);
    // Returns the text as it is, including white space around it.
    std::string secret(const char* field, std::size_t most);
    bool box(const char* field);
    int number(const char* field, int least, int most);
    std::string choice(const char* field, std::initializer_list<const char*> choices);

    void fail(const char* field, ErrorCode code, std::optional<long> limit = std::nullopt);
    bool failed(const char* field) const;
    const Errors& errors() const { return m_errors; }

private:
    std::string_view raw(const char* field) const;
    std::string checked(const char* field, std::string_view text, std::size_t least,
                        std::size_t most);

    const std::map<std::string, std::string>& m_values;
    Errors m_errors;
};

} // namespace phone

#endif
