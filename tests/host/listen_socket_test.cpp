#include "listen_socket.h"
#include "temporary_folder.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <fstream>

namespace {

SocketAddress addressOf(const std::string& text) {
    std::string error;
    const auto address = parseSocketAddress(text, error);
    EXPECT_TRUE(address) << error;
    return address.value_or(SocketAddress());
}

std::optional<BoundSocket> openAt(const std::string& text, std::string& error,
                                  const SocketAccess& access = {}) {
    return BoundSocket::open(addressOf(text), access, error);
}

// Returns 0 or errno.
int connectTo(const SocketAddress& address) {
    const base::Descriptor client(socket(address.family(), SOCK_STREAM, 0));
    return connect(client.get(), address.get(), address.length) == 0 ? 0 : errno;
}

std::string freePort() {
    const base::Descriptor probe(socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in where{};
    where.sin_family = AF_INET;
    where.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof where;
    bind(probe.get(), reinterpret_cast<sockaddr*>(&where), length);
    getsockname(probe.get(), reinterpret_cast<sockaddr*>(&where), &length);
    return std::to_string(ntohs(where.sin_port));
}

mode_t modeOf(const std::string& path) {
    struct stat file {};
    return lstat(path.c_str(), &file) == 0 ? file.st_mode & 07777 : 0;
}

TEST(SocketAddress, IsAPathWhenItHasASlashOrNoColon) {
    for (const char* text : {"/run/web/fcgi.sock", "./a:9000", "/run/a:b", "fcgi.sock"}) {
        const SocketAddress address = addressOf(text);
        EXPECT_EQ(address.family(), AF_UNIX) << text;
        EXPECT_STREQ(reinterpret_cast<const sockaddr_un*>(&address.storage)->sun_path, text);
    }
}

TEST(SocketAddress, IsAnAddressWithAPort) {
    const SocketAddress address = addressOf("127.0.0.1:9000");
    const auto* where = reinterpret_cast<const sockaddr_in*>(&address.storage);
    ASSERT_EQ(address.family(), AF_INET);
    EXPECT_EQ(where->sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    EXPECT_EQ(ntohs(where->sin_port), 9000);
}

TEST(SocketAddress, IsAnAddressInBracketsWithAPort) {
    const SocketAddress address = addressOf("[::1]:65535");
    const auto* where = reinterpret_cast<const sockaddr_in6*>(&address.storage);
    ASSERT_EQ(address.family(), AF_INET6);
    EXPECT_TRUE(IN6_IS_ADDR_LOOPBACK(&where->sin6_addr));
    EXPECT_EQ(ntohs(where->sin6_port), 65535);
}

TEST(SocketAddress, IsInvalidWhenItIsNeither) {
    for (const std::string text :
         {":9000", "localhost:9000", "127.0.0.1:", "127.0.0.1:0", "127.0.0.1:65536",
          "127.0.0.1:+80", "127.0.0.1: 80", "127.0.0.1:80x", "127.0.0:80", "::1:9000", "[::1]",
          "[]:80", "[127.0.0.1]:80", "[::1:80"}) {
        std::string error;
        EXPECT_FALSE(parseSocketAddress(text, error)) << text;
        EXPECT_EQ(error, "'" + text +
                             "' is neither a path nor a numeric ADDRESS:PORT such as "
                             "127.0.0.1:9000");
    }
}

TEST(SocketAddress, HasAPathOfAtMost107Bytes) {
    const std::string longest = "/" + std::string(106, 'x');
    EXPECT_EQ(addressOf(longest).family(), AF_UNIX);
    std::string error;
    EXPECT_FALSE(parseSocketAddress(longest + "x", error));
    EXPECT_EQ(error, "the path of a Unix socket has at most 107 bytes: " + longest + "x");
}

std::string nameOfSocketAt(const std::string& address) {
    std::string error;
    const auto bound = openAt(address, error);
    return bound ? socketName(bound->get()) : error;
}

TEST(SocketName, IsTheAddressThatItWasOpenedWith) {
    const TemporaryFolder folder;
    const std::string port = freePort();
    for (const std::string& address :
         {folder.file("fcgi.sock"), "127.0.0.1:" + port, "[::1]:" + port})
        EXPECT_EQ(nameOfSocketAt(address), address);
}

TEST(SocketName, ShowsAnAbstractSocketWithAnAt) {
    const base::Descriptor abstract(socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un where{};
    where.sun_family = AF_UNIX;
    const std::string name = std::string(1, '\0') + "socket-name-" + std::to_string(getpid());
    name.copy(where.sun_path, name.size());
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    ASSERT_EQ(bind(abstract.get(), reinterpret_cast<sockaddr*>(&where), length), 0);
    EXPECT_EQ(socketName(abstract.get()), "@" + name.substr(1));
}

TEST(SocketName, IsAQuestionMarkWhereThereIsNone) {
    EXPECT_EQ(socketName(base::Descriptor(socket(AF_UNIX, SOCK_STREAM, 0)).get()), "?");
    EXPECT_EQ(socketName(base::Descriptor(open("/dev/null", O_RDWR)).get()), "?");
}

TEST(BoundSocket, HasMode0660WhateverTheUmask) {
    const TemporaryFolder folder;
    for (const mode_t mask : {0, 022, 077}) {
        const std::string path = folder.file("mask" + std::to_string(mask));
        const mode_t before = umask(mask);
        std::string error;
        const auto bound = openAt(path, error);
        EXPECT_EQ(umask(before), mask);
        ASSERT_TRUE(bound) << error;
        EXPECT_TRUE(isListening(bound->get()));
        EXPECT_EQ(modeOf(path), 0660u);
        EXPECT_EQ(connectTo(addressOf(path)), 0);
    }
}

TEST(BoundSocket, HasTheRequestedModeAndOwner) {
    const TemporaryFolder folder;
    const std::string path = folder.file("socket");
    SocketAccess access;
    access.mode = 0606;
    access.owner = Account{"me", getuid(), getuid() == 0 ? gid_t{1} : getgid()};
    std::string error;
    ASSERT_TRUE(openAt(path, error, access)) << error;
    struct stat file {};
    ASSERT_EQ(lstat(path.c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 07777, 0606u);
    EXPECT_EQ(file.st_uid, access.owner->uid);
    EXPECT_EQ(file.st_gid, access.owner->gid);
}

TEST(BoundSocket, ReplacesAStaleSocketFile) {
    const TemporaryFolder folder;
    const std::string path = folder.file("socket");
    std::string error;
    ASSERT_TRUE(openAt(path, error)) << error; // and leaves its file behind
    ASSERT_EQ(connectTo(addressOf(path)), ECONNREFUSED);
    const auto bound = openAt(path, error);
    ASSERT_TRUE(bound) << error;
    EXPECT_EQ(connectTo(addressOf(path)), 0);
}

TEST(BoundSocket, KeepsASocketFileThatIsInUse) {
    const TemporaryFolder folder;
    const std::string path = folder.file("socket");
    std::string error;
    const auto first = openAt(path, error);
    ASSERT_TRUE(first) << error;
    EXPECT_FALSE(openAt(path, error));
    EXPECT_EQ(error, path + " is in use by another process");
    EXPECT_EQ(connectTo(addressOf(path)), 0);
}

TEST(BoundSocket, KeepsAFileThatIsNotASocket) {
    const TemporaryFolder folder;
    const std::string path = folder.file("precious");
    std::ofstream(path) << "data";
    std::string error;
    EXPECT_FALSE(openAt(path, error));
    EXPECT_EQ(error, path + " exists and is not a socket; remove it or listen elsewhere");
    std::string content;
    std::ifstream(path) >> content;
    EXPECT_EQ(content, "data");
}

TEST(BoundSocket, KeepsASymbolicLink) {
    const TemporaryFolder folder;
    std::string error;
    ASSERT_TRUE(openAt(folder.file("socket"), error)) << error;
    std::filesystem::create_symlink(folder.file("socket"), folder.file("link"));
    EXPECT_FALSE(openAt(folder.file("link"), error));
    EXPECT_TRUE(std::filesystem::is_symlink(folder.file("link")));
}

TEST(BoundSocket, ReportsWhyItCannotListenOnAPath) {
    const TemporaryFolder folder;
    std::string error;
    EXPECT_FALSE(openAt(folder.file("missing/socket"), error));
    EXPECT_EQ(error,
              "cannot listen on " + folder.file("missing/socket") + ": No such file or directory");
}

TEST(BoundSocket, CanRemoveItsFileTwice) {
    const TemporaryFolder folder;
    const std::string path = folder.file("socket");
    std::string error;
    const auto bound = openAt(path, error);
    ASSERT_TRUE(bound) << error;
    bound->removeFile();
    EXPECT_FALSE(std::filesystem::exists(path));
    bound->removeFile();
}

TEST(BoundSocket, KeepsTheSocketFileOfASuccessor) {
    const TemporaryFolder folder;
    const std::string path = folder.file("socket");
    std::string error;
    const auto bound = openAt(path, error);
    ASSERT_TRUE(bound) << error;
    std::filesystem::rename(path, folder.file("moved"));
    const auto successor = openAt(path, error);
    ASSERT_TRUE(successor) << error;
    bound->removeFile();
    EXPECT_EQ(connectTo(addressOf(path)), 0);
}

TEST(BoundSocket, ReusesAPortWhoseConnectionsAreInTimeWait) {
    const std::string where = "127.0.0.1:" + freePort();
    std::string error;
    for (int round = 0; round < 2; ++round) {
        const auto bound = openAt(where, error);
        ASSERT_TRUE(bound) << error;
        const SocketAddress address = addressOf(where);
        const base::Descriptor client(socket(AF_INET, SOCK_STREAM, 0));
        ASSERT_EQ(connect(client.get(), address.get(), address.length), 0);
        // The side that closes first keeps the port busy for a minute.
        base::Descriptor(accept(bound->get(), nullptr, nullptr));
    }
}

TEST(BoundSocket, ReportsThatAPortIsInUse) {
    const std::string where = "127.0.0.1:" + freePort();
    std::string error;
    const auto first = openAt(where, error);
    ASSERT_TRUE(first) << error;
    EXPECT_FALSE(openAt(where, error));
    EXPECT_EQ(error, "cannot listen on " + where + ": Address already in use");
}

// Replaces a descriptor, and restores it when it is destroyed.
class Replaced {
public:
    Replaced(int fd, int by) : m_fd(fd), m_before(fcntl(fd, F_DUPFD, 100)) { dup2(by, fd); }
    ~Replaced() {
        if (m_before)
            dup2(m_before.get(), m_fd);
        else
            close(m_fd);
    }

private:
    int m_fd;
    base::Descriptor m_before;
};

TEST(InheritedSocket, MayBeAtFileDescriptorZero) {
    const TemporaryFolder folder;
    std::string error;
    const auto bound = openAt(folder.file("socket"), error);
    ASSERT_TRUE(bound) << error;
    const Replaced zero(kListenFd, bound->get());
    EXPECT_TRUE(takeInheritedSocket());
}

TEST(InheritedSocket, IsMissingWhereNoSocketListens) {
    unsetenv("LISTEN_PID");
    const base::Descriptor file(open("/dev/null", O_RDWR));
    const Replaced zero(kListenFd, file.get());
    EXPECT_FALSE(takeInheritedSocket());
    const base::Descriptor unconnected(socket(AF_UNIX, SOCK_STREAM, 0));
    const Replaced zeroAgain(kListenFd, unconnected.get());
    EXPECT_FALSE(takeInheritedSocket());
}

TEST(InheritedSocket, IsTheFirstOneThatSystemdPassed) {
    const TemporaryFolder folder;
    std::string error;
    const auto bound = openAt(folder.file("socket"), error);
    ASSERT_TRUE(bound) << error;
    const base::Descriptor file(open("/dev/null", O_RDWR));
    const Replaced zero(kListenFd, file.get());
    const Replaced three(3, bound->get());
    setenv("LISTEN_FDS", "1", 1);

    setenv("LISTEN_PID", std::to_string(getpid() + 1).c_str(), 1);
    EXPECT_FALSE(takeInheritedSocket()) << "meant for another process";
    EXPECT_FALSE(isListening(kListenFd));

    setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
    EXPECT_TRUE(takeInheritedSocket());
    EXPECT_TRUE(isListening(kListenFd));
    unsetenv("LISTEN_PID");
    unsetenv("LISTEN_FDS");
}

} // namespace
