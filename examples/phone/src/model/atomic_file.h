// Files that are replaced as a whole or not at all.
#ifndef MODEL_ATOMIC_FILE_H
#define MODEL_ATOMIC_FILE_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace phone {

// Puts a file with this text at `path`, for its owner only. Whatever happens, power cuts included,
// the old file or the new one is there, whole. When the old one is: false, and a line in the log,
// or std::bad_alloc. One thread at a time for a path.
bool replaceFile(const std::string& path, std::string_view text);

// Removes what an interrupted replaceFile() left behind.
void clearReplacement(const std::string& path);

// The text of a file of at most `maxBytes`. Nothing when it cannot be read, or is larger; errno
// tells why, EFBIG for the latter.
std::optional<std::string> readFile(const std::string& path, std::size_t maxBytes);

} // namespace phone

#endif
