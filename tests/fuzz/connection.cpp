// Serves arbitrary bytes on a connection, as a broken or hostile front server may send them, with
// the loop that serves a device.
#include "fcgi_server.h"
#include "fuzz.h"
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

constexpr int kListenSocket = 0;
constexpr std::size_t kRecordHeader = 8;

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

    // Sends `bytes` and the end of the stream on a connection, and returns the response.
    std::string serve(std::string_view bytes) {
        const int client = socket(AF_UNIX, SOCK_STREAM, 0);
        require(connect(client, address(), m_size) == 0 &&
                    write(client, bytes.data(), bytes.size()) ==
                        static_cast<ssize_t>(bytes.size()) &&
                    shutdown(client, SHUT_WR) == 0,
                "the test can connect and send");
        m_server->run();
        m_server->getController()->getSessionFactory()->destory();
        std::string response;
        char piece[4096];
        for (ssize_t size; (size = read(client, piece, sizeof piece)) > 0;)
            response.append(piece, static_cast<std::size_t>(size));
        close(client);
        return response;
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

// Requires that the response consists of whole records of FastCGI version 1.
void requireRecords(std::string_view response) {
    while (!response.empty()) {
        require(response.size() >= kRecordHeader && response[0] == 1,
                "a response consists of records");
        const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(response[at]); };
        const std::size_t size = kRecordHeader + byte(4) * 256u + byte(5) + byte(6);
        require(size <= response.size(), "the records of a response are whole");
        response.remove_prefix(size);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Server& server = *new Server;
    requireRecords(server.serve(withSmallLengths(fuzz::Input(data, size).rest())));
    return 0;
}
