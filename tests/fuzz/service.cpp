// Serves requests with arbitrary variables and bodies, one after the other, as of one client, and
// compares each answer with that of a model.
#include "container_model.h"
#include "fuzz.h"
#include "servlet_controller.h"
#include "session_factory.h"

#include <kit/testing/memory_stream.h>

namespace {

using fuzz::require;
using fuzz::SentRequest;
using kit::testing::MemoryRequest;

constexpr std::string_view kEndOfRequest = "\n====\n";

ServletController& controller() {
    static ServletController& instance = *new ServletController(FUZZ_FOLDER "/servlet.xml");
    static const bool ready = (instance.init(), true);
    static_cast<void>(ready);
    return instance;
}

// Serves one request and returns the id of the newest session.
std::string serve(const std::string& text, const std::string& id, fuzz::ContainerModel& model) {
    fuzz::Input input(text);
    const std::size_t pieceSize = input.byte() + 1;
    const SentRequest sent = SentRequest::in(input, id);
    MemoryRequest request(sent.variables(), sent.body(), pieceSize);
    const int status = controller().doService(request.get());
    const std::string response = request.out().text();
    model.check(sent, status, response);
    return fuzz::sessionAfter(response, id);
}

// Ends what would outlive an input.
void reset() {
    SessionFactory& sessions = *controller().getSessionFactory();
    sessions.onTimer();
    sessions.destory();
    require(sessions.sessionNum() == 0, "destory() deletes all sessions");
    controller().setStatus("");
}

} // namespace

// Requests: one byte for the size of the pieces of the body, lines with one variable each, an empty
// line, the body. A "$" in a variable stands for the id of the newest session, a byte 1 for 4 KiB.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    fuzz::ContainerModel model;
    std::string id;
    while (!input.isEmpty())
        id = serve(input.upTo(kEndOfRequest), id, model);
    reset();
    return 0;
}
