// Rewrites a URL in place; compared with a model that uses std::string.
#include "fuzz.h"
#include "servlet_controller.h"

#include <algorithm>
#include <optional>

namespace {

constexpr std::size_t kMaxLength = 511;

// Returns nothing if the pattern does not occur or the result is too long.
std::optional<std::string> replaced(const std::string& target, const std::string& pattern,
                                    const std::string& replacement) {
    if (pattern.empty() || target.find(pattern) == std::string::npos)
        return std::nullopt;
    std::string result;
    for (std::size_t at = 0; at < target.size();) {
        const bool matches = target.compare(at, pattern.size(), pattern) == 0;
        result += matches ? replacement : target.substr(at, 1);
        at += matches ? pattern.size() : 1;
    }
    if (result.size() > kMaxLength)
        return std::nullopt;
    return result;
}

} // namespace

// One line with the pattern, one with the replacement, then the target.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string pattern = fuzz::upToZero(input.line());
    const std::string replacement = fuzz::upToZero(input.line());
    const std::string target = fuzz::upToZero(input.rest());
    const std::optional<std::string> result = replaced(target, pattern, replacement);
    const std::string expected = result.value_or(target);

    const std::size_t room = std::max(target.size(), expected.size()) + 1;
    const std::unique_ptr<char[]> text(new char[room]);
    text[target.copy(text.get(), target.size())] = '\0';
    const int status = ReplaceStr(text.get(), fuzz::terminated(pattern).get(),
                                  fuzz::terminated(replacement).get());
    fuzz::require(expected == text.get(), "the text is rewritten like the model");
    fuzz::require(status == (result.has_value() ? 0 : -1),
                  "the result is 0 if the text was rewritten");
    return 0;
}
