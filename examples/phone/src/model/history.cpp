#include "model/history.h"

#include <algorithm>
#include <limits>

namespace phone {
namespace {

std::uint32_t narrowed(std::uint64_t value) {
    constexpr std::uint64_t kMax = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(std::min(value, kMax));
}

std::uint64_t increase(std::uint64_t before, std::uint64_t now) {
    return now > before ? now - before : 0;
}

Sample sampleBetween(const Reading& before, const Reading& now) {
    const auto elapsed = (now.time - before.time).count();
    const auto seconds = static_cast<std::uint64_t>(std::max<std::int64_t>(1, elapsed));
    const std::uint64_t used = increase(now.memory.available, now.memory.total);
    return {narrowed(used / 1024),
            narrowed(increase(before.traffic.received, now.traffic.received) / seconds),
            narrowed(increase(before.traffic.sent, now.traffic.sent) / seconds),
            narrowed(increase(before.events, now.events))};
}

} // namespace

void History::add(const Reading& reading) {
    const std::lock_guard<std::mutex> lock(m_lock);
    if (m_started) {
        m_samples[m_count % kSamples] = sampleBetween(m_last, reading);
        ++m_count;
    }
    m_last = reading;
    m_started = true;
}

History::Part History::since(std::uint64_t first) const {
    const std::lock_guard<std::mutex> lock(m_lock);
    const std::uint64_t oldest = m_count > kSamples ? m_count - kSamples : 0;
    Part part;
    part.next = m_count;
    part.events = m_last.events;
    for (std::uint64_t i = first > m_count ? oldest : std::max(first, oldest); i < m_count; ++i) {
        part.samples.push_back(m_samples[i % kSamples]);
    }
    return part;
}

} // namespace phone
