// What a damaged file may contain.
#ifndef DAMAGED_TEXT_H
#define DAMAGED_TEXT_H

#include <string>
#include <utility>
#include <vector>

/// Returns the text with `part`, which it must contain, replaced by `other`.
inline std::string withReplaced(std::string text, const std::string& part,
                                const std::string& other) {
    return text.replace(text.find(part), part.size(), other);
}

/// Returns the damages that any file can have, and then those that each pair describes: a part of
/// the good text, and what replaces it.
inline std::vector<std::string>
damagesOf(const std::string& good,
          const std::vector<std::pair<std::string, std::string>>& replacements) {
    constexpr std::size_t kTooLong = 3 * 1024 * 1024;
    std::vector<std::string> damages{"",
                                     "garbage",
                                     good.substr(0, good.size() / 2),
                                     good.substr(0, good.size() - 4),
                                     std::string(good.size(), '\0'),
                                     std::string(kTooLong, ' ') + good};
    for (const auto& [part, other] : replacements) {
        damages.push_back(withReplaced(good, part, other));
    }
    return damages;
}

#endif
