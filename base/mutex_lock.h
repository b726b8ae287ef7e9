// Holds a mutex of pthreads for the length of a scope (RAII). Its initializer costs a program that
// loads the library nothing at start, and locking throws nothing, unlike std::mutex.
#ifndef BASE_MUTEX_LOCK_H
#define BASE_MUTEX_LOCK_H

#include <pthread.h>

namespace base {

class MutexLock {
public:
    // Waits until no other thread holds the mutex, which must outlive this object. The calling
    // thread must not hold it yet.
    explicit MutexLock(pthread_mutex_t& mutex) : m_mutex(mutex) { pthread_mutex_lock(&m_mutex); }
    ~MutexLock() { pthread_mutex_unlock(&m_mutex); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    pthread_mutex_t& m_mutex;
};

} // namespace base

#endif
