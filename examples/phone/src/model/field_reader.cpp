#include "model/field_reader.h"

#include "base/ascii.h"
#include "kit/text.h"
#include "model/trimmed.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cassert>
#include <netinet/in.h>

namespace phone {
namespace {

constexpr std::size_t kMaxHostLabel = 63;

bool isHostCharacter(char character) {
    return base::isAsciiLetter(character) || base::isAsciiDigit(character) || character == '-';
}

// Returns whether `text` is a whole number, with or without a sign.
bool isNumber(std::string_view text) {
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        text.remove_prefix(1);
    }
    return !text.empty() && std::all_of(text.begin(), text.end(), base::isAsciiDigit);
}

// Returns the number in `text`, for which isNumber() must hold, limited to plus or minus one
// million: no field allows more.
long numberOf(std::string_view text) {
    assert(isNumber(text) && "isNumber() must hold");
    constexpr long kBeyond = 1000000;
    long number = 0;
    for (char character : text) {
        if (base::isAsciiDigit(character)) {
            number = std::min(number * 10 + (character - '0'), kBeyond);
        }
    }
    return text.front() == '-' ? -number : number;
}

} // namespace

std::optional<FieldError> checkText(const char* field, std::string_view text, std::size_t least,
                                    std::size_t most) {
    if (!kit::isUtf8(text)) {
        return FieldError{field, ErrorCode::notUtf8, std::nullopt};
    }
    if (kit::hasControlCharacter(text)) {
        return FieldError{field, ErrorCode::badCharacters, std::nullopt};
    }
    const std::size_t count = kit::characterCount(text);
    if (count == 0 && least > 0) {
        return FieldError{field, ErrorCode::required, std::nullopt};
    }
    if (count < least) {
        return FieldError{field, ErrorCode::tooShort, static_cast<long>(least)};
    }
    if (count > most) {
        return FieldError{field, ErrorCode::tooLong, static_cast<long>(most)};
    }
    return std::nullopt;
}

bool isHostLabel(std::string_view text) {
    return !text.empty() && text.size() <= kMaxHostLabel && text.front() != '-' &&
           text.back() != '-' && std::all_of(text.begin(), text.end(), isHostCharacter);
}

bool isHost(std::string_view text) {
    if (text.size() > kMaxHost) {
        return false;
    }
    if (!canonicalAddress(std::string(text)).empty()) {
        return true;
    }
    std::string_view label;
    while (true) {
        const std::size_t dot = text.find('.');
        label = text.substr(0, dot);
        if (!isHostLabel(label)) {
            return false;
        }
        if (dot == std::string_view::npos) {
            break;
        }
        text.remove_prefix(dot + 1);
    }
    // A last label of digits only would be an invalid IPv4 address.
    return !std::all_of(label.begin(), label.end(), base::isAsciiDigit);
}

std::string canonicalAddress(const std::string& text) {
    char canonical[INET6_ADDRSTRLEN];
    for (int family : {AF_INET, AF_INET6}) {
        in6_addr address{};
        if (text.find('\0') == std::string::npos &&
            inet_pton(family, text.c_str(), &address) == 1 &&
            inet_ntop(family, &address, canonical, sizeof canonical) != nullptr) {
            return canonical;
        }
    }
    return {};
}

std::string_view FieldReader::raw(const char* field) const {
    const auto found = m_values.find(field);
    return found != m_values.end() ? std::string_view(found->second) : std::string_view();
}

std::string FieldReader::checked(const char* field, std::string_view text, std::size_t least,
                                 std::size_t most) {
    if (const auto error = checkText(field, text, least, most)) {
        fail(field, error->code, error->limit);
    }
    return std::string(text);
}

std::string FieldReader::text(const char* field, std::size_t least, std::size_t most) {
    return checked(field, trimmed(raw(field)), least, most);
}

std::string FieldReader::secret(const char* field, std::size_t most) {
    return checked(field, raw(field), 0, most);
}

bool FieldReader::box(const char* field) {
    const std::string_view text = trimmed(raw(field));
    if (!text.empty() && text != "0" && text != "1") {
        fail(field, ErrorCode::badChoice);
    }
    return text == "1";
}

int FieldReader::number(const char* field, int least, int most) {
    const std::string_view text = trimmed(raw(field));
    if (text.empty()) {
        fail(field, ErrorCode::required);
        return least;
    }
    if (!isNumber(text)) {
        fail(field, ErrorCode::notANumber);
        return least;
    }
    const long number = numberOf(text);
    if (number < least) {
        fail(field, ErrorCode::tooSmall, least);
    } else if (number > most) {
        fail(field, ErrorCode::tooLarge, most);
    }
    return static_cast<int>(number);
}

std::string FieldReader::choice(const char* field, std::initializer_list<const char*> choices) {
    const std::string_view text = trimmed(raw(field));
    if (text.empty()) {
        fail(field, ErrorCode::required);
    } else if (std::find(choices.begin(), choices.end(), text) == choices.end()) {
        fail(field, ErrorCode::badChoice);
    }
    return std::string(text);
}

void FieldReader::fail(const char* field, ErrorCode code, std::optional<long> limit) {
    if (!failed(field)) {
        m_errors.push_back({field, code, limit});
    }
}

bool FieldReader::failed(const char* field) const {
    return std::any_of(m_errors.begin(), m_errors.end(),
                       [field](const FieldError& error) { return error.field == field; });
}

} // namespace phone
