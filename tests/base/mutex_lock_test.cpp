#include "base/mutex_lock.h"

#include <gtest/gtest.h>

#include <cerrno>

TEST(MutexLock, HoldsTheMutexUntilTheEndOfTheScope) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    {
        const base::MutexLock lock(mutex);
        EXPECT_EQ(pthread_mutex_trylock(&mutex), EBUSY);
    }
    ASSERT_EQ(pthread_mutex_trylock(&mutex), 0);
    pthread_mutex_unlock(&mutex);
}
