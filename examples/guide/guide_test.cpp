// Tests the pages and the listeners of the guide's chapters.
#include "door_listener.h"
#include "files_page.h"
#include "local_network.h"
#include "welcome_page.h"

#include <kit/testing/recorded_log.h>
#include <kit/testing/runner.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

using namespace kit::testing;

namespace {

Request withTemplates(const Request& request) {
    return request.variable("DOCUMENT_ROOT", DOCUMENT_ROOT);
}

bool shows(const Response& response, const std::string& text) {
    return response.body.find(text) != std::string::npos;
}

const std::string kFolder = testing::TempDir() + "guide_test";

} // namespace

TEST(FilesPage, ListsAFolder) {
    ServletRunner page([] { return kit::newServlet(std::make_unique<FilesPage>(kFolder)); });
    const Request request = withTemplates(get("/servlet?p=files"));
    EXPECT_TRUE(shows(page.serve(request), "<p>No files.</p>"));

    std::filesystem::create_directories(kFolder + "/2026");
    std::ofstream(kFolder + "/you & me.wav");
    const Response response = page.serve(request);
    EXPECT_FALSE(shows(response, "No files."));
    EXPECT_TRUE(shows(response, "Folder 2026"));
    EXPECT_TRUE(shows(response, "&amp;name=you%20%26%20me.wav\">you &amp; me.wav</a>"));
    std::filesystem::remove_all(kFolder);
}

TEST(DoorListener, OpensTheDoorForOneAddress) {
    ListenerRunner door(*kit::newListener(std::make_unique<DoorListener>("192.0.2.1")));
    const Request open = get("/servlet?command=open");
    recorded_log::clear();
    EXPECT_EQ(door.serve(open.from("192.0.2.2")).status, 403);
    EXPECT_EQ(door.serve(get("/servlet?key=5").from("192.0.2.1")).status, 400);
    EXPECT_TRUE(recorded_log::records().empty());
    EXPECT_EQ(door.serve(open.from("192.0.2.1")).body, "OK\n");
    EXPECT_EQ(recorded_log::records().back(), recorded_log::webDebug("info", "The door opens."));
    EXPECT_TRUE(door.serve(get("/servlet?p=welcome&command=open")).passed) << "no event";
}

TEST(LocalNetworkListener, AdmitsTheLocalNetwork) {
    ListenerRunner listener(*kit::newListener(std::make_unique<LocalNetworkListener>()));
    for (const char* address : {"127.0.0.1", "10.1.2.3", "172.16.0.1", "172.31.255.254",
                                "192.168.1.7", "169.254.1.1", "::1", "fe80::1", "fd00::1"}) {
        EXPECT_TRUE(listener.serve(get("/servlet?p=welcome").from(address)).passed) << address;
    }
}

TEST(LocalNetworkListener, RefusesAndLogsOthers) {
    ListenerRunner listener(*kit::newListener(std::make_unique<LocalNetworkListener>()));
    for (const char* address : {"9.255.255.255", "11.0.0.0", "172.15.0.1", "172.32.0.1",
                                "192.169.1.1", "2001:db8::1", ""}) {
        recorded_log::clear();
        const Response response = listener.serve(get("/servlet?p=welcome").from(address));
        EXPECT_FALSE(response.passed) << address;
        EXPECT_EQ(response.status, 403) << address;
        EXPECT_EQ(recorded_log::records().back(),
                  recorded_log::webDebug("warn", "Refused a client outside the local network: " +
                                                     std::string(address)));
    }
}

TEST(WelcomePage, FollowsTheBrowsersLanguage) {
    ServletRunner page([] { return kit::newServlet(std::make_unique<WelcomePage>()); });
    const Request request = withTemplates(get("/servlet?p=welcome"));
    const struct {
        const char* accepted;
        const char* language;
        const char* text;
    } cases[] = {{"de", "de", "Willkommen"},
                 {"de-AT,de;q=0.9,en;q=0.8", "de", "Willkommen"},
                 {"fr,en;q=0.5", "en", "Welcome"},
                 {"fr", "en", "Welcome"},
                 {"", "en", "Welcome"}};
    for (const auto& one : cases) {
        const Response response = page.serve(request.header("Accept-Language", one.accepted));
        EXPECT_EQ(response.header("Content-Language"), one.language) << one.accepted;
        EXPECT_TRUE(shows(response, one.text)) << one.accepted;
    }
}
