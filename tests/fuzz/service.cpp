// Whole requests of any variables and any body, one after the other as one client sends them.
#include "fuzz.h"
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

// With each "$" replaced.
std::string filled(const std::string& text, const std::string& id) {
    std::string result;
    for (const char byte : text)
        result += byte == '$' ? id : std::string(1, byte);
    return result;
}

// Serves one request and gives the id of its session, or the one before.
std::string serve(const std::string& text, const std::string& id) {
    fuzz::Input input(text);
    const std::size_t pieceSize = input.byte() + 1;
    std::vector<std::string> variables;
    for (std::string line = input.line(); !line.empty(); line = input.line())
        variables.push_back(filled(line, id));
    MemoryRequest request(std::move(variables), input.rest(), pieceSize);
    const int status = controller().doService(request.get());
    const std::string answer = request.out().text();
    require(status == 200 || status == 404, "a request is served, or there is no such page");
    require(status == 404 || answer.find("\r\n") != std::string::npos, "an answer has a header");

    fuzz::Input header(answer);
    header.upTo(kSessionCookie);
    const std::string newId = header.upTo(" ");
    return newId.empty() ? id : newId;
}

} // namespace

// Requests: one byte for the size of the pieces in which the body arrives, lines with a variable
// each, an empty line, the body. A "$" in a variable is the id of the session made last.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    std::string id;
    while (!input.isEmpty())
        id = serve(input.upTo(kEndOfRequest), id);
    SessionFactory& sessions = *controller().getSessionFactory();
    sessions.onTimer();
    sessions.destory();
    require(sessions.sessionNum() == 0, "no session is left");
    return 0;
}
