#include "app_log.h"
#include "log_control.h"
#include "web_debug.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

// The socket to which this program's own syslog(3) writes.
int syslogEnd = -1;

// What one process wrote: one entry for each write(2), and for each call of syslog(3) or
// openlog(3).
struct Written {
    std::vector<std::string> toStderr; // with "TIME" instead of the time
    std::vector<std::string> toSyslog;
};

using Environment = std::map<std::string, std::string>;

std::vector<std::string> readPackets(int end) {
    std::vector<std::string> packets;
    std::array<char, 8192> buffer;
    for (ssize_t size; (size = ::recv(end, buffer.data(), buffer.size(), 0)) > 0;)
        packets.emplace_back(buffer.data(), static_cast<std::size_t>(size));
    ::close(end);
    return packets;
}

std::string withoutTime(const std::string& line) {
    std::tm time{};
    const char* rest = ::strptime(line.c_str(), "%Y-%m-%dT%H:%M:%SZ ", &time);
    return rest != nullptr ? std::string("TIME ") + rest : line;
}

// Runs `work` in a new process, since each process reads the environment only once. The outputs are
// sockets that keep the writes apart.
Written inProcess(const Environment& environment, const std::function<void()>& work) {
    int err[2];
    int log[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, err), 0);
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, log), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::unsetenv("APP_LOG");
        ::unsetenv("APP_LOG_LEVEL");
        for (const auto& [name, value] : environment)
            ::setenv(name.c_str(), value.c_str(), 1);
        ::dup2(err[1], STDERR_FILENO);
        for (const int end : {err[0], err[1], log[0]})
            ::close(end);
        syslogEnd = log[1];
        work();
        ::_exit(0);
    }
    ::close(err[1]);
    ::close(log[1]);
    Written written;
    std::thread reader([&] { written.toSyslog = readPackets(log[0]); });
    written.toStderr = readPackets(err[0]);
    reader.join();
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    for (std::string& line : written.toStderr)
        line = withoutTime(line);
    return written;
}

using Lines = std::vector<std::string>;

const Environment kToStderr = {{"APP_LOG", "stderr"}};

// Sends what syslog(3) would.
void sendRecord(int priority, const char* format, va_list arguments) {
    std::array<char, 4096> text;
    const int prefix = std::snprintf(text.data(), text.size(), "%d ", priority);
    const int size = std::vsnprintf(
        text.data() + prefix, text.size() - static_cast<std::size_t>(prefix), format, arguments);
    ::send(syslogEnd, text.data(), static_cast<std::size_t>(prefix + size), 0);
}

} // namespace

// These replace the C library's functions.
extern "C" void openlog(const char* name, int options, int facility) {
    const std::string text = std::string("openlog ") + name + " " + std::to_string(options) + " " +
                             std::to_string(facility);
    ::send(syslogEnd, text.data(), text.size(), 0);
    errno = EIO; // as the C library's function may do
}

// The second one is what syslog(3) becomes by _FORTIFY_SOURCE.
extern "C" void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    sendRecord(priority, format, arguments);
    va_end(arguments);
}
extern "C" void __syslog_chk(int priority, int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    sendRecord(priority, format, arguments);
    va_end(arguments);
}

TEST(Log, WritesEachRecordAsOneLineToBothOutputs) {
    const Written written = inProcess({}, [] {
        app_log(65, 4, "first %d\n", 1);
        WebDebug::getInstance()->error("second %s", "x");
    });
    EXPECT_EQ(written.toStderr,
              (Lines{"TIME warning [65]: first 1\n", "TIME error [web]: second x\n"}));
    EXPECT_EQ(written.toSyslog, (Lines{"openlog fcgiServer " + std::to_string(LOG_PID) + " " +
                                           std::to_string(LOG_DAEMON),
                                       "4 [65]: first 1", "3 [web]: second x"}));
}

TEST(Log, WritesToTheOutputThatTheEnvironmentNames) {
    const auto work = [] { app_log(65, 4, "text"); };
    const Written toStderr = inProcess(kToStderr, work);
    EXPECT_EQ(toStderr.toStderr, Lines{"TIME warning [65]: text\n"});
    EXPECT_EQ(toStderr.toSyslog, Lines{});
    const Written toSyslog = inProcess({{"APP_LOG", "syslog"}}, work);
    EXPECT_EQ(toSyslog.toStderr, Lines{});
    ASSERT_EQ(toSyslog.toSyslog.size(), 2u);
    EXPECT_EQ(toSyslog.toSyslog[1], "4 [65]: text");
}

TEST(Log, DropsRecordsAboveTheThreshold) {
    const auto work = [] {
        for (int level = 0; level < 8; ++level)
            app_log(1, level, "%d", level);
    };
    Environment environment = kToStderr;
    EXPECT_EQ(inProcess(environment, work).toStderr.size(), 7u);
    environment["APP_LOG_LEVEL"] = "3";
    EXPECT_EQ(inProcess(environment, work).toStderr,
              (Lines{"TIME emergency [1]: 0\n", "TIME alert [1]: 1\n", "TIME critical [1]: 2\n",
                     "TIME error [1]: 3\n"}));
    environment["APP_LOG_LEVEL"] = "7";
    EXPECT_EQ(inProcess(environment, work).toStderr.size(), 8u);
}

TEST(Log, ReportsAThresholdThatIsNotALevel) {
    const Written written =
        inProcess({{"APP_LOG_LEVEL", "de\nbug"}}, [] { app_log(65, 4, "%s", "text"); });
    const std::string line =
        "[log]: APP_LOG_LEVEL=de\\nbug is not a level from 0 to 7; the threshold is 6";
    EXPECT_EQ(written.toStderr,
              (Lines{"TIME warning " + line + "\n", "TIME warning [65]: text\n"}));
    ASSERT_EQ(written.toSyslog.size(), 3u);
    EXPECT_EQ(written.toSyslog[1], "4 " + line);
}

TEST(Log, HasAThresholdThatCanBeChanged) {
    Environment environment = kToStderr;
    environment["APP_LOG_LEVEL"] = "4";
    EXPECT_EQ(inProcess(environment,
                        [] {
                            app_log(65, 4, "begins at %d", app_log_threshold());
                            app_log(65, 7, "dropped");
                            app_log_set_threshold(7);
                            app_log(65, 7, "debug at %d", app_log_threshold());
                            app_log_set_threshold(3);
                            app_log(65, 4, "dropped");
                            app_log(65, 3, "error at %d", app_log_threshold());
                        })
                  .toStderr,
              (Lines{"TIME warning [65]: begins at 4\n", "TIME debug [65]: debug at 7\n",
                     "TIME error [65]: error at 3\n"}));
}

TEST(Log, KeepsAThresholdThatIsSetBeforeTheFirstRecord) {
    EXPECT_EQ(inProcess(kToStderr,
                        [] {
                            app_log_set_threshold(4);
                            app_log(65, 6, "dropped");
                            app_log(65, 4, "text");
                        })
                  .toStderr,
              Lines{"TIME warning [65]: text\n"});
}

TEST(Log, ClampsTheThreshold) {
    EXPECT_EQ(inProcess(kToStderr,
                        [] {
                            app_log_set_threshold(99);
                            app_log(65, 0, "%d", app_log_threshold());
                            app_log_set_threshold(-1);
                            app_log(65, 0, "%d", app_log_threshold());
                        })
                  .toStderr,
              (Lines{"TIME emergency [65]: 7\n", "TIME emergency [65]: 0\n"}));
}

TEST(Log, ClampsTheLevel) {
    Environment environment = kToStderr;
    environment["APP_LOG_LEVEL"] = "7";
    EXPECT_EQ(inProcess(environment,
                        [] {
                            app_log(-1, -5, "low");
                            app_log(65, 99, "high");
                        })
                  .toStderr,
              (Lines{"TIME emergency [-1]: low\n", "TIME debug [65]: high\n"}));
}

TEST(Log, CannotBeForgedByAClient) {
    const Written written = inProcess({}, [] {
        const char* hostile = "x\r\n2026-11-21T03:00:00Z error [65]: forged\x1b[1A\xc2\x85";
        app_log(65, 4, "url = %s, include illegal char\n", hostile);
        WebDebug::getInstance()->setUser(hostile);
        WebDebug::getInstance()->warn("text");
    });
    ASSERT_EQ(written.toStderr.size(), 2u);
    EXPECT_EQ(written.toStderr[0],
              "TIME warning [65]: url = x\\r\\n2026-11-21T03:00:00Z error [65]: "
              "forged\\x1B[1A\\xC2\\x85, include illegal char\n");
    EXPECT_EQ(written.toStderr[1].find('\n'), written.toStderr[1].size() - 1);
    for (const std::string& message : written.toSyslog)
        EXPECT_EQ(message.find_first_of("\r\n\x1b"), std::string::npos);
}

TEST(Log, WritesPercentSignsInArgumentsAsTheyAre) {
    const Written written = inProcess({}, [] { app_log(65, 4, "%s", "%s%n%d"); });
    EXPECT_EQ(written.toStderr, Lines{"TIME warning [65]: %s%n%d\n"});
    EXPECT_EQ(written.toSyslog.back(), "4 [65]: %s%n%d");
}

TEST(Log, KeepsErrnoAndCanFormatIt) {
    const Written written = inProcess({}, [] {
        errno = ENOENT;
        app_log(65, 4, "%m");
        WebDebug::getInstance()->info("still %m");
        app_log(65, 7, "dropped");
        if (errno != ENOENT)
            ::_exit(1);
    });
    const std::string text = std::strerror(ENOENT);
    EXPECT_EQ(written.toStderr, (Lines{"TIME warning [65]: " + text + "\n",
                                       "TIME information [web]: still " + text + "\n"}));
}

TEST(Log, KeepsErrnoWhenNothingCanBeWritten) {
    EXPECT_EQ(inProcess(kToStderr,
                        [] {
                            ::close(STDERR_FILENO);
                            errno = 0;
                            app_log(65, 4, "lost");
                            if (errno != 0)
                                ::_exit(1);
                        })
                  .toStderr,
              Lines{});
}

TEST(Log, WritesNothingWithoutAFormat) {
    EXPECT_EQ(inProcess(kToStderr,
                        [] {
                            const char* none = nullptr;
                            app_log(65, 4, none, 0);
                            WebDebug::getInstance()->error(none, 0);
                        })
                  .toStderr,
              Lines{});
}

TEST(Log, WritesEachRecordWholeFromSeveralThreads) {
    constexpr int kThreads = 8;
    constexpr int kRecords = 250;
    const Written written = inProcess(kToStderr, [] {
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread)
            threads.emplace_back([thread] {
                const std::string filling(static_cast<std::size_t>(thread) * 100, 'x');
                for (int i = 0; i < kRecords; ++i) {
                    WebDebug::getInstance()->setUser(i % 2 == 0 ? "even" : nullptr);
                    app_log(thread, 4, "%d %s\n", i, filling.c_str());
                }
            });
        for (std::thread& each : threads)
            each.join();
    });
    std::set<std::string> expected;
    for (int thread = 0; thread < kThreads; ++thread) {
        const std::string filling(static_cast<std::size_t>(thread) * 100, 'x');
        for (int i = 0; i < kRecords; ++i)
            expected.insert(std::to_string(thread) + "]: " + std::to_string(i) + " " + filling +
                            "\n");
    }
    std::set<std::string> seen;
    for (std::string line : written.toStderr) {
        const std::string start = "TIME warning [";
        ASSERT_EQ(line.substr(0, start.size()), start);
        const std::string user = " user=even";
        const std::size_t at = line.find(user);
        if (at != std::string::npos)
            line.erase(at, user.size());
        seen.insert(line.substr(start.size()));
    }
    EXPECT_TRUE(seen == expected);
    EXPECT_EQ(written.toStderr.size(), std::size_t{kThreads * kRecords});
}

TEST(Log, NamesTheRequestOnBothOutputs) {
    static thread_local app_log_request served{0, 0};
    const Written written = inProcess({}, [] {
        app_log(65, 4, "before");
        app_log_mark_requests([] { return served; });
        app_log(65, 4, "outside");
        served = {1, 12};
        app_log(65, 4, "inside");
        std::thread([] {
            WebDebug::getInstance()->warn("outside, elsewhere");
            served = {2, 13};
            WebDebug::getInstance()->warn("inside, elsewhere");
        }).join();
        app_log(65, 4, "still inside");
        app_log_mark_requests(nullptr);
        app_log(65, 4, "no more");
    });
    const Lines messages = {"[65]: before",
                            "[65]: outside",
                            "[65] thread=1 request=12: inside",
                            "[web]: outside, elsewhere",
                            "[web] thread=2 request=13: inside, elsewhere",
                            "[65] thread=1 request=12: still inside",
                            "[65]: no more"};
    ASSERT_EQ(written.toStderr.size(), messages.size());
    ASSERT_EQ(written.toSyslog.size(), messages.size() + 1);
    for (std::size_t i = 0; i < messages.size(); ++i) {
        EXPECT_EQ(written.toStderr[i], "TIME warning " + messages[i] + "\n");
        EXPECT_EQ(written.toSyslog[i + 1], "4 " + messages[i]);
    }
}

TEST(WebLog, IsOneObjectOfTheProcess) {
    ASSERT_NE(WebDebug::getInstance(), nullptr);
    EXPECT_EQ(WebDebug::getInstance(), WebDebug::getInstance());
}

TEST(WebLog, HasTheLevelsOfItsFunctionNames) {
    const Written written = inProcess({}, [] {
        WebDebug::getInstance()->info("a");
        WebDebug::getInstance()->warn("b");
        WebDebug::getInstance()->error("c");
    });
    EXPECT_EQ(written.toStderr, (Lines{"TIME information [web]: a\n", "TIME warning [web]: b\n",
                                       "TIME error [web]: c\n"}));
    EXPECT_EQ(Lines(written.toSyslog.begin() + 1, written.toSyslog.end()),
              (Lines{"6 [web]: a", "4 [web]: b", "3 [web]: c"}));
}

TEST(WebLog, NamesTheUserInAllRecordsUntilItIsSetToNull) {
    EXPECT_EQ(
        inProcess(kToStderr,
                  [] {
                      char name[] = "admin";
                      WebDebug* log = WebDebug::getInstance();
                      log->setUser(name);
                      name[0] = 'X';
                      log->info("in");
                      app_log(65, 6, "in too");
                      log->setUser("guest");
                      log->info("other");
                      log->setUser(nullptr);
                      log->info("out");
                  })
            .toStderr,
        (Lines{"TIME information [web] user=admin: in\n",
               "TIME information [65] user=admin: in too\n",
               "TIME information [web] user=guest: other\n", "TIME information [web]: out\n"}));
}
