#include "recorder.h"

#include <system_error>

namespace phone {
namespace {

Reading readingOf(const Phone& phone) {
    return {systemClock(), memory(), traffic(), phone.events.count()};
}

} // namespace

Recorder::Recorder(Phone& phone, std::chrono::milliseconds interval)
    : m_phone(phone), m_interval(interval) {
    m_phone.history.add(readingOf(m_phone));
    try {
        m_thread = std::thread([this] { record(); });
    } catch (const std::system_error&) {
        // The charts show what is measured while they are open.
    }
}

Recorder::~Recorder() {
    {
        const std::lock_guard<std::mutex> lock(m_lock);
        m_stopping = true;
    }
    m_wake.notify_one();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void Recorder::record() {
    std::unique_lock<std::mutex> lock(m_lock);
    while (!m_wake.wait_for(lock, m_interval, [this] { return m_stopping; })) {
        m_phone.history.add(readingOf(m_phone));
    }
}

} // namespace phone
