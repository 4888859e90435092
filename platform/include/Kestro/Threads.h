#pragma once

#include <mutex>
#include <semaphore.h>

#pragma GCC visibility push(default)
namespace Kestro {

/// A recursive mutex: the thread that holds it may lock it again, and must unlock it as many times.
/// Any thread may lock it; only the holder may unlock it.
class Mutex {
public:
    /// Waits until no other thread holds the mutex, and locks it.
    void lock() { m_mutex.lock(); }
    /// Undoes one lock().
    void unlock() { m_mutex.unlock(); }

private:
    std::recursive_mutex m_mutex;
};

/// Holds a Mutex from construction to destruction. The mutex must outlive it.
class [[nodiscard]] Synchronized {
public:
    /// Locks the mutex, waiting for it if necessary.
    explicit Synchronized(Mutex& mutex) : m_lock(mutex) {}

private:
    std::lock_guard<Mutex> m_lock;
};

/// A counting semaphore. Every operation may be called from any thread.
class Semaphore {
public:
    /// Starts with this count. Throws Exception("Semaphore", 4) if it is over SEM_VALUE_MAX
    /// (2,147,483,647).
    explicit Semaphore(unsigned count);
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;
    ~Semaphore();

    /// Waits until the count is above 0 and takes one from it.
    void wait();
    /// Takes one from the count if it is above 0 and returns true; returns false if it is 0. Never
    /// waits.
    bool trywait();
    /// Adds one to the count and wakes one waiter. Throws Exception("Semaphore", 4) if the count is
    /// SEM_VALUE_MAX already.
    void operator++();

private:
    sem_t m_semaphore;
};

/// Pauses the calling thread for at least the sum of both; signals do not shorten it.
void ks_usleep(unsigned microseconds, unsigned seconds);

} // namespace Kestro
#pragma GCC visibility pop
