// Serves arbitrary bytes on a connection, as a broken or hostile front server may send them, and
// requests as a front server sends them, with the loop that serves a device. Each answer to a
// request that is whole is compared with that of a model.
#include "container_model.h"
#include "fcgi_server.h"
#include "fuzz.h"
#include "records.h"
#include "servlet_controller.h"
#include "session_factory.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

// libfcgi leaks memory on some malformed connections, which is not the subject of this fuzzer.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfcgi.so";
}

namespace {

using fuzz::require;
using fuzz::SentRequest;

constexpr int kListenSocket = 0;
// What a connection takes before anything is read.
constexpr std::size_t kSocketRoom = 100 * 1024;
constexpr std::string_view kEndOfRequest = "\n====\n";
constexpr std::string_view kErrorPage =
    "Status: 404 \r\nContentType: text/html \r\n\r\n<h1>404 - Not Found</h1>";

// The server of a device, except that its loop ends when no connection is waiting.
class Server {
public:
    Server() {
        setenv("LIBFCGI_OS_CLOSE_POLL_TIMEOUT", "0", 1);
        const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
        // Without a name Linux assigns an unused abstract address, and creates no file.
        require(bind(listening, address(), sizeof m_address.sun_family) == 0 &&
                    listen(listening, 8) == 0 && dup2(listening, kListenSocket) == kListenSocket,
                "the test can listen");
        close(listening);
        m_size = sizeof m_address;
        getsockname(kListenSocket, address(), &m_size);
        m_server = new FCGIServer(FUZZ_FOLDER "/servlet.xml");
    }

    // Sends `bytes`, at most kSocketRoom, and the end of the stream on a connection, and returns
    // the response.
    std::string serve(std::string_view bytes) {
        const int client = socket(AF_UNIX, SOCK_STREAM, 0);
        require(connect(client, address(), m_size) == 0 &&
                    write(client, bytes.data(), bytes.size()) ==
                        static_cast<ssize_t>(bytes.size()) &&
                    shutdown(client, SHUT_WR) == 0,
                "the test can connect and send");
        m_server->run();
        std::string response;
        char piece[4096];
        for (ssize_t size; (size = read(client, piece, sizeof piece)) > 0;)
            response.append(piece, static_cast<std::size_t>(size));
        close(client);
        return response;
    }

    // Ends what would outlive an input.
    void reset() {
        m_server->getController()->getSessionFactory()->destory();
        m_server->getController()->setStatus("");
    }

private:
    sockaddr* address() { return reinterpret_cast<sockaddr*>(&m_address); }

    sockaddr_un m_address{AF_UNIX, {}};
    socklen_t m_size = 0;
    FCGIServer* m_server = nullptr; // until the process ends
};

// libfcgi allocates as much memory as the lengths of a variable's name and value announce, which is
// its own defect. So whatever it could take for a length of four bytes is replaced by a small one.
std::string withSmallLengths(std::string bytes) {
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        if (static_cast<unsigned char>(bytes[at]) < 0x80)
            continue;
        bytes[at] = '\x80';
        for (const std::size_t high : {at + 1, at + 2})
            if (high < bytes.size())
                bytes[high] = '\0';
        at += 2;
    }
    return bytes;
}

// Compares the output of a request with the model, and returns it without the error page.
std::string check(fuzz::ContainerModel& model, const SentRequest& request, std::string output) {
    const bool isError = output.size() >= kErrorPage.size() &&
                         output.substr(output.size() - kErrorPage.size()) == kErrorPage;
    if (isError)
        output.resize(output.size() - kErrorPage.size());
    model.check(request, isError ? 404 : 200, output);
    return output;
}

// Serves bytes that may be anything. The model knows the answer to a first request that is whole.
void serveBytes(Server& server, const std::string& bytes) {
    const std::string response = server.serve(bytes);
    fuzz::requireRecords(response);
    fuzz::ContainerModel model;
    if (const auto request = fuzz::requestIn(bytes))
        check(model, *request, fuzz::outputIn(response));
}

// Serves requests as service.cpp does, each on a connection of its own.
void serveRequests(Server& server, fuzz::Input input) {
    fuzz::ContainerModel model;
    std::string id;
    while (!input.isEmpty()) {
        const std::string text = input.upTo(kEndOfRequest);
        fuzz::Input itsInput(text);
        const std::size_t pieceSize = itsInput.byte() * 16 + 1;
        const std::string records = fuzz::recordsOf(SentRequest::in(itsInput, id), pieceSize);
        if (records.size() > kSocketRoom)
            continue;
        const auto request = fuzz::requestIn(records);
        require(request.has_value(), "the test sends whole requests");
        const std::string response = server.serve(records);
        fuzz::requireRecords(response);
        id = fuzz::sessionAfter(check(model, *request, fuzz::outputIn(response)), id);
    }
}

} // namespace

// After a "+", requests as in service.cpp; otherwise the bytes of a connection.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Server& server = *new Server;
    fuzz::Input input(data, size);
    if (size > 0 && *data == '+') {
        input.byte();
        serveRequests(server, input);
    } else {
        serveBytes(server, withSmallLengths(input.rest()));
    }
    server.reset();
    return 0;
}
