// Constructs and destroys the request object, which decodes everything that the client sent.
#include "pieces.h"

#include "http_request.h"

#include <kit/testing/memory_stream.h>

#include <memory>
#include <vector>

namespace {

std::string query(long count) {
    std::string text = "p=status";
    for (long i = 1; i < count; ++i)
        text += "&field" + std::to_string(i) + "=value+" + std::to_string(i);
    return text;
}

std::vector<std::string> environment(long count) {
    return {"REQUEST_METHOD=GET",
            "REQUEST_URI=/servlet?" + query(count),
            "QUERY_STRING=" + query(count),
            "HTTP_COOKIE=JSESSIONID=7ffd3a1719320055d0c",
            "REMOTE_ADDR=192.0.2.7",
            "SERVER_PROTOCOL=HTTP/1.1",
            "HTTP_ACCEPT_LANGUAGE=de,en;q=0.7"};
}

} // namespace

void pieces::addRequest() {
    for (const long count : {1, 5, 10, 50, 100}) {
        const auto request = std::make_shared<kit::testing::MemoryRequest>(environment(count));
        add("request/construct", count, "ours",
            [request] { HttpRequestImpl made(request->get(), nullptr, nullptr); });
    }
}
