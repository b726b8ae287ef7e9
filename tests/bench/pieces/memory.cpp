// What small objects take, by the counter "bytes": a session without attributes, and the headers of
// a response.
#include "pieces.h"

#include "QKSTL/QKHashMap.h"
#include "http_session.h"

#include <memory>

namespace {

void fillHeaderMap(long count) {
    QKHashMap<std::string, std::string, INT_HASH<std::string>> headers;
    for (long i = 0; i < count; ++i)
        headers.put("header-" + std::to_string(i), "value");
    benchmark::DoNotOptimize(headers.m_nCount);
}

} // namespace

void pieces::addMemory() {
    const std::string address = "192.0.2.7";
    add("memory/session", 1, "ours",
        [address] { benchmark::DoNotOptimize(std::make_unique<HttpSessionImpl>(address)); });
    for (const long count : {0, 1, 3, 10})
        add("memory/header map", count, "ours", [count] { fillHeaderMap(count); });
}
