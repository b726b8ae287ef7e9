// Replaces files atomically: as a whole or not at all.
#ifndef MODEL_ATOMIC_FILE_H
#define MODEL_ATOMIC_FILE_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace phone {

// Writes `text` to the file `path`, readable by its owner only. At any moment, even after a power
// cut, `path` holds the complete old or the complete new file. Returns false (logged), or throws
// std::bad_alloc, if the old one stays. Call from one thread at a time for each path.
bool replaceFile(const std::string& path, std::string_view text);

// Removes what an interrupted replaceFile() left behind.
void clearReplacement(const std::string& path);

// Returns the text of a file of at most `maxBytes`, or nothing if it cannot be read; errno then
// holds the reason, EFBIG for a larger file.
std::optional<std::string> readFile(const std::string& path, std::size_t maxBytes);

} // namespace phone

#endif
