#include <Kestro/Storage.h>

#include <array>
#include <mutex>
#include <pthread.h>
#include <sys/mman.h>
#include <utility>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KESTRO_WATCHED_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KESTRO_WATCHED_HEAP 1
#endif
#endif

namespace Kestro {

#ifdef KESTRO_WATCHED_HEAP

void* Storage::operator new(std::size_t size)
{
    return ::operator new(size);
}

void Storage::operator delete(void* object, std::size_t size) noexcept
{
    ::operator delete(object, size);
}

#else

namespace {

constexpr std::size_t Unit = 16; // bytes, the heap's own alignment
constexpr std::size_t Largest = 256;
constexpr std::size_t Sizes = Largest / Unit;
constexpr unsigned Batch = 64; // objects that move between a thread and the depot at once
// What is taken from the system at once. The call puts the pages in place, which costs less than a
// fault for each. Huge pages would too, but a virtual machine may have to get them from its host:
// with them a million kept rows took up to half as long again.
constexpr std::size_t ChunkSize = std::size_t{256} << 10;

struct Free {
    Free* next;
    Free* nextBatch; // of the first of a batch in the depot
};

struct Stack {
    Free* top = nullptr;
    unsigned count = 0;

    void push(void* object)
    {
        top = new (object) Free{top, nullptr};
        ++count;
    }
    void* pop()
    {
        --count;
        return std::exchange(top, top->next);
    }
};

class Depot;
Depot& depot();

// What the threads leave to each other.
class Depot {
public:
    Depot()
    {
        // A child process does not have the thread that may be in here: nobody is while it is made.
        pthread_atfork([] { depot().m_mutex.lock(); }, [] { depot().m_mutex.unlock(); },
                       [] { depot().m_mutex.unlock(); });
    }
    Stack take(std::size_t index)
    {
        const std::lock_guard lock(m_mutex);
        if (Free* first = m_batches[index]) {
            m_batches[index] = first->nextBatch;
            // A batch may be smaller; it ends where its links do.
            Stack batch{first, 0};
            for (const Free* object = first; object != nullptr; object = object->next) {
                ++batch.count;
            }
            return batch;
        }
        return carve((index + 1) * Unit);
    }
    void give(std::size_t index, Stack batch)
    {
        if (batch.top != nullptr) {
            const std::lock_guard lock(m_mutex);
            batch.top->nextBatch = std::exchange(m_batches[index], batch.top);
        }
    }

private:
    Stack carve(std::size_t size)
    {
        if (m_left < Batch * size) {
            void* chunk = mmap(nullptr, ChunkSize, PROT_READ | PROT_WRITE,
                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
            if (chunk == MAP_FAILED) {
                throw std::bad_alloc();
            }
            m_next = static_cast<char*>(chunk);
            m_left = ChunkSize;
        }
        // The first one on top: objects that are made in turn lie in turn.
        Stack batch;
        for (std::size_t i = Batch; i > 0; --i) {
            batch.push(m_next + (i - 1) * size);
        }
        m_next += Batch * size;
        m_left -= Batch * size;
        return batch;
    }

    std::mutex m_mutex;
    std::array<Free*, Sizes> m_batches{};
    char* m_next = nullptr;
    std::size_t m_left = 0;
};

// Lives as long as the process: objects are deleted until its very end.
Depot& depot()
{
    alignas(Depot) static char place[sizeof(Depot)];
    static Depot& instance = *new (place) Depot;
    return instance;
}

// A thread's own objects of one size: at most two batches. One that its thread has not used yet, or
// uses no more, is empty and counts as full: both operators then come to the functions below.
struct Shelf {
    Stack current{nullptr, Batch};
    Stack spare;
};

// Small enough for the room that every thread has for libraries that are loaded late; found by one
// instruction instead of a call.
[[gnu::tls_model("initial-exec")]] constinit thread_local std::array<Shelf, Sizes> shelves;

// Whether the thread has left its objects, and makes and deletes at the depot, one by one.
[[gnu::tls_model("initial-exec")]] constinit thread_local bool gone = false;

// Leaves a thread's objects to the others when it ends.
struct Leave {
    bool armed = false;
    ~Leave()
    {
        gone = true;
        for (std::size_t index = 0; index < Sizes; ++index) {
            const Shelf shelf = std::exchange(shelves[index], {});
            depot().give(index, shelf.current);
            depot().give(index, shelf.spare);
        }
    }
};
thread_local Leave leave;

// What is done once in a batch stands in functions of its own that the operators end with, so that
// those save no registers.
[[gnu::noinline]] void* refillAndPop(Shelf& shelf, std::size_t index)
{
    if (gone) {
        Stack batch = depot().take(index);
        void* object = batch.pop();
        depot().give(index, batch);
        return object;
    }
    leave.armed = true;
    shelf.current = std::exchange(shelf.spare, {});
    if (shelf.current.top == nullptr) {
        shelf.current = depot().take(index);
    }
    return shelf.current.pop();
}

[[gnu::noinline]] void unloadAndPush(Shelf& shelf, std::size_t index, void* object)
{
    if (gone) {
        Stack one;
        one.push(object);
        depot().give(index, one);
        return;
    }
    leave.armed = true;
    const Stack full = std::exchange(shelf.current, {});
    if (full.top != nullptr) {
        depot().give(index, std::exchange(shelf.spare, full));
    }
    shelf.current.push(object);
}

} // namespace

void* Storage::operator new(std::size_t size)
{
    const std::size_t index = (size - 1) / Unit;
    if (index >= Sizes) {
        return ::operator new(size);
    }
    Shelf& shelf = shelves[index];
    if (shelf.current.top == nullptr) {
        return refillAndPop(shelf, index);
    }
    return shelf.current.pop();
}

void Storage::operator delete(void* object, std::size_t size) noexcept
{
    const std::size_t index = (size - 1) / Unit;
    if (index >= Sizes) {
        ::operator delete(object);
        return;
    }
    Shelf& shelf = shelves[index];
    if (shelf.current.count == Batch) {
        return unloadAndPush(shelf, index, object);
    }
    shelf.current.push(object);
}

#endif

} // namespace Kestro
