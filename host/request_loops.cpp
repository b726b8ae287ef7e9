#include "request_loops.h"

#include <csignal>
#include <system_error>

namespace {

// Whoever else sends it before it is needed does no harm: unless it is handled, it is ignored.
constexpr int kInterruptSignal = SIGURG;
constexpr auto kPauseAfterFailure = std::chrono::seconds(1);

} // namespace

RequestLoops::RequestLoops(std::function<void()> serve, int count) : m_serve(std::move(serve)) {
    m_threads.reserve(static_cast<std::size_t>(count));
    start(count);
}

void RequestLoops::start(int count) {
    const std::lock_guard lock(m_mutex);
    try {
        for (; m_running < count; ++m_running)
            m_threads.emplace_back([this] { loop(); });
    } catch (const std::system_error&) {
        if (m_running == 0)
            throw;
    }
}

RequestLoops::~RequestLoops() {
    for (std::thread& thread : m_threads)
        thread.join();
}

void RequestLoops::loop() {
    std::unique_lock lock(m_mutex);
    do {
        lock.unlock();
        m_serve();
        lock.lock();
        m_changed.wait_for(lock, kPauseAfterFailure, [this] { return m_stopping; });
    } while (!m_stopping);
    --m_running;
    m_changed.notify_all();
}

void RequestLoops::stop() {
    const std::lock_guard lock(m_mutex);
    m_stopping = true;
    m_changed.notify_all();
}

bool RequestLoops::waitForEnd(std::chrono::milliseconds limit) {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, limit, [this] { return m_running == 0; });
}

void RequestLoops::interrupt() const {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART; // the FastCGI kit takes an interrupted read for a failure
    sigaction(kInterruptSignal, &action, nullptr);
    for (const std::thread& thread : m_threads)
        pthread_kill(const_cast<std::thread&>(thread).native_handle(), kInterruptSignal);
}
