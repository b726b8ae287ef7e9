// What a front server, or whoever else gets at the socket, sends: any bytes on a connection, served
// by the loop that serves a device.
#include "fcgi_server.h"
#include "fuzz.h"
#include "servlet_controller.h"
#include "session_factory.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

// The FastCGI kit does not give back all of its memory on every connection, which is nothing that
// could be looked for here.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfcgi.so";
}

namespace {

using fuzz::require;

constexpr int kListenSocket = 0;
constexpr std::size_t kRecordHeader = 8;

// A device's service, but that it does not wait for a connection: where there is none it ends.
class Service {
public:
    Service() {
        setenv("LIBFCGI_OS_CLOSE_POLL_TIMEOUT", "0", 1);
        const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0);
        // Without a name the system finds one that is free, and no file is made.
        require(bind(listening, address(), sizeof m_address.sun_family) == 0 &&
                    listen(listening, 8) == 0 && dup2(listening, kListenSocket) == kListenSocket,
                "there is a socket");
        close(listening);
        m_size = sizeof m_address;
        getsockname(kListenSocket, address(), &m_size);
        m_server = new FCGIServer(FUZZ_FOLDER "/servlet.xml");
    }

    // What comes back on a connection on which `bytes` are sent, and no more.
    std::string serve(std::string_view bytes) {
        const int client = socket(AF_UNIX, SOCK_STREAM, 0);
        require(connect(client, address(), m_size) == 0 &&
                    write(client, bytes.data(), bytes.size()) ==
                        static_cast<ssize_t>(bytes.size()) &&
                    shutdown(client, SHUT_WR) == 0,
                "the service can be reached");
        m_server->run();
        m_server->getController()->getSessionFactory()->destory();
        std::string answer;
        char piece[4096];
        for (ssize_t size; (size = read(client, piece, sizeof piece)) > 0;)
            answer.append(piece, static_cast<std::size_t>(size));
        close(client);
        return answer;
    }

private:
    sockaddr* address() { return reinterpret_cast<sockaddr*>(&m_address); }

    sockaddr_un m_address{AF_UNIX, {}};
    socklen_t m_size = 0;
    FCGIServer* m_server = nullptr; // until the process ends
};

// The kit takes as much memory as the name and the value of a variable are announced to need, which
// is for the kit to mend. So whatever may be taken for a length of four bytes becomes a small one.
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

// Whole records of the protocol's version 1, whatever was sent.
void requireRecords(std::string_view answer) {
    while (!answer.empty()) {
        require(answer.size() >= kRecordHeader && answer[0] == 1, "an answer is made of records");
        const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(answer[at]); };
        const std::size_t size = kRecordHeader + byte(4) * 256u + byte(5) + byte(6);
        require(size <= answer.size(), "the records of an answer are whole");
        answer.remove_prefix(size);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Service& service = *new Service;
    requireRecords(service.serve(withSmallLengths(fuzz::Input(data, size).rest())));
    return 0;
}
