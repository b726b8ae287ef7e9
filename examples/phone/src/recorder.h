// Records the phone's history while no page is open.
#ifndef RECORDER_H
#define RECORDER_H

#include "phone.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace phone {

// Owns a thread that adds a reading to the phone's history at intervals. Without a
// thread to be had, the history stays empty and everything else works.
class Recorder {
public:
    // `phone` must outlive the recorder.
    explicit Recorder(Phone& phone, std::chrono::milliseconds interval = History::kInterval);
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

private:
    void record();

    Phone& m_phone;
    const std::chrono::milliseconds m_interval;
    std::mutex m_lock;
    std::condition_variable m_wake;
    bool m_stopping = false; // guarded by m_lock
    std::thread m_thread;
};

} // namespace phone

#endif
