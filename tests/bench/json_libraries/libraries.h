// What each library is measured with: a plug-in's JSON endpoint without the plug-in.
#ifndef LIBRARIES_H
#define LIBRARIES_H

#include <cstddef>

// The depth up to which text is accepted.
constexpr std::size_t kMaxDepth = 16;

extern "C" {

// Reads {"title": text, "priority": number, ...} and returns the priority; -1 if the text is not
// JSON, or if the title is missing or no text.
__attribute__((visibility("default"))) long readTask(const char* text, std::size_t size);

// Writes {"tasks": [{"title": text, "priority": number, "done": bool}, ...], "count": number} and
// returns the length of the text.
__attribute__((visibility("default"))) std::size_t writeTasks(std::size_t count);
}

#endif
