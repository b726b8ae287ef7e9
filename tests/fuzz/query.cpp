// Decodes query strings, and encodes texts for a URL and decodes them again.
#include "decode.h"
#include "fuzz.h"
#include "pairs.h"

#include <algorithm>

namespace {

using fuzz::require;

// Requires that decoding reverses encoding, with the bytes of `keep` left unescaped.
void requireRoundTrip(const char* text, const char* keep) {
    const std::unique_ptr<char, decltype(&std::free)> encoded(CGI_encode_url(text, keep),
                                                              &std::free);
    const std::string field = std::string("field=") + encoded.get();
    require(field.find_first_of("&+;<> \"") == std::string::npos, "special bytes are escaped");
    CGI_varlist* list = CGI_decode_query(nullptr, field.c_str());
    require(std::string(CGI_lookup(list, "field")) == text, "decoding reverses encoding");
    CGI_free_varlist(list);
}

} // namespace

// One byte for the maximum number of values, 255 for the list's own limit; then the query.
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
