// Urlencoded bodies, as they arrive and however long they say they are.
#include "fuzz.h"
#include "pairs.h"

#include <kit/testing/memory_stream.h>

#include <strings.h>

namespace {

std::string trimmed(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    return begin == std::string::npos
               ? ""
               : text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

bool isForm(const std::string& contentType) {
    const std::string type = trimmed(contentType.substr(0, contentType.find(';')));
    return type.empty() || strcasecmp(type.c_str(), "application/x-www-form-urlencoded") == 0;
}

} // namespace

// One line with the type, one with how much longer than the body it is said to be, and one byte for
// the size of the pieces in which it arrives; then the body.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string type = fuzz::upToZero(input.line());
    const int excess = std::atoi(input.line().substr(0, 8).c_str());
    const std::size_t pieceSize = input.byte() * 16 + 1;
    const std::string body = input.rest();
    const int length = static_cast<int>(body.size()) + excess;

    kit::testing::MemoryInput stream(body, pieceSize);
    const auto contentType = fuzz::terminated(type);
    CGI_varlist* list = CGI_get_post(nullptr, contentType.get(), length, stream.stream());
    const bool counts = isForm(type) && excess == 0;
    fuzz::requireSame(list, counts ? fuzz::pairsOfQuery(body) : fuzz::Pairs());
    fuzz::require(isForm(type) || stream.unread() == body, "a body of another type stays");
    CGI_free_varlist(list);
    return 0;
}
