#include "listen_socket.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/un.h>

#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kFirstSystemdFd = 3;

std::string systemError(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

std::optional<SocketAddress> unixAddress(const std::string& path, std::string& error) {
    SocketAddress address;
    address.text = path;
    auto* where = reinterpret_cast<sockaddr_un*>(&address.storage);
    if (path.size() >= sizeof where->sun_path) {
        error = "the path of a Unix socket has at most " +
                std::to_string(sizeof where->sun_path - 1) + " bytes: " + path;
        return std::nullopt;
    }
    where->sun_family = AF_UNIX;
    std::memcpy(where->sun_path, path.c_str(), path.size() + 1);
    address.length = sizeof *where;
    return address;
}

std::optional<in_port_t> parsePort(const std::string& text) {
    in_port_t port = 0;
    const char* end = text.data() + text.size();
    const auto [rest, failure] = std::from_chars(text.data(), end, port);
    if (failure != std::errc() || rest != end || port == 0)
        return std::nullopt;
    return htons(port);
}

bool setHost(const std::string& host, in_port_t port, SocketAddress& address) {
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        auto* where = reinterpret_cast<sockaddr_in6*>(&address.storage);
        where->sin6_family = AF_INET6;
        where->sin6_port = port;
        address.length = sizeof *where;
        const std::string inside = host.substr(1, host.size() - 2);
        return inet_pton(AF_INET6, inside.c_str(), &where->sin6_addr) == 1;
    }
    auto* where = reinterpret_cast<sockaddr_in*>(&address.storage);
    where->sin_family = AF_INET;
    where->sin_port = port;
    address.length = sizeof *where;
    return inet_pton(AF_INET, host.c_str(), &where->sin_addr) == 1;
}

std::string unixName(const SocketAddress& address) {
    const auto* where = reinterpret_cast<const sockaddr_un*>(&address.storage);
    const std::size_t size = address.length - offsetof(sockaddr_un, sun_path);
    if (size == 0)
        return "?";
    if (where->sun_path[0] == '\0')
        return "@" + std::string(where->sun_path + 1, size - 1);
    return {where->sun_path, ::strnlen(where->sun_path, size)};
}

std::string inetName(const SocketAddress& address) {
    char host[NI_MAXHOST] = "?";
    char port[NI_MAXSERV] = "?";
    getnameinfo(address.get(), address.length, host, sizeof host, port, sizeof port,
                NI_NUMERICHOST | NI_NUMERICSERV);
    return address.family() == AF_INET6 ? std::string("[") + host + "]:" + port
                                        : std::string(host) + ":" + port;
}

bool isInUse(const SocketAddress& address) {
    const base::Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!probe)
        return true;
    return connect(probe.get(), address.get(), address.length) == 0 || errno != ECONNREFUSED;
}

// Removes the socket file that a killed process has left.
bool removeStaleFile(const SocketAddress& address, std::string& error) {
    const std::string& path = address.text;
    struct stat file {};
    if (lstat(path.c_str(), &file) != 0)
        return true; // bind(2) reports what is wrong, if anything is
    if (!S_ISSOCK(file.st_mode)) {
        error = path + " exists and is not a socket; remove it or listen elsewhere";
        return false;
    }
    if (isInUse(address)) {
        error = path + " is in use by another process";
        return false;
    }
    if (unlink(path.c_str()) == 0 || errno == ENOENT)
        return true;
    error = systemError("cannot remove the stale socket " + path);
    return false;
}

// Sets the mode by the umask and not with chmod(2) afterwards, before which any client could
// connect.
int bindUnix(int fd, const SocketAddress& address, const SocketAccess& access) {
    const mode_t before = umask(~access.mode & 0777);
    const int result = bind(fd, address.get(), address.length);
    const int failure = errno;
    umask(before);
    errno = failure;
    if (result != 0 || !access.owner)
        return result;
    return lchown(address.text.c_str(), access.owner->uid, access.owner->gid);
}

int bindInet(int fd, const SocketAddress& address) {
    // Otherwise a restarted daemon could not bind while old connections are in TIME_WAIT.
    const int on = 1;
    if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0)
        return -1;
    return bind(fd, address.get(), address.length);
}

} // namespace

std::optional<SocketAddress> parseSocketAddress(const std::string& text, std::string& error) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || text.find('/') != std::string::npos)
        return unixAddress(text, error);
    const auto port = parsePort(text.substr(colon + 1));
    SocketAddress address;
    address.text = text;
    if (port && setHost(text.substr(0, colon), *port, address))
        return address;
    error = "'" + text + "' is neither a path nor a numeric ADDRESS:PORT such as 127.0.0.1:9000";
    return std::nullopt;
}

std::string socketName(int fd) {
    SocketAddress address;
    address.length = sizeof address.storage;
    if (getsockname(fd, address.get(), &address.length) != 0)
        return "?";
    if (address.family() == AF_UNIX)
        return unixName(address);
    return inetName(address);
}

bool isListening(int fd) {
    int listening = 0;
    socklen_t size = sizeof listening;
    return getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) == 0 && listening != 0;
}

std::optional<BoundSocket> BoundSocket::open(const SocketAddress& address,
                                             const SocketAccess& access, std::string& error) {
    base::Descriptor listener(socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!listener) {
        error = systemError("cannot open a socket");
        return std::nullopt;
    }
    const bool isUnix = address.family() == AF_UNIX;
    if (isUnix && !removeStaleFile(address, error))
        return std::nullopt;
    const int result =
        isUnix ? bindUnix(listener.get(), address, access) : bindInet(listener.get(), address);
    if (result != 0 || listen(listener.get(), SOMAXCONN) != 0) {
        error = systemError("cannot listen on " + address.text);
        return std::nullopt;
    }
    BoundSocket bound(std::move(listener));
    if (isUnix && lstat(address.text.c_str(), &bound.m_file) == 0)
        bound.m_path = address.text;
    return bound;
}

void BoundSocket::removeFile() const {
    struct stat now {};
    if (m_path.empty() || lstat(m_path.c_str(), &now) != 0)
        return;
    if (now.st_dev == m_file.st_dev && now.st_ino == m_file.st_ino)
        unlink(m_path.c_str());
}

bool takeInheritedSocket() {
    if (isListening(kListenFd))
        return true;
    const char* pid = std::getenv("LISTEN_PID");
    if (!pid || std::to_string(getpid()) != pid || !isListening(kFirstSystemdFd))
        return false;
    const base::Descriptor passed(kFirstSystemdFd);
    return dup2(passed.get(), kListenFd) == kListenFd;
}
