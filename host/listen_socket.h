// The listening socket. The FastCGI kit expects it at file descriptor 0.
#ifndef LISTEN_SOCKET_H
#define LISTEN_SOCKET_H

#include "account.h"
#include "descriptor.h"

#include <sys/socket.h>
#include <sys/stat.h>

#include <optional>
#include <string>

constexpr int kListenFd = 0;

struct SocketAddress {
    std::string text; // as the user wrote it
    sockaddr_storage storage{};
    socklen_t length = 0;

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
    sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
    int family() const { return storage.ss_family; }
};

// "ADDRESS:PORT" with a numeric address, an IPv6 one in brackets; anything with a slash, and
// anything without a colon, is the path of a Unix socket. Nothing when it is none of these;
// `error` then says so.
std::optional<SocketAddress> parseSocketAddress(const std::string& text, std::string& error);

// Whether `fd` is a listening stream socket.
bool isListening(int fd);

// Who may connect to a Unix socket.
struct SocketAccess {
    mode_t mode = 0660;
    // Whom the file belongs to; nothing for who opens it.
    std::optional<Account> owner;
};

// A socket that this process opened and nobody else accepts from.
class OwnSocket {
public:
    // Opens it, listening. A socket file that nobody listens on any more is replaced; any other
    // file is not touched. `access` is for a Unix socket. Nothing on failure; `error` then says
    // why.
    static std::optional<OwnSocket> open(const SocketAddress& address, const SocketAccess& access,
                                         std::string& error);

    int get() const { return m_socket.get(); }
    // Removes the socket file, if there is one and it is still this socket's, so that no further
    // client finds it.
    void removeFile() const;

private:
    explicit OwnSocket(Descriptor socket) : m_socket(std::move(socket)) {}

    Descriptor m_socket;
    std::string m_path;
    struct stat m_file {};
};

// Makes sure that the listening socket which this process was handed stands at file descriptor 0:
// the web server put it there, systemd (see sd_listen_fds(3)) one or more from 3 on, of which the
// first counts. False when there is none.
bool takeInheritedSocket();

#endif
