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
    // The stack of each loop, which is address space until it is used. Unless told, the system sets
    // 8 MiB aside for each, which is much on a 32-bit device that counts what it promises.
    // docs/footprint.md shows what requests have used at most; the rest is for the buffers of
    // pages.
    static constexpr std::size_t kStackBytes = 256 * 1024;

    // `serve` accepts and serves requests until accepting fails; it runs on every thread. A
    // failure that comes while the loops should go on (the process has no descriptor left, say)
    // is survived: after a second the thread calls it again.
    // Where the system grants fewer threads than `count`, these have to do; std::system_error when
    // it grants none.
    RequestLoops(std::function<void()> serve, int count);
    // The loops must have ended.
    ~RequestLoops();

    RequestLoops(const RequestLoops&) = delete;
    RequestLoops& operator=(const RequestLoops&) = delete;

    // Lets every loop end as soon as its `serve`, which is called once in any case, returns.
    void stop();
    int count() const { return static_cast<int>(m_threads.size()); }
    // Whether all loops have ended; waits up to `limit` for it.
    bool waitForEnd(std::chrono::milliseconds limit);
    // Makes a system call that a loop waits in start again, so that it looks up its descriptor
    // afresh. Reading and writing go on unharmed. Meant for accept(2), when nothing else helps.
    void interrupt() const;

private:
    void start(int count);
    void startOne();
    void loop();

    std::function<void()> m_serve;
    std::vector<pthread_t> m_threads;

    std::mutex m_mutex; // guards what follows
    std::condition_variable m_changed;
    bool m_stopping = false;
    int m_running = 0;
};

#endif
