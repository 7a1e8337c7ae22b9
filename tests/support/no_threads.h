#pragma once

#include <cstddef>
#include <limits>
#include <pthread.h>

/** No thread can be started for the length of a scope: each would need a stack that no machine has. */
class NoThreads {
public:
    NoThreads() {
        pthread_getattr_default_np(&m_before);
        pthread_attr_t huge;
        pthread_attr_init(&huge);
        pthread_attr_setstacksize(&huge, std::numeric_limits<size_t>::max() / 16 * 15);
        pthread_setattr_default_np(&huge);
        pthread_attr_destroy(&huge);
    }
    ~NoThreads() {
        pthread_setattr_default_np(&m_before);
        pthread_attr_destroy(&m_before);
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

private:
    pthread_attr_t m_before = {};
};
