#include <kit/testing/recorded_log.h>
#include <kit/testing/runner.h>

#include <fcgi_server.h>
#include <servlet_controller.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <stdexcept>

// Defined in programs with the leak sanitizer only; the names are the sanitizer's.
extern "C" {
void __lsan_disable() __attribute__((weak));
void __lsan_enable() __attribute__((weak));
}

namespace kit::testing {
namespace {

constexpr int kOk = 200;

bool isStarting = false;

// The container ends the process if it cannot start. The reason is in the recorded log, which no
// test can read then.
void printLogOfFailedStart() {
    if (isStarting)
        for (const LogRecord& record : recorded_log::records())
            std::cerr << record << '\n';
}

// RAII: marks the start of a container, whose allocations are not reported as leaks.
class Start {
public:
    Start() {
        static const int registered = std::atexit(printLogOfFailedStart);
        static_cast<void>(registered);
        isStarting = true;
        if (__lsan_disable != nullptr)
            __lsan_disable();
    }
    ~Start() {
        if (__lsan_enable != nullptr)
            __lsan_enable();
        isStarting = false;
    }
    Start(const Start&) = delete;
    Start& operator=(const Start&) = delete;
};

} // namespace

Container::Container(const std::string& configFile) {
    if (!std::ifstream(configFile))
        throw std::runtime_error("cannot read " + configFile);
    const Start start;
    m_server = std::make_unique<FCGIServer>(configFile.c_str());
}

Container::~Container() = default;

Response Container::serve(const Request& request) {
    MemoryRequest fastCgi = request.inMemory();
    const int status = m_server->getController()->doService(fastCgi.get());
    if (status != kOk)
        m_server->onError(fastCgi.get(), status);
    return Response(fastCgi.out().text());
}

SessionFactory& Container::sessions() {
    return *m_server->getController()->getSessionFactory();
}

} // namespace kit::testing
