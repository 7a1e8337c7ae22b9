#pragma once

#include <cstdlib>
#include <new>
#include <sys/mman.h>

/** A value that a child process and its parent share: what the child wrote before it was killed can be read. */
template <typename T>
class Shared {
public:
    Shared() {
        void* const memory = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            throw std::bad_alloc();
        }
        m_value = new (memory) T();
    }
    ~Shared() { munmap(m_value, sizeof(T)); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    T* operator->() const { return m_value; }
    T& operator*() const { return *m_value; }

private:
    T* m_value;
};
