// Writes arbitrary texts as log records: each is one line, from which the text can be read back.
#include "fuzz.h"
#include "log_record.h"
#include "log_settings.h"

namespace {

using fuzz::require;

__attribute__((format(printf, 1, 2))) device_log::EscapedText formatted(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const auto text = device_log::formatText(format, arguments);
    va_end(arguments);
    return text;
}

std::string unescaped(std::string_view text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\') {
            result += text[at];
            continue;
        }
        const std::string known = "nrt\\";
        require(++at < text.size(), "an escape is complete");
        const char kind = text[at];
        if (kind == 'x') {
            const int byte = std::stoi(std::string(text.substr(at + 1, 2)), nullptr, 16);
            require(byte != '\n' && byte != '\r' && byte != '\t' && byte != '\\',
                    "a character with a short escape has no other");
            result += static_cast<char>(byte);
            at += 2;
        } else {
            require(known.find(kind) != std::string::npos, "an escape has a known letter");
            result += "\n\r\t\\"[known.find(kind)];
        }
    }
    return result;
}

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

void requireReadsBack(std::string_view escaped, const std::string& text, std::size_t limit) {
    const bool isCut = escaped.size() > limit || (unescaped(escaped) != text);
    if (isCut)
        require(endsWith(escaped, "..."), "a truncated text ends in dots");
    const std::string begin = unescaped(escaped.substr(0, escaped.size() - (isCut ? 3 : 0)));
    require(text.compare(0, begin.size(), begin) == 0, "a record reads back as it was written");
    require(!isCut || escaped.size() - 3 + 8 > limit, "a text is truncated only if it is too long");
}

// Takes the first character off `text` and returns its code point (RFC 3629, section 3).
unsigned takeCharacter(std::string_view& text) {
    constexpr unsigned kSmallest[] = {0, 0x80, 0x800, 0x10000};
    const auto first = static_cast<unsigned char>(text.front());
    const std::size_t tail = first < 0x80 ? 0 : first < 0xe0 ? 1 : first < 0xf0 ? 2 : 3;
    require(tail < text.size() && (first < 0x80 || (first >= 0xc0 && first < 0xf8)),
            "a character begins with a valid first byte");
    unsigned number = tail == 0 ? first : first & (0x3fu >> tail);
    for (std::size_t at = 1; at <= tail; ++at) {
        require((text[at] & 0xc0) == 0x80, "a character is complete");
        number = number * 64 + (text[at] & 0x3f);
    }
    require(number >= kSmallest[tail], "a character has its shortest encoding");
    text.remove_prefix(tail + 1);
    return number;
}

bool isControl(unsigned number) {
    return number < 0x20 || (number >= 0x7f && number < 0xa0);
}

void requireOneLine(std::string_view line) {
    require(line.size() < 4096, "a record fits into one atomic write");
    require(endsWith(line, "\n"), "a record ends in a line feed");
    line.remove_suffix(1);
    while (!line.empty()) {
        const unsigned number = takeCharacter(line);
        const bool isInvalid = number > 0x10ffff || (number >= 0xd800 && number < 0xe000);
        require(!isInvalid && !isControl(number), "a record consists of printable characters");
    }
}

} // namespace

// One line with the user name, then the text.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string name = fuzz::upToZero(input.line());
    const std::string text = fuzz::stretched(fuzz::upToZero(input.rest()));

    const device_log::EscapedText escaped = formatted("%s\n", fuzz::terminated(text).get());
    requireReadsBack(escaped.view(), text, device_log::kMaxText);
    const device_log::UserName user = device_log::escapeUser(fuzz::terminated(name).get());
    requireReadsBack(user.view(), name, device_log::kMaxUser);
    require(user.view().find_first_of(" :") == std::string_view::npos,
            "a user name contains no separator");

    const int level = static_cast<int>(name.size()) - 2;
    const device_log::Record record(static_cast<std::time_t>(text.size()), level, "65",
                                    {level, name.size()}, user, escaped);
    requireOneLine(record.line());
    require(endsWith(record.line(), std::string(record.message()) + "\n"),
            "a record ends in its message");
    const auto settings = device_log::LogSettings::parse(name.c_str(), text.c_str());
    require(settings.toStderr || settings.toSyslog, "records have a destination");
    require(settings.threshold >= 0 && settings.threshold <= 7, "the threshold is a syslog level");
    return 0;
}
