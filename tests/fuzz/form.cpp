// Decodes urlencoded bodies, in pieces of any size and with any announced length.
#include "fuzz.h"
#include "pairs.h"

#include <kit/testing/memory_stream.h>

#include <strings.h>

namespace {

bool isForm(const std::string& contentType) {
    const std::string type = fuzz::trimmed(contentType.substr(0, contentType.find(';')));
    return type.empty() || strcasecmp(type.c_str(), "application/x-www-form-urlencoded") == 0;
}

} // namespace

// One line with the content type, one with the announced length minus the real one, one byte for
// the size of the pieces; then the body.
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
    const bool isDecoded = isForm(type) && excess == 0;
    fuzz::requireSame(list, isDecoded ? fuzz::pairsOfQuery(body) : fuzz::Pairs());
    fuzz::require(isForm(type) || stream.unread() == body, "a body of another type is left unread");
    CGI_free_varlist(list);
    return 0;
}
