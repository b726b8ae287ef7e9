#include "servlet_controller.h"

#include <kit/testing/recorded_log.h>

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <vector>

namespace {

using namespace kit::testing;

const LogRecord kNullArgument =
    recorded_log::appLog(4, "ServletController::setStatus para error\n");

class DeviceStatus : public testing::Test {
protected:
    DeviceStatus() { recorded_log::clear(); }

    std::string word() {
        char text[64] = {};
        m_controller.getStatus(text);
        return text;
    }
    std::string wordAfter(const char* query) {
        m_controller.setStatus(query);
        return word();
    }

    // The code is private: it is the last member, after the virtual table pointer and four
    // pointers.
    char* codeField() { return reinterpret_cast<char*>(&m_controller) + 5 * sizeof(void*); }
    std::int32_t code() {
        std::int32_t code;
        std::memcpy(&code, codeField(), sizeof code);
        return code;
    }
    void setCode(std::int32_t code) { std::memcpy(codeField(), &code, sizeof code); }

    ServletController m_controller;
};

TEST_F(DeviceStatus, IsIdleAtFirst) {
    m_controller.init();
    EXPECT_EQ(word(), "idle");
    EXPECT_EQ(code(), 0);
}

TEST_F(DeviceStatus, IsIdleAgainAfterInit) {
    m_controller.setStatus("q=reboot");
    m_controller.init();
    EXPECT_EQ(word(), "idle");
}

TEST_F(DeviceStatus, IsTheLastMember) {
    EXPECT_EQ(sizeof(ServletController), 6 * sizeof(void*));
}

TEST_F(DeviceStatus, Has32Bits) {
    constexpr std::size_t kBehindCode = 5 * sizeof(void*) + sizeof(std::int32_t);
    constexpr std::size_t kSize = sizeof(ServletController) + sizeof(std::int32_t);
    alignas(ServletController) unsigned char memory[kSize];
    std::memset(memory, 0x5a, sizeof memory);
    auto* controller = new (memory) ServletController;
    controller->setStatus("q=reboot");
    std::uint32_t behind;
    std::memcpy(&behind, memory + kBehindCode, sizeof behind);
    EXPECT_EQ(behind, 0x5a5a5a5a);
    controller->~ServletController();
}

TEST_F(DeviceStatus, FollowsTheQuery) {
    const struct {
        const char* query;
        std::int32_t code;
        const char* word;
    } rows[] = {
        // rules for a part of the query
        {"reboot=true", 1, "reboot"},
        {"p=x&reboot=true&y=1", 1, "reboot"},
        {"reboot=trueish", 1, "reboot"},
        {"noreboot=true", 1, "reboot"},
        {"q=reboot", 1, "reboot"},
        {"p=settings&q=reboot", 1, "reboot"},
        {"faq=rebooting", 1, "reboot"},
        {"p=settings-upgrade&q=reset", 2, "reset"},
        {"p=settings-upgrade&q=resetting&x=1", 2, "reset"},
        {"x=1&p=settings-upgrade&q=reset", 2, "reset"},
        {"now=true", 3, "autoprovision"},
        {"p=settings-autop&now=true&x=1", 3, "autoprovision"},
        {"know=true", 3, "autoprovision"},
        // rules for the whole query
        {"p=settings-config&q=import", 5, "configration"},
        {"p=settings-config&q=localconfig&type=import", 5, "configration"},
        {"p=settings-config&q=localconfig&type=remove", 5, "configration"},
        {"p=settings-config&q=import&x=1", 0, "idle"},
        {"p=settings-config&q=localconfig&type=import&x=1", 0, "idle"},
        {"p=settings-config&q=localconfig&type=remove&x=1", 0, "idle"},
        {"x=1&p=settings-config&q=import", 0, "idle"},
        {"x=1&p=settings-config&q=localconfig&type=import", 0, "idle"},
        {"x=1&p=settings-config&q=localconfig&type=remove", 0, "idle"},
        {"p=settings-config&q=impor", 0, "idle"},
        {"p=settings-config&q=localconfig", 0, "idle"},
        {"p=settings-config&q=localconfig&type=export", 0, "idle"},
        {"p=settings-config&q=localconfig&type=imports", 0, "idle"},
        {"q=import&p=settings-config", 0, "idle"},
        {"P=settings-config&q=import", 0, "idle"},
        // no rule
        {"", 0, "idle"},
        {"p=status", 0, "idle"},
        {"reboot", 0, "idle"},
        {"reboot=false", 0, "idle"},
        {"reboot=True", 0, "idle"},
        {"REBOOT=TRUE", 0, "idle"},
        {"q=Reboot", 0, "idle"},
        {"q=reboo", 0, "idle"},
        {"q=reset", 0, "idle"},
        {"p=settings-upgrade", 0, "idle"},
        {"q=reset&p=settings-upgrade", 0, "idle"},
        {"p=settings-upgrade&x=1&q=reset", 0, "idle"},
        {"p=settings-upgrade&q=upgrade", 0, "idle"},
        {"now=false", 0, "idle"},
        {"now=True", 0, "idle"},
        {"\xFF\x80", 0, "idle"},
        // the first rule decides
        {"p=upgrade&now=true&reboot=true", 1, "reboot"},
        {"now=true&q=reboot", 1, "reboot"},
        {"p=settings-upgrade&q=reset&reboot=true", 1, "reboot"},
        {"p=settings-upgrade&q=reset&x=q=reboot", 1, "reboot"},
        {"now=true&p=settings-upgrade&q=reset", 2, "reset"},
        {"p=settings-config&q=import&now=true", 3, "autoprovision"},
        {"p=notice&q=reboot", 1, "reboot"},
        {"p=notice&p=settings-upgrade&q=reset", 2, "reset"},
        {"p=notice&now=true", 3, "autoprovision"},
    };
    for (const auto& row : rows) {
        setCode(4); // a code that no query selects
        m_controller.setStatus(row.query);
        EXPECT_EQ(code(), row.code) << row.query;
        EXPECT_EQ(word(), row.word) << row.query;
    }
    EXPECT_TRUE(recorded_log::records().empty());
}

TEST_F(DeviceStatus, IsNotChangedByANotice) {
    EXPECT_EQ(wordAfter("q=reboot"), "reboot");
    for (const char* query : {"p=notice", "p=notice&x=1", "x=1&p=notice", "p=noticeboard",
                              "top=notice", "p=settings-config&q=import&p=notice"})
        EXPECT_EQ(wordAfter(query), "reboot") << query;
    EXPECT_EQ(wordAfter("p=settings-config&q=import"), "configration");
    EXPECT_EQ(wordAfter("p=notice"), "configration");
    EXPECT_EQ(wordAfter("p=Notice"), "idle");
    EXPECT_EQ(wordAfter("p=notice"), "idle");
    EXPECT_TRUE(recorded_log::records().empty());
}

TEST_F(DeviceStatus, ReturnsToIdleWithAnyOtherRequest) {
    for (const char* query :
         {"q=reboot", "p=settings-upgrade&q=reset", "now=true", "p=settings-config&q=import"}) {
        EXPECT_NE(wordAfter(query), "idle") << query;
        EXPECT_EQ(wordAfter("p=status&q=load"), "idle") << query;
    }
}

TEST_F(DeviceStatus, IsKeptAndLogsOnceForANullQuery) {
    m_controller.setStatus("now=true");
    m_controller.setStatus(nullptr);
    EXPECT_EQ(recorded_log::records(), std::vector<LogRecord>{kNullArgument});
    EXPECT_EQ(word(), "autoprovision");
}

TEST_F(DeviceStatus, LogsOnceWhenTheOutputIsNull) {
    m_controller.setStatus("now=true");
    m_controller.getStatus(nullptr);
    EXPECT_EQ(recorded_log::records(), std::vector<LogRecord>{kNullArgument});
    EXPECT_EQ(word(), "autoprovision");
}

TEST_F(DeviceStatus, HasAWordForEveryCode) {
    const struct {
        std::int32_t code;
        const char* word;
    } rows[] = {{0, "idle"},    {1, "reboot"},         {2, "reset"},         {3, "autoprovision"},
                {4, "upgrade"}, {5, "configration"},   {6, "unkown"},        {100, "unkown"},
                {-1, "unkown"}, {INT32_MAX, "unkown"}, {INT32_MIN, "unkown"}};
    for (const auto& row : rows) {
        setCode(row.code);
        EXPECT_EQ(word(), row.word) << row.code;
        EXPECT_EQ(code(), row.code); // reading changes nothing
    }
    EXPECT_TRUE(recorded_log::records().empty());
}

TEST_F(DeviceStatus, WritesItsWordAndATerminatorAndNothingElse) {
    for (const char* query : {"p=status", "q=reboot", "now=true", "p=settings-config&q=import"}) {
        const std::string expected = wordAfter(query);
        std::vector<char> text(14, '#'); // the longest word and its terminator
        m_controller.getStatus(text.data());
        std::string written = expected + '\0';
        written.resize(14, '#');
        EXPECT_EQ(std::string(text.begin(), text.end()), written);
    }
}

TEST(ServletControllerWithoutConfiguration, LogsAMissingFileAndHasNoPlugIns) {
    recorded_log::clear();
    ServletController controller;
    EXPECT_EQ(recorded_log::records(),
              (std::vector<LogRecord>{
                  recorded_log::webDebug("info", "PluginLoader::loadConfigFile Begin.configfile "
                                                 "=/phone/www/WEB-INFO/servlet/servlet.xml"),
                  recorded_log::webDebug("error", "PluginLoader::init() error to get root element"),
              }));
}

} // namespace
