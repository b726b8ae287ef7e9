// The memory of a response's headers, shown by the counter "bytes". docs/footprint.md has the
// memory of a session.
#include "pieces.h"

#include "QKSTL/QKHashMap.h"

namespace {

void fillHeaderMap(long count) {
    QKHashMap<std::string, std::string, INT_HASH<std::string>> headers;
    for (long i = 0; i < count; ++i)
        headers.put("header-" + std::to_string(i), "value");
    benchmark::DoNotOptimize(headers.m_nCount);
}

} // namespace

void pieces::addMemory() {
    for (const long count : {0, 1, 3, 10})
        add("memory/header map", count, "ours", [count] { fillHeaderMap(count); });
}
