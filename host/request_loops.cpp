#include "request_loops.h"

#include <cassert>
#include <csignal>
#include <system_error>

namespace {

// Ignored by default, so it does no harm if it arrives before interrupt() installs the handler.
constexpr int kInterruptSignal = SIGURG;
constexpr auto kPauseAfterFailure = std::chrono::seconds(1);

} // namespace

RequestLoops::RequestLoops(std::function<void()> serve, int count) : m_serve(std::move(serve)) {
    assert(count >= 1); // "at least one"
    m_threads.reserve(static_cast<std::size_t>(count));
    start(count);
}

void RequestLoops::start(int count) {
    const std::lock_guard lock(m_mutex);
    try {
        for (; m_running < count; ++m_running)
            startOne();
    } catch (const std::system_error&) {
        if (m_running == 0)
            throw;
    }
}

void RequestLoops::startOne() {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kStackBytes);
    const auto run = [](void* loops) -> void* {
        static_cast<RequestLoops*>(loops)->loop();
        return nullptr;
    };
    pthread_t thread{};
    const int failure = pthread_create(&thread, &attributes, run, this);
    pthread_attr_destroy(&attributes);
    if (failure != 0)
        throw std::system_error(failure, std::generic_category());
    m_threads.push_back(thread);
}

RequestLoops::~RequestLoops() {
    {
        const std::lock_guard lock(m_mutex);
        assert(m_stopping); // stop() must have been called
    }
    for (const pthread_t thread : m_threads)
        pthread_join(thread, nullptr);
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
    action.sa_flags = SA_RESTART; // libfcgi treats an interrupted read as an error
    sigaction(kInterruptSignal, &action, nullptr);
    for (const pthread_t thread : m_threads)
        pthread_kill(thread, kInterruptSignal);
}
