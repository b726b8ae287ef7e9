#include "served.h"

#include <kit/testing/browser.h>
#include <kit/testing/recorded_log.h>

#include <http_request.h>
#include <http_response.h>
#include <session_factory.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <dlfcn.h>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

using namespace kit::testing;

namespace {

std::string page(const std::string& id) {
    return "/servlet?p=" + id + "&word=please";
}

// Returns the standard output of `command`.
std::string printed(const std::string& command) {
    std::string text;
    std::array<char, 4096> buffer;
    FILE* pipe = popen(command.c_str(), "r");
    while (pipe && std::fgets(buffer.data(), buffer.size(), pipe)) {
        text += buffer.data();
    }
    if (pipe) {
        pclose(pipe);
    }
    return text;
}

// Returns the plug-in's own log lines, without the container's.
std::vector<std::string> pluginLog() {
    std::vector<std::string> texts;
    for (const LogRecord& record : recorded_log::records()) {
        if (record.call == "error") {
            texts.push_back(record.text);
        }
    }
    return texts;
}

} // namespace

TEST(KitPlugin, ServesItsPages) {
    Container container(KIT_TEST_CONFIG);
    Browser browser(container);
    const Response response = browser.send(get(page("greeting") + "&name=Ann"));
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "Hello, Ann\n");
    EXPECT_EQ(response.header("Content-Type"), "text/plain; charset=utf-8");
    EXPECT_EQ(browser.send(get(page("polite"))).body, "Good day, you\nGood day, you\n");
}

TEST(KitPlugin, AsksItsListenerFirst) {
    Container container(KIT_TEST_CONFIG);
    Browser browser(container);
    const Response response = browser.send(get("/servlet?p=greeting"));
    EXPECT_EQ(response.status, 403);
    EXPECT_EQ(response.body, "Say the word.\n");
}

TEST(KitPlugin, AnswersWithStatus500IfAPageThrows) {
    Container container(KIT_TEST_CONFIG);
    Browser browser(container);
    recorded_log::clear();
    const Response response = browser.send(get(page("failing")));
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.body, "The page failed; the device's log says why.\n");
    EXPECT_EQ(browser.send(get(page("failing") + "&memory=1")).status, 500);
    EXPECT_EQ(browser.send(get(page("failing") + "&late=1")).body, "begun");
    EXPECT_EQ(browser.send(get(page("failing") + "&number=1")).status, 500);
    EXPECT_EQ(pluginLog(), (std::vector<std::string>{"Page failing failed: out of paper",
                                                     "Page failing failed: std::bad_alloc",
                                                     "Page failing failed: out of paper",
                                                     "Page failing failed: unknown exception"}));
    EXPECT_EQ(browser.send(get(page("greeting"))).status, 200) << "the next request is served";
}

TEST(KitPlugin, EndsARequestWhoseListenerThrows) {
    Container container(KIT_TEST_CONFIG);
    Browser browser(container);
    recorded_log::clear();
    EXPECT_EQ(browser.send(get("/servlet?p=greeting&word=%3F")).status, 500);
    EXPECT_EQ(pluginLog(),
              std::vector<std::string>{"Page greeting: listener createDoorkeeper failed: what"});
}

TEST(KitPlugin, LogsAPageThatCannotBeCreated) {
    Container container(KIT_TEST_CONFIG);
    Browser browser(container);
    recorded_log::clear();
    browser.send(get(page("impossible")));
    EXPECT_EQ(pluginLog(),
              std::vector<std::string>{"createImpossiblePage() failed: no such thing"});
}

TEST(KitPlugin, CallsDropWhenAnotherPageIsRequested) {
    Container container(KIT_TEST_CONFIG);
    Browser browser(container);
    EXPECT_EQ(browser.send(get(page("contacts-preview"))).body, "Hello, you\n");
    browser.send(get(page("greeting")));
    EXPECT_EQ(browser.send(get(page("contacts-preview"))).body, "Hello, you (dropped)\n");
}

TEST(KitPlugin, LogsADropThatThrows) {
    Container container(KIT_TEST_CONFIG);
    Browser browser(container);
    browser.send(get(page("contacts-preview")));
    browser.send(get(page("contacts-preview") + "&undroppable=1"));
    recorded_log::clear();
    EXPECT_EQ(browser.send(get(page("greeting"))).status, 200);
    EXPECT_EQ(pluginLog(), std::vector<std::string>{
                               "drop() of the page of createGreetingPage failed: still needed"});
    browser.send(get(page("contacts-preview")));
}

TEST(KitPlugin, LogsAnErrorPageThatCannotBeSent) {
    class BrokenResponse final : public HttpResponseImpl {
        using HttpResponseImpl::HttpResponseImpl;
        bool isHeaderCommited() override { throw std::runtime_error("broken"); }
    };
    FunctionPage failing([](kit::Request&, kit::Response&) { throw std::runtime_error("no"); });
    SessionFactory sessions;
    MemoryRequest fastCgi = get("/servlet?p=lines").inMemory();
    BrokenResponse response(fastCgi.get());
    HttpRequestImpl request(fastCgi.get(), &sessions, &response);
    recorded_log::clear();
    kit::internal::ServletHandle(failing, "createLinesPage").service(&request, &response);
    EXPECT_EQ(pluginLog(),
              (std::vector<std::string>{"Page lines failed: no",
                                        "Page lines: sending the error page failed: broken"}));
}

TEST(KitPlugin, ExportsOnlyItsCreationFunctionsUnderTheirPlainNames) {
    std::set<std::string> names;
    const std::string symbols = printed("nm -D --defined-only --format=posix " KIT_TEST_PLUGIN);
    for (std::size_t begin = 0; begin < symbols.size();) {
        const std::size_t end = symbols.find('\n', begin);
        const std::string line = symbols.substr(begin, end - begin);
        const std::string name = line.substr(0, line.find(' '));
        // Ignore the C++ library's own templates, whose symbols are exported.
        if (name.rfind("_ZNSt", 0) != 0 && name.rfind("_ZSt", 0) != 0 &&
            name.rfind("_ZTIN9__gnu_cxx", 0) != 0 && line.find(" W ") == std::string::npos &&
            line.find(" V ") == std::string::npos && name.rfind("_ZZNSt", 0) != 0) {
            names.insert(name);
        }
        begin = end + 1;
    }
    EXPECT_EQ(names, (std::set<std::string>{"createDoorkeeper", "createFailingPage",
                                            "createGreetingPage", "createImpossiblePage",
                                            "createNotFound", "createPolitePage"}));
    EXPECT_EQ(symbols.find("kit"), std::string::npos) << symbols;
}

TEST(KitPlugin, IsUnloadedWhenItIsClosed) {
    void* library = dlopen(KIT_TEST_PLUGIN, RTLD_NOW);
    ASSERT_NE(library, nullptr) << dlerror();
    EXPECT_EQ(dlclose(library), 0);
    EXPECT_EQ(dlopen(KIT_TEST_PLUGIN, RTLD_NOW | RTLD_NOLOAD), nullptr)
        << "the library is still loaded";
}
