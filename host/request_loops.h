// The threads that accept and serve requests.
#ifndef REQUEST_LOOPS_H
#define REQUEST_LOOPS_H

#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <vector>

class RequestLoops {
public:
    // The stack size of each thread. The system's default, 8 MiB, is too much for a 32-bit device
    // that does not overcommit memory. docs/footprint.md shows how much requests use; the rest is
    // for the buffers of pages.
    static constexpr std::size_t kStackBytes = 256 * 1024;

    // Calls `serve` on `count` threads, at least one. It accepts and serves requests, and returns
    // when accepting fails. Unless stop() was called, the thread calls it again after a second: the
    // process may have run out of descriptors, for example.
    // If fewer than `count` threads can be created, continues with those; throws std::system_error
    // if none can.
    RequestLoops(std::function<void()> serve, int count);
    // stop() must have been called. Waits for the threads, so waitForEnd() should have returned
    // true.
    ~RequestLoops();

    RequestLoops(const RequestLoops&) = delete;
    RequestLoops& operator=(const RequestLoops&) = delete;

    // Ends each loop when its `serve` returns. A loop that has not called it yet calls it once.
    void stop();
    // Returns the number of threads that were created.
    int count() const { return static_cast<int>(m_threads.size()); }
    // Waits up to `limit`. Returns whether all loops have ended.
    bool waitForEnd(std::chrono::milliseconds limit);
    // Restarts the system call that each thread waits in, so that accept(2) looks up its descriptor
    // again. Reads and writes are not disturbed.
    void interrupt() const;

private:
    void start(int count);
    void startOne();
    void loop();

    std::function<void()> m_serve;
    std::vector<pthread_t> m_threads;

    std::mutex m_mutex; // guards the members below
    std::condition_variable m_changed;
    bool m_stopping = false;
    int m_running = 0;
};

#endif
