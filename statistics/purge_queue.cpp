#include "statistics/purge_queue.h"

#include <utility>

PurgeQueue::~PurgeQueue() {
    if (!m_thread.joinable()) {
        return;
    }
    {
        const MutexLock lock(m_mutex);
        m_stop = true;
    }
    m_posted.notifyAll();
    m_thread.join();
}

void PurgeQueue::post(Purge purge) {
    if (!m_thread.joinable()) {
        m_thread = std::thread([this] { work(); });
    }
    {
        const MutexLock lock(m_mutex);
        m_waiting.push_back(std::move(purge));
    }
    m_posted.notifyAll();
}

void PurgeQueue::rethrow() {
    std::exception_ptr error;
    {
        const MutexLock lock(m_mutex);
        error = std::exchange(m_error, nullptr);
    }
    if (error) {
        std::rethrow_exception(error);
    }
}

void PurgeQueue::work() {
    while (const Purge purge = next()) {
        try {
            purge(m_stop);
        } catch (...) {
            const MutexLock lock(m_mutex);
            m_error = m_error ? m_error : std::current_exception();
        }
    }
}

PurgeQueue::Purge PurgeQueue::next() {
    Purge purge;
    m_mutex.lock();
    while (m_waiting.empty() && !m_stop) {
        m_posted.wait(m_mutex);
    }
    if (!m_waiting.empty()) {
        purge = std::move(m_waiting.front());
        m_waiting.pop_front();
    }
    m_mutex.unlock();
    return purge;
}
