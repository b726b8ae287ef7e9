// Screens URLs and parameters; compared with a model that states the rules differently.
#include "fuzz.h"
#include "servlet_controller.h"

#include <algorithm>

namespace {

bool contains(const std::string& text, const char* part) {
    return text.find(part) != std::string::npos;
}

bool isBadUrl(std::string url) {
    for (char& letter : url)
        if (letter >= 'A' && letter <= 'Z')
            letter = static_cast<char>(letter - 'A' + 'a');
    return contains(url, "<") || contains(url, ">") || contains(url, "%3c") ||
           contains(url, "%3e") || contains(url, "script");
}

bool consistsOf(const std::string& text, const char* bytes) {
    return text.find_first_not_of(bytes) == std::string::npos;
}

bool isBadWord(const std::string& text) {
    return !consistsOf(text, "0123456789-_ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
}

bool isBadNumber(const std::string& text) {
    const bool isNegative = text.substr(0, 1) == "-";
    return !consistsOf(isNegative ? text.substr(1) : text, "0123456789");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static ServletController controller("");
    const std::string text = fuzz::upToZero(fuzz::Input(data, size).rest());
    const auto copy = fuzz::terminated(text);
    fuzz::require(controller.CheckUrlIllegalChar(copy.get()) == (isBadUrl(text) ? 1 : 0),
                  "exactly the URLs with markup or script are refused");
    fuzz::require(controller.CheckParaIllegalChar(copy.get(), false) == (isBadWord(text) ? 1 : 0),
                  "exactly the words with special characters are refused");
    fuzz::require(controller.CheckParaIllegalChar(copy.get(), true) == (isBadNumber(text) ? 1 : 0),
                  "exactly the texts that are no number are refused");
    return 0;
}
