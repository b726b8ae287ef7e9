// Activity of all FCGIServer::run() threads of the process, for status reports.
//   Threads   lock-free; callable from any thread at any time.
#ifndef LOOP_ACTIVITY_H
#define LOOP_ACTIVITY_H

// The request that one thread is serving.
struct CurrentRequest {
    int thread;           // from 1, in the order of the threads' first requests; 0 before that
    unsigned long number; // from 1, in the order of acceptance; 0 while the thread serves none
};

// Returns the request that the calling thread is serving.
CurrentRequest currentRequest();

// What all threads are doing.
struct LoopActivity {
    unsigned long requests; // accepted since the process started, including those being served
    int busy;               // threads that are serving a request now
};

// Returns the counts of all FCGIServer objects of the process together.
LoopActivity loopActivity();

#endif
