// The threads that accept and serve requests.
#ifndef REQUEST_LOOPS_H
#define REQUEST_LOOPS_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

class RequestLoops {
public:
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
    void loop();

    std::function<void()> m_serve;
    std::vector<std::thread> m_threads;

    std::mutex m_mutex; // guards what follows
    std::condition_variable m_changed;
    bool m_stopping = false;
    int m_running = 0;
};

#endif
