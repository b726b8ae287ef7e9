// Small parts of the pages that the tests of the pages do not cover completely.
#include "event_log.h"
#include "firmware.h"
#include "json_reader.h"
#include "model/temporary_folder.h"
#include "page_reader.h"
#include "recorder.h"
#include "registration.h"
#include "status_word.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <thread>

using namespace phone;

namespace {

std::string image(const std::string& version) {
    std::string bytes;
    writeImage(version, "payload", [&](std::string_view piece) {
        bytes += piece;
        return true;
    });
    return bytes;
}

LoggedEvent eventOfText(const std::string& text) {
    return {"key", text, "192.0.2.1", 0, {}, EventResult::done};
}

} // namespace

TEST(EventLog, KeepsTheNewestAndCountsAll) {
    EventLog log;
    EXPECT_TRUE(log.recent().empty());
    EXPECT_EQ(log.count(), 0U);
    for (std::size_t i = 1; i <= EventLog::kMaxEvents + 1; ++i) {
        log.add(eventOfText(std::to_string(i)));
    }
    EXPECT_EQ(log.count(), EventLog::kMaxEvents + 1);
    ASSERT_EQ(log.recent().size(), EventLog::kMaxEvents);
    EXPECT_EQ(log.recent().front().value, std::to_string(EventLog::kMaxEvents + 1));
    EXPECT_EQ(log.recent().back().value, "2");
}

TEST(EventLog, CutsLongTextsBetweenCharacters) {
    EventLog log;
    log.add({std::string(1000, 'n'),
             std::string(63, 'v') + "\xC3\xA9",
             std::string(65, 'a'),
             0,
             {},
             EventResult::notAllowed});
    const LoggedEvent event = log.recent().front();
    EXPECT_EQ(event.name.size(), EventLog::kMaxText);
    EXPECT_EQ(event.value, std::string(63, 'v'));
    EXPECT_EQ(event.remoteAddress.size(), EventLog::kMaxText);
    log.add(eventOfText(std::string(64, 'v')));
    EXPECT_EQ(log.recent().front().value.size(), 64U) << "texts within the limit are not cut";
}

TEST(EventLog, IsThreadSafe) {
    EventLog log;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int j = 0; j < 250; ++j) {
                log.add(eventOfText("x"));
                log.recent();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(log.count(), 1000U);
    EXPECT_EQ(log.recent().size(), EventLog::kMaxEvents);
}

TEST(Recorder, AddsReadingsUntilItIsDestroyed) {
    TemporaryFolder folder;
    Phone phone({folder.file("state.xml"), folder.file("factory.csv"), folder.file("image"),
                 folder.file("network")});
    phone.events.add(eventOfText("before"));
    {
        const Recorder recorder(phone, std::chrono::milliseconds(1));
        EXPECT_EQ(phone.history.since(0).events, 1U) << "the first reading is taken at once";
        while (phone.history.since(0).next < 3) {
            std::this_thread::yield();
        }
    }
    const auto count = phone.history.since(0).next;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(phone.history.since(0).next, count);
    EXPECT_GT(phone.history.since(0).samples.at(0).memoryUsed, 0U);
}

TEST(Recorder, DoesNotWaitForTheEndOfAnInterval) {
    TemporaryFolder folder;
    Phone phone({folder.file("state.xml"), folder.file("factory.csv"), folder.file("image"),
                 folder.file("network")});
    const Recorder recorder(phone);
    EXPECT_EQ(phone.history.since(0).next, 0U);
}

TEST(LocalTimeText, UsesThePhonesTimeZone) {
    setenv("TZ", "CET-1CEST", 1);
    tzset();
    EXPECT_EQ(localTimeText(1795266300), "2026-11-21 14:05:00");
    unsetenv("TZ");
    tzset();
}

TEST(Registration, DependsOnTheAccount) {
    const struct {
        bool enabled;
        const char* server;
        const char* state;
    } cases[] = {
        {false, "sip.example.com", "off"},
        {false, "sip.invalid", "off"},
        {true, "sip.example.com", "registered"},
        {true, "sip.invalid", "failed"},
        {true, ".invalid", "failed"},
        {true, "invalid", "registered"},
        {true, "sip.invalid.example", "registered"},
        {true, "", "registered"},
    };
    for (const auto& each : cases) {
        Account account;
        account.enabled = each.enabled;
        account.server = each.server;
        EXPECT_STREQ(registrationOf(account), each.state) << each.server;
    }
}

TEST(StatusWord, IsCorrectForTheResultOfTheLastRequest) {
    StatusWord word;
    word.pageRequested(true);
    word.began(Task::restart);
    EXPECT_TRUE(word.isCorrect(Task::restart));
    EXPECT_FALSE(word.isCorrect(Task::provisioning));
    EXPECT_FALSE(word.isCorrect(Task::none)) << "the task is over";
    word.pageRequested(true);
    for (Task task : {Task::none, Task::restart, Task::factoryReset, Task::provisioning}) {
        EXPECT_FALSE(word.isCorrect(task)) << "the requested task did not begin";
    }
    word.pageRequested(false);
    EXPECT_TRUE(word.isCorrect(Task::none));
    EXPECT_FALSE(word.isCorrect(Task::restart)) << "another page was requested";
}

TEST(Firmware, RunsTheInstalledImageFromTheNextStartOn) {
    TemporaryFolder folder;
    Firmware firmware(folder.file("firmware.img"));
    const std::string own = firmware.version();
    EXPECT_FALSE(own.empty());
    writeTextFile(folder.file("received"), image("9.8.7"));
    const ImageCheck check = firmware.install(folder.file("received"));
    EXPECT_EQ(check.fault, ImageFault::none);
    EXPECT_EQ(check.version, "9.8.7");
    EXPECT_EQ(firmware.version(), own);
    EXPECT_EQ(firmware.waitingVersion(), "9.8.7");
    EXPECT_EQ(folder.names(), std::vector<std::string>{"firmware.img.next"});
    firmware.start("9.8.7");
    EXPECT_EQ(firmware.version(), "9.8.7");
    EXPECT_EQ(firmware.waitingVersion(), "");
    EXPECT_EQ(folder.names(), std::vector<std::string>{"firmware.img"});
    EXPECT_EQ(Firmware(folder.file("firmware.img")).version(), "9.8.7");
}

TEST(Firmware, ReplacesAWaitingImageByALaterOne) {
    TemporaryFolder folder;
    Firmware firmware(folder.file("firmware.img"));
    for (const char* version : {"9.8.7", "9.8.8"}) {
        writeTextFile(folder.file("received"), image(version));
        firmware.install(folder.file("received"));
    }
    EXPECT_EQ(firmware.waitingVersion(), "9.8.8");
    EXPECT_EQ(Firmware(folder.file("firmware.img")).version(), "9.8.8") << "a start of the daemon";
}

TEST(Firmware, KeepsTheRunningImageWhenTheWaitingOneIsDiscarded) {
    TemporaryFolder folder;
    Firmware firmware(folder.file("firmware.img"));
    writeTextFile(folder.file("received"), image("9.8.7"));
    firmware.install(folder.file("received"));
    firmware.start("9.8.7");
    writeTextFile(folder.file("received"), image("9.8.8"));
    firmware.install(folder.file("received"));
    EXPECT_TRUE(firmware.discard());
    EXPECT_EQ(firmware.waitingVersion(), "");
    EXPECT_EQ(folder.names(), std::vector<std::string>{"firmware.img"});
    firmware.start("");
    EXPECT_EQ(firmware.version(), "9.8.7");
    EXPECT_TRUE(firmware.discard()) << "nothing is waiting";
}

TEST(Firmware, LetsAnImageWaitThatWasNotNamed) {
    TemporaryFolder folder;
    Firmware firmware(folder.file("firmware.img"));
    const std::string own = firmware.version();
    writeTextFile(folder.file("received"), image("9.8.8"));
    firmware.install(folder.file("received"));
    for (const char* named : {"9.8.7", "", "9.8.80"}) {
        firmware.start(named);
        EXPECT_EQ(firmware.version(), own) << named;
        EXPECT_EQ(firmware.waitingVersion(), "9.8.8") << named;
    }
    firmware.start("9.8.8");
    EXPECT_EQ(firmware.version(), "9.8.8");
}

TEST(Firmware, DoesNotRunAWaitingImageThatWasDamagedMeanwhile) {
    TemporaryFolder folder;
    Firmware firmware(folder.file("firmware.img"));
    const std::string own = firmware.version();
    writeTextFile(folder.file("received"), image("9.8.7"));
    firmware.install(folder.file("received"));
    writeTextFile(folder.file("firmware.img.next"), image("9.8.7").substr(1));
    firmware.start("9.8.7");
    EXPECT_EQ(firmware.version(), own);
    EXPECT_EQ(firmware.waitingVersion(), "");
    EXPECT_TRUE(folder.names().empty());
}

TEST(Firmware, RejectsAnInvalidImage) {
    TemporaryFolder folder;
    Firmware firmware(folder.file("firmware.img"));
    const std::string own = firmware.version();
    writeTextFile(folder.file("received"), "nonsense");
    EXPECT_NE(firmware.install(folder.file("received")).fault, ImageFault::none);
    EXPECT_TRUE(folder.names().empty()) << "the received file is removed";
    EXPECT_EQ(firmware.install(folder.file("missing")).fault, ImageFault::unreadable);
    firmware.start("");
    EXPECT_EQ(firmware.version(), own);
}

TEST(Firmware, ReportsThatAnImageCannotBeInstalled) {
    TemporaryFolder folder;
    Firmware firmware(folder.file("missing/firmware.img"));
    writeTextFile(folder.file("received"), image("9.8.7"));
    EXPECT_EQ(firmware.install(folder.file("received")).fault, ImageFault::unreadable);
    EXPECT_TRUE(folder.names().empty());
}

TEST(Firmware, RunsTheBuiltInVersionIfTheInstalledImageIsDamaged) {
    TemporaryFolder folder;
    const std::string own = Firmware(folder.file("missing.img")).version();
    writeTextFile(folder.file("firmware.img"), image("9.8.7") + "x");
    EXPECT_EQ(Firmware(folder.file("firmware.img")).version(), own);
}

TEST(PageReader, ReadsTheVisibleText) {
    const PageReader page(
        "<!DOCTYPE html><html lang=\"en\"><head><title>t</title></head><body>"
        "<template><p>later</p></template><p hidden>no</p><svg><text>1</text></svg>"
        "<h1>A &lt;b&gt; &amp;lt;</h1><p class=\"bad\" role=\"alert\">Oh  <b>no</b>"
        "\n</p><input name=\"a\" value=\"1 > 0\" aria-invalid=\"true\">"
        "<p id=\"a-error\">Wrong.</p><input name=\"b\" type=\"checkbox\" checked>"
        "<select name=\"c\"><option value=\"1\">x</option><option value=\"2\" "
        "selected>y</option></select><textarea name=\"d\">\none\ntwo</textarea>"
        "<a href=\"/x?a=1&amp;b=2\">go</a></body></html>");
    EXPECT_EQ(page.text(), "A <b> &lt; Oh no Wrong. x y one two go");
    EXPECT_EQ(page.title(), "A <b> &lt;");
    EXPECT_EQ(page.language(), "en");
    EXPECT_EQ(page.alert(), "Oh no");
    EXPECT_EQ(page.done(), "");
    EXPECT_EQ(page.field("a"), "1 > 0");
    EXPECT_EQ(page.error("a"), "Wrong.");
    EXPECT_TRUE(page.isMarked("a"));
    EXPECT_FALSE(page.isMarked("b"));
    EXPECT_EQ(page.field("b"), "1");
    EXPECT_EQ(page.field("c"), "2");
    EXPECT_EQ(page.field("d"), "one\ntwo");
    EXPECT_FALSE(page.field("e"));
    EXPECT_TRUE(page.leadsTo("/x?a=1&b=2"));
}

TEST(JsonReader, RejectsAnythingButJson) {
    for (const char* text : {"", "{", "{\"a\":}", "{\"a\":1,}", "[1 2]", "\"\n\"", "\"\xff\"", "01",
                             "1.", "-", "nul", "{} x", "\"\\x\"", "{a:1}", "'a'"}) {
        EXPECT_THROW(readJson(text), std::runtime_error) << text;
    }
    EXPECT_EQ(readJson(" {\"a\": [{\"b\" : -15}, null]} ").at("a[0].b"), "-15");
}
