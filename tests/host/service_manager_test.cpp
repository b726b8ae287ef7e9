#include "base/descriptor.h"
#include "service_manager.h"
#include "temporary_folder.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>

namespace {

using namespace std::chrono_literals;

// Sets the variables and restores the environment at the end of the test.
class Environment : public testing::Test {
protected:
    ~Environment() override {
        for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
            unsetenv(name);
    }
    static void set(const char* name, const std::string& value) { setenv(name, value.c_str(), 1); }
};

class AServiceManager : public Environment {
protected:
    // Listens at a path, or at an abstract address if `name` begins with "@".
    void listenAt(std::string name) {
        set("NOTIFY_SOCKET", name);
        if (name.front() == '@')
            name.front() = '\0';
        sockaddr_un where{};
        where.sun_family = AF_UNIX;
        name.copy(where.sun_path, name.size());
        const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        ASSERT_EQ(bind(m_socket.get(), reinterpret_cast<sockaddr*>(&where), length), 0);
    }

    std::string received() {
        char message[64];
        const ssize_t size = recv(m_socket.get(), message, sizeof message, MSG_DONTWAIT);
        return {message, static_cast<std::size_t>(std::max<ssize_t>(size, 0))};
    }

    base::Descriptor m_socket{socket(AF_UNIX, SOCK_DGRAM, 0)};
    std::string m_error;
};

TEST_F(AServiceManager, IsNotifiedAtAPath) {
    const TemporaryFolder folder;
    listenAt(folder.file("notify"));
    EXPECT_TRUE(ServiceManager().notify("READY=1", m_error)) << m_error;
    EXPECT_EQ(received(), "READY=1");
}

TEST_F(AServiceManager, IsNotifiedAtAnAbstractAddress) {
    listenAt("@service-manager-" + std::to_string(getpid()));
    EXPECT_TRUE(ServiceManager().notify("WATCHDOG=1", m_error)) << m_error;
    EXPECT_EQ(received(), "WATCHDOG=1");
}

TEST_F(AServiceManager, NeedNotExist) {
    EXPECT_TRUE(ServiceManager().notify("READY=1", m_error));
    set("NOTIFY_SOCKET", "");
    EXPECT_TRUE(ServiceManager().notify("READY=1", m_error));
    EXPECT_EQ(m_error, "");
}

TEST_F(AServiceManager, IsReportedWhenItCannotBeNotified) {
    const TemporaryFolder folder;
    for (const std::string& name :
         {folder.file("missing"), std::string("vsock:2:9"), "/" + std::string(200, 'a')}) {
        set("NOTIFY_SOCKET", name);
        m_error.clear();
        EXPECT_FALSE(ServiceManager().notify("READY=1", m_error)) << name;
        EXPECT_EQ(m_error.rfind("cannot notify the service manager at " + name + ": ", 0), 0U)
            << m_error;
    }
}

using WatchdogTime = Environment;

TEST_F(WatchdogTime, IsThatOfTheEnvironment) {
    EXPECT_EQ(ServiceManager().watchdogTime(), 0us);
    set("WATCHDOG_USEC", "3000000");
    EXPECT_EQ(ServiceManager().watchdogTime(), 3s);
    set("WATCHDOG_PID", std::to_string(getpid()));
    EXPECT_EQ(ServiceManager().watchdogTime(), 3s);
}

TEST_F(WatchdogTime, IsAYearAtMost) {
    set("WATCHDOG_USEC", "9223372036854775807");
    EXPECT_EQ(ServiceManager().watchdogTime(), std::chrono::hours(24 * 365));
}

TEST_F(WatchdogTime, IsZeroWhereItIsMeantForAnotherProcess) {
    set("WATCHDOG_USEC", "3000000");
    set("WATCHDOG_PID", std::to_string(getppid()));
    EXPECT_EQ(ServiceManager().watchdogTime(), 0us);
}

TEST_F(WatchdogTime, IsZeroWhereItIsNoNumber) {
    for (const char* text : {"", "soon", "3s", "-3", "99999999999999999999"}) {
        set("WATCHDOG_USEC", text);
        EXPECT_EQ(ServiceManager().watchdogTime(), 0us) << text;
    }
}

} // namespace
