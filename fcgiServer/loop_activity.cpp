#include "loop_activity.h"

#include "busy_mark.h"

#include <atomic>
#include <cassert>

namespace {

std::atomic<unsigned long> acceptedRequests{0};
std::atomic<int> busyThreads{0};
std::atomic<int> numberedThreads{0};
thread_local CurrentRequest currentOfThread{0, 0};

} // namespace

BusyMark::BusyMark() {
    assert(currentOfThread.number == 0); // one per thread at a time
    if (currentOfThread.thread == 0)
        currentOfThread.thread = ++numberedThreads;
    currentOfThread.number = ++acceptedRequests;
    ++busyThreads;
}

BusyMark::~BusyMark() {
    --busyThreads;
    currentOfThread.number = 0;
}

CurrentRequest currentRequest() {
    return currentOfThread;
}

LoopActivity loopActivity() {
    return {acceptedRequests, busyThreads};
}
