// Lingering connections of a process that has had none, with the system's own clock and poll(2),
// which request_end_test replaces.
#include "lingering_close.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;

// A front server's end of a connection, whose other end lingers.
class FrontServer {
public:
    FrontServer() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        m_end = base::Descriptor(ends[0]);
        m_lingering = ends[1];
        closeLingering(base::Descriptor(ends[1]));
    }

    void send(const std::string& text) const {
        EXPECT_EQ(::send(m_end.get(), text.data(), text.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(text.size()));
    }
    void close() { m_end.close(); }

    // Waits until the other end is closed; a failing test waits ten seconds.
    bool sawTheOtherEndClose() const {
        const auto limit = std::chrono::steady_clock::now() + 10s;
        while (isOpen() && std::chrono::steady_clock::now() < limit)
            std::this_thread::sleep_for(1ms);
        return !isOpen();
    }

private:
    bool isOpen() const { return fcntl(m_lingering, F_GETFD) >= 0; }

    base::Descriptor m_end;
    int m_lingering;
};

TEST(LingeringConnections, AreClosedOneAfterTheOther) {
    for (int number = 1; number <= 3; ++number) {
        FrontServer front;
        front.send("the rest of the body");
        front.close();
        ASSERT_TRUE(front.sawTheOtherEndClose()) << number;
        std::this_thread::sleep_for(50ms); // with no connection left, the thread sleeps
    }
    endLingering();
}

TEST(LingeringConnections, AreClosedBesideOneThatStaysOpen) {
    FrontServer silent;
    for (int number = 1; number <= 3; ++number) {
        FrontServer front;
        std::this_thread::sleep_for(50ms); // the thread sleeps until something arrives
        front.close();
        ASSERT_TRUE(front.sawTheOtherEndClose()) << number;
    }
    silent.close();
    EXPECT_TRUE(silent.sawTheOtherEndClose());
    endLingering();
}

} // namespace
