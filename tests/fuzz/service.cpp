// Serves requests with arbitrary variables and bodies, one after the other, as of one client, and
// compares each answer with that of a model.
#include "container_model.h"
#include "fuzz.h"
#include "http_request.h"
#include "servlet_controller.h"
#include "session_factory.h"

#include <kit/testing/memory_stream.h>

#include <vector>

namespace {

using fuzz::require;
using kit::testing::MemoryRequest;

constexpr std::string_view kEndOfRequest = "\n====\n";
constexpr std::string_view kSessionCookie = "Set-Cookie: JSESSIONID=";

ServletController& controller() {
    static ServletController& instance = *new ServletController(FUZZ_FOLDER "/servlet.xml");
    static const bool ready = (instance.init(), true);
    static_cast<void>(ready);
    return instance;
}

// Its device status outlives an input, as the controller's does.
fuzz::ContainerModel model;

// Returns the text with each "$" replaced by `id`.
std::string withId(const std::string& text, const std::string& id) {
    std::string result;
    for (const char byte : text)
        result += byte == '$' ? id : std::string(1, byte);
    return result;
}

// Serves one request and returns the id of its session, or `id` without a new one.
std::string serve(const std::string& text, const std::string& id) {
    fuzz::Input input(text);
    const std::size_t pieceSize = input.byte() + 1;
    std::vector<std::string> variables;
    for (std::string line = input.line(); !line.empty(); line = input.line())
        variables.push_back(withId(fuzz::stretched(line), id));
    const std::string body = input.rest();
    MemoryRequest request(variables, body, pieceSize);
    const int status = controller().doService(request.get());
    const std::string response = request.out().text();
    require(status == 200 || status == 404, "the status is 200 or 404");
    require(status == 404 || response.find("\r\n") != std::string::npos, "a response has a header");
    MemoryRequest same(variables, body, pieceSize);
    HttpRequestImpl known(same.get(), nullptr, nullptr);
    model.check(known, status, response);

    fuzz::Input header(response);
    header.upTo(kSessionCookie);
    const std::string newId = header.upTo(" ");
    return newId.empty() ? id : newId;
}

} // namespace

// Requests: one byte for the size of the pieces of the body, lines with one variable each, an empty
// line, the body. A "$" in a variable stands for the id of the newest session, a byte 1 for 4 KiB.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    std::string id;
    while (!input.isEmpty())
        id = serve(input.upTo(kEndOfRequest), id);
    SessionFactory& sessions = *controller().getSessionFactory();
    sessions.onTimer();
    sessions.destory();
    model.endSessions();
    require(sessions.sessionNum() == 0, "destory() deletes all sessions");
    return 0;
}
