#include <Kestro/Threads.h>

#include <Kestro/Exception.h>

#include <cerrno>
#include <chrono>
#include <thread>

namespace Kestro {

Semaphore::Semaphore(unsigned count) : m_semaphore()
{
    if (sem_init(&m_semaphore, 0, count) != 0) {
        throw Exception("Semaphore", 4);
    }
}

Semaphore::~Semaphore()
{
    sem_destroy(&m_semaphore);
}

void Semaphore::wait()
{
    while (sem_wait(&m_semaphore) != 0 && errno == EINTR) {
    }
}

bool Semaphore::trywait()
{
    return sem_trywait(&m_semaphore) == 0;
}

void Semaphore::operator++()
{
    if (sem_post(&m_semaphore) != 0) {
        throw Exception("Semaphore", 4);
    }
}

void ks_usleep(unsigned microseconds, unsigned seconds)
{
    std::this_thread::sleep_for(std::chrono::seconds(seconds) +
                                std::chrono::microseconds(microseconds));
}

} // namespace Kestro
