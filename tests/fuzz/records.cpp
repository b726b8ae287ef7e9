#include "records.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace fuzz {

namespace {

enum RecordType : unsigned { Begin = 1, End = 3, Variables = 4, Body = 5, Output = 6 };

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kBeginSize = 8;
constexpr unsigned kResponder = 1;
constexpr unsigned kLongLength = 0x80; // marks a length of four bytes

struct Record {
    unsigned type;
    unsigned id;
    std::string content;
};

// Returns one byte of a number, which begins at its highest byte.
char byteOf(std::size_t number, int bytesBehind) {
    return static_cast<char>(number >> (8 * bytesBehind) & 0xFF);
}

// Returns the number in the next bytes.
std::size_t takeNumber(Input& input, int bytes) {
    std::size_t number = 0;
    for (int i = 0; i < bytes; ++i)
        number = number * 256 + input.byte();
    return number;
}

// Takes that many bytes, or nothing if there are fewer.
std::optional<std::string> takeBytes(Input& input, std::size_t count) {
    std::string bytes;
    while (bytes.size() < count && !input.isEmpty())
        bytes += static_cast<char>(input.byte());
    return bytes.size() == count ? std::optional<std::string>(std::move(bytes)) : std::nullopt;
}

// Takes a whole record of version 1.
std::optional<Record> takeRecord(Input& input) {
    const auto header = takeBytes(input, kHeaderSize);
    if (!header || header->front() != 1)
        return std::nullopt;
    Input fields(std::string_view(*header).substr(1));
    const auto type = static_cast<unsigned>(takeNumber(fields, 1));
    const auto id = static_cast<unsigned>(takeNumber(fields, 2));
    const std::size_t contentSize = takeNumber(fields, 2);
    const std::size_t paddingSize = takeNumber(fields, 1);
    auto content = takeBytes(input, contentSize);
    if (!content || !takeBytes(input, paddingSize))
        return std::nullopt;
    return Record{type, id, std::move(*content)};
}

// Takes the records of a stream, which an empty one ends.
std::optional<std::string> takeStream(Input& input, unsigned type, unsigned id) {
    std::string all;
    for (;;) {
        const auto record = takeRecord(input);
        if (!record || record->type != type || record->id != id)
            return std::nullopt;
        if (record->content.empty())
            return all;
        all += record->content;
    }
}

std::size_t takeLength(Input& input) {
    const std::size_t first = input.byte();
    return first < kLongLength ? first : (first - kLongLength) << 24 | takeNumber(input, 3);
}

std::optional<std::vector<std::string>> variablesIn(std::string_view stream) {
    std::vector<std::string> variables = {"FCGI_ROLE=RESPONDER"};
    Input input(stream);
    while (!input.isEmpty()) {
        const std::size_t nameSize = takeLength(input);
        if (input.isEmpty())
            return std::nullopt; // no second length
        const std::size_t valueSize = takeLength(input);
        const auto name = takeBytes(input, nameSize);
        const auto value = takeBytes(input, valueSize);
        if (!name || !value)
            return std::nullopt;
        variables.push_back(*name + "=" + *value);
    }
    return variables;
}

std::string record(RecordType type, const std::string& content) {
    const std::size_t size = content.size();
    return std::string{1, static_cast<char>(type), 0, 1, byteOf(size, 1), byteOf(size, 0), 0, 0} +
           content;
}

std::string stream(RecordType type, const std::string& content, std::size_t pieceSize) {
    std::string records;
    for (std::size_t at = 0; at < content.size(); at += pieceSize)
        records += record(type, content.substr(at, pieceSize));
    return records + record(type, "");
}

std::string length(std::size_t size) {
    if (size < kLongLength)
        return {byteOf(size, 0)};
    return {static_cast<char>(byteOf(size, 3) | static_cast<char>(kLongLength)), byteOf(size, 2),
            byteOf(size, 1), byteOf(size, 0)};
}

} // namespace

std::string recordsOf(const SentRequest& request, std::size_t pieceSize) {
    std::string variables;
    for (const std::string& variable : request.variables()) {
        const std::size_t equals = std::min(variable.find('='), variable.size());
        const std::string name = variable.substr(0, equals);
        const std::string value = variable.substr(std::min(equals + 1, variable.size()));
        variables.append(length(name.size())).append(length(value.size()));
        variables.append(name).append(value);
    }
    return record(Begin, std::string("\0\1\0\0\0\0\0\0", kBeginSize)) +
           stream(Variables, variables, pieceSize) + stream(Body, request.body(), pieceSize);
}

std::optional<SentRequest> requestIn(std::string_view bytes) {
    Input input(bytes);
    const auto begin = takeRecord(input);
    if (!begin || begin->type != Begin || begin->id == 0 || begin->content.size() != kBeginSize)
        return std::nullopt;
    Input content(begin->content);
    if (takeNumber(content, 2) != kResponder)
        return std::nullopt;
    const auto stream = takeStream(input, Variables, begin->id);
    auto body = takeStream(input, Body, begin->id);
    auto variables = variablesIn(stream.value_or(""));
    if (!stream || !body || !variables)
        return std::nullopt;
    return SentRequest(std::move(*variables), std::move(*body));
}

void requireRecords(std::string_view response) {
    for (Input input(response); !input.isEmpty();)
        require(takeRecord(input).has_value(), "a response consists of whole records");
}

std::string outputIn(std::string_view response) {
    std::string output;
    Input input(response);
    auto record = takeRecord(input);
    for (; record && record->type != End; record = takeRecord(input))
        if (record->type == Output)
            output += record->content;
    require(record && record->content == std::string(kBeginSize, '\0'),
            "a request is ended with the status 0");
    return output;
}

} // namespace fuzz
