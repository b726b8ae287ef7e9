// The listening socket. libfcgi expects it at file descriptor 0.
#ifndef LISTEN_SOCKET_H
#define LISTEN_SOCKET_H

#include "account.h"
#include "base/descriptor.h"

#include <sys/socket.h>
#include <sys/stat.h>

#include <optional>
#include <string>
#include <utility>

constexpr int kListenFd = 0;

struct SocketAddress {
    std::string text; // as the user wrote it
    sockaddr_storage storage{};
    socklen_t length = 0;

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
    sockaddr* get() { return reinterpret_cast<sockaddr*>(&storage); }
    int family() const { return storage.ss_family; }
};

// Parses "ADDRESS:PORT", where ADDRESS is numeric and an IPv6 address stands in brackets. A text
// with a slash or without a colon is the path of a Unix socket. Returns nothing if it is neither;
// `error` then says so.
std::optional<SocketAddress> parseSocketAddress(const std::string& text, std::string& error);

// Returns the address of the socket `fd` as parseSocketAddress() reads it. An abstract Unix socket
// is shown with "@" for its first byte, which is 0; one without a name, or a descriptor that is no
// socket, as "?".
std::string socketName(int fd);

// Returns whether `fd` is a listening stream socket.
bool isListening(int fd);

// Permissions of a Unix socket's file.
struct SocketAccess {
    mode_t mode = 0660;
    std::optional<Account> owner; // by default this process's user and group
};

// A listening socket that this process opened; no other process accepts from it.
class BoundSocket {
public:
    // Opens a socket and listens. Replaces a socket file on which no process listens any more;
    // fails if there is any other file. `access` applies to Unix sockets only. Returns nothing on
    // failure; `error` then says why.
    static std::optional<BoundSocket> open(const SocketAddress& address, const SocketAccess& access,
                                           std::string& error);

    // Returns the descriptor, which stays owned.
    int get() const { return m_socket.get(); }
    // Removes the socket file, so that no further client connects. Does nothing if there is none,
    // or if another process has replaced it.
    void removeFile() const;

private:
    explicit BoundSocket(base::Descriptor socket) : m_socket(std::move(socket)) {}

    base::Descriptor m_socket;
    std::string m_path;
    struct stat m_file {};
};

// Makes sure that the listening socket which this process inherited is at file descriptor 0. A web
// server puts it there; systemd passes one or more from descriptor 3 on (see sd_listen_fds(3)), of
// which the first is used. Returns false if none was passed.
bool takeInheritedSocket();

#endif
