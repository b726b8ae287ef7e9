// The clock and the log that replace those of the system and of the device.
#include <kit/testing/recorded_log.h>
#include <kit/testing/test_clock.h>

#include <app_log.h>
#include <gtest/gtest.h>
#include <web_debug.h>

#include <sstream>
#include <string>
#include <sys/times.h>
#include <vector>

namespace {

using namespace kit::testing;

clock_t systemTicks() {
    struct tms unused;
    return ::times(&unused);
}

TEST(TestClock, ChangesOnlyWhenTheTestSetsIt) {
    test_clock::setTicks(100000);
    EXPECT_EQ(test_clock::seconds(), 1000);
    EXPECT_EQ(systemTicks(), 100000);
    EXPECT_EQ(systemTicks(), 100000);
    test_clock::advanceSeconds(181);
    EXPECT_EQ(test_clock::seconds(), 1181);
    EXPECT_EQ(systemTicks(), 118100);
    test_clock::advanceSeconds(-181);
    EXPECT_EQ(systemTicks(), 100000);
}

TEST(RecordedLog, KeepsEveryCallInOrder) {
    recorded_log::clear();
    app_log(65, 4, "%d of %s\n", 1, "two");
    WebDebug::getInstance()->info("a %s", "b");
    WebDebug::getInstance()->warn("w");
    WebDebug::getInstance()->error("e");
    WebDebug::getInstance()->setUser("admin");
    WebDebug::getInstance()->setUser(nullptr);
    EXPECT_EQ(recorded_log::records(),
              (std::vector<LogRecord>{
                  recorded_log::appLog(4, "1 of two\n"), recorded_log::webDebug("info", "a b"),
                  recorded_log::webDebug("warn", "w"), recorded_log::webDebug("error", "e"),
                  recorded_log::webDebug("setUser", "admin"),
                  recorded_log::webDebug("setUser", "(null)")}));
    recorded_log::clear();
    EXPECT_TRUE(recorded_log::records().empty());
}

TEST(RecordedLog, PrintsARecordAsACall) {
    std::ostringstream out;
    out << LogRecord{"app_log", 65, 4, "text"};
    EXPECT_EQ(out.str(), "app_log(65, 4, \"text\")");
}

} // namespace
