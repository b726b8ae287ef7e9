// The order of the steps in which the plug-in configuration is loaded.
#include "plugin_loader.h"

#include "app_log.h"
#include "web_debug.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace {

// Called with each line that the loader logs, at that moment.
std::function<void(const std::string&)> onLog;

void log(const char* format, va_list arguments) {
    char text[4096];
    std::vsnprintf(text, sizeof text, format, arguments);
    if (onLog)
        onLog(text);
}

} // namespace

// In the place of the device's log.
void app_log(int, int, const char*, ...) {}

WebDebug* WebDebug::getInstance() {
    static WebDebug instance;
    return &instance;
}
void WebDebug::info(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    log(format, arguments);
    va_end(arguments);
}
void WebDebug::warn(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    log(format, arguments);
    va_end(arguments);
}
void WebDebug::error(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    log(format, arguments);
    va_end(arguments);
}
void WebDebug::setUser(const char*) {}

namespace {

using Steps = std::vector<std::string>;

class PluginLoading : public testing::Test {
protected:
    PluginLoading() : m_loader(path()) { EXPECT_EQ(m_loader.libraryHandle, nullptr); }
    ~PluginLoading() override {
        onLog = nullptr;
        std::remove(path());
    }

    static const char* path() { return SCRATCH_FOLDER "/plugin_loading_test.xml"; }
    static void write(const std::string& library) {
        std::ofstream(path()) << "<web path='" << library
                              << "'><servlet id='status' createfunction='createPage'/>"
                                 "<listener createfunction='createA'/></web>";
    }
    // Returns the lines up to the first "=" or full stop, each with what the loader holds then.
    Steps load() {
        Steps steps;
        onLog = [&](const std::string& line) {
            steps.push_back(line.substr(0, line.find_first_of(".=")) + ": " + held());
        };
        EXPECT_EQ(m_loader.loadConfigFile(path()), 0);
        return steps;
    }
    std::string held() const {
        return std::string(m_loader.libraryHandle != nullptr ? "library, " : "") +
               std::to_string(m_loader.servletConfig->m_nCount) + " servlets, " +
               std::to_string(m_loader.listenerConfig->size()) + " listeners";
    }

    PluginLoader m_loader;
};

TEST_F(PluginLoading, OpensTheLibraryFirstAndLogsEachPluginBeforeItIsStored) {
    write(QUIET_PLUGIN);
    EXPECT_EQ(load(),
              (Steps{"PluginLoader::loadConfigFile Begin: 0 servlets, 0 listeners",
                     "PluginLoader::init() add a servlet config: library, 0 servlets, 0 listeners",
                     "PluginLoader::init() add a listener config: library, 1 servlets, 0 listeners",
                     "PluginLoader::init End: library, 1 servlets, 1 listeners"}));
    EXPECT_EQ(held(), "library, 1 servlets, 1 listeners");
}

TEST_F(PluginLoading, IsLoggedBeforeTheFileIsRead) {
    onLog = [](const std::string& line) {
        if (line.find("Begin") != std::string::npos)
            write(QUIET_PLUGIN);
    };
    EXPECT_EQ(m_loader.loadConfigFile(path()), 0);
    EXPECT_EQ(held(), "library, 1 servlets, 1 listeners");
}

using PluginLoadingDeathTest = PluginLoading;

TEST_F(PluginLoadingDeathTest, StoresTheMissingLibraryBeforeItEndsTheProcess) {
    write("/no/such/library.so");
    void* earlier = this;
    m_loader.libraryHandle = earlier;
    onLog = [this](const std::string& line) {
        std::fprintf(stderr, "[%s: %p]", line.substr(0, 7).c_str(), m_loader.libraryHandle);
    };
    EXPECT_EXIT(m_loader.loadConfigFile(path()), testing::ExitedWithCode(255),
                "\\[libPath: \\(nil\\)\\]\\[Cannot : \\(nil\\)\\]");
    m_loader.libraryHandle = nullptr;
}

} // namespace
