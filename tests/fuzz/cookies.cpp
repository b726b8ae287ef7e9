// Decodes Cookie headers.
#include "fuzz.h"
#include "pairs.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::upToZero(fuzz::Input(data, size).rest());
    const auto header = fuzz::terminated(text);
    CGI_varlist* list = CGI_get_cookie(nullptr, header.get());
    fuzz::requireSame(list, fuzz::pairsOfCookie(text));
    CGI_free_varlist(list);
    return 0;
}
