// How FCGIServer::run() reports to loop_activity.h. Internal: not installed.
#ifndef BUSY_MARK_H
#define BUSY_MARK_H

// RAII: marks the thread as busy from accept until the connection is closed. One per thread at a
// time.
class BusyMark {
public:
    BusyMark();
    ~BusyMark();
    BusyMark(const BusyMark&) = delete;
    BusyMark& operator=(const BusyMark&) = delete;
};

#endif
