// Query strings, and the way back: what is escaped for a URL.
#include "decode.h"
#include "fuzz.h"
#include "pairs.h"

#include <algorithm>

namespace {

using fuzz::require;

// Escaped, it comes back as it was, and what is to be kept is kept.
void requireRoundTrip(const char* text, const char* keep) {
    const std::unique_ptr<char, decltype(&std::free)> encoded(CGI_encode_url(text, keep),
                                                              &std::free);
    const std::string field = std::string("field=") + encoded.get();
    require(field.find_first_of("&+;<> \"") == std::string::npos, "nothing special is left");
    CGI_varlist* list = CGI_decode_query(nullptr, field.c_str());
    require(std::string(CGI_lookup(list, "field")) == text, "an escaped text comes back");
    CGI_free_varlist(list);
}

} // namespace

// The first byte is how many values there is room for, 255 for a list's own limit.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::size_t room = input.byte();
    const std::string text = fuzz::upToZero(input.rest());
    const auto query = fuzz::terminated(text);
    fuzz::Pairs expected = fuzz::pairsOfQuery(text);
    CGI_varlist* list = nullptr;
    if (room == 255) {
        list = CGI_decode_query(list, query.get());
    } else {
        list = cgi::decodeFields(query.get(), room).release();
        expected.resize(std::min(expected.size(), room));
    }
    fuzz::requireSame(list, expected);
    CGI_free_varlist(list);
    requireRoundTrip(query.get(), nullptr);
    requireRoundTrip(query.get(), "/=?");
    return 0;
}
