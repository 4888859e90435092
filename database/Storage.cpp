#include <Kestro/Storage.h>

#include <cstdint>
#include <mutex>
#include <pthread.h>
#include <sys/mman.h>
#include <utility>

// Defined in every process that runs with a sanitizer, also if only the program is compiled so.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" [[gnu::weak]] void __sanitizer_set_report_path(const char* path);

namespace Kestro {

namespace {

// In bytes. An object aligned to 16 has a size that is a multiple of 16, so its place is aligned.
constexpr std::size_t Unit = 8;
constexpr std::size_t Sizes = 32;
// Measured with a million rows: with 64 KiB they take a quarter longer, with 256 KiB as long.
constexpr std::size_t ChunkSize = std::size_t{128} << 10;

// The head of a chunk: memory for objects of one size, aligned to ChunkSize. A free place begins
// with the address of the next one. The thread that holds a chunk uses `free` and `used` without a
// lock. The mutex guards everything else, and chunks that no thread holds.
struct alignas(2 * Unit) Chunk {
    void* free = nullptr;
    std::size_t used = 0;
    void* foreign = nullptr; // places freed by other threads, counted as used until letGo()
    bool held = false;
    Chunk* next = this; // in the list of chunks that have free places and that no thread holds
    Chunk* previous = this;

    void* pop()
    {
        ++used;
        return std::exchange(free, *static_cast<void**>(free));
    }
    void push(void* object)
    {
        --used;
        free = new (object) void*(free);
    }
};

constinit std::mutex mutex;
constinit Chunk lists[Sizes]{};
// The chunks that this thread holds. In the initial-exec model the address needs no call.
[[gnu::tls_model("initial-exec")]] constinit thread_local Chunk* held[Sizes]{};

Chunk* chunkOf(void* object)
{
    const std::size_t offset = reinterpret_cast<std::uintptr_t>(object) % ChunkSize;
    return reinterpret_cast<Chunk*>(static_cast<char*>(object) - offset);
}

Chunk* map(std::size_t size)
{
    // Twice the size contains an aligned chunk; the rest is unmapped.
    void* const memory =
        mmap(nullptr, 2 * ChunkSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    char* const begin = memory != MAP_FAILED ? static_cast<char*>(memory) : throw std::bad_alloc();
    char* const first = reinterpret_cast<char*>(chunkOf(begin + ChunkSize - 1));
    munmap(begin, static_cast<std::size_t>(first - begin));
    munmap(first + ChunkSize, static_cast<std::size_t>(begin + ChunkSize - first));
    madvise(first, ChunkSize, MADV_POPULATE_WRITE); // cheaper than one fault per page
    auto* const chunk = new (first) Chunk{.used = (ChunkSize - sizeof(Chunk)) / size};
    while (chunk->used > 0) { // downwards, so that the lowest place is used first
        chunk->push(first + sizeof(Chunk) + (chunk->used - 1) * size);
    }
    return chunk;
}

void letGo(std::size_t index)
{
    Chunk* const chunk = std::exchange(held[index], nullptr);
    if (chunk == nullptr) {
        return;
    }
    chunk->held = false;
    while (chunk->foreign != nullptr) {
        chunk->push(std::exchange(chunk->foreign, *static_cast<void**>(chunk->foreign)));
    }
    // One empty chunk stays, as the last in the list, so that a few objects that come and go do not
    // map and unmap memory each time. Another empty chunk is unmapped.
    Chunk& list = lists[index];
    const bool surplus = chunk->used == 0 && list.previous != &list && list.previous->used == 0;
    if (chunk->free != nullptr && !(surplus && munmap(chunk, ChunkSize) == 0)) {
        chunk->previous = chunk->used == 0 ? list.previous : &list;
        chunk->next = std::exchange(chunk->previous->next, chunk);
        chunk->next->previous = chunk;
    }
}

void hold(std::size_t index, Chunk* chunk)
{
    static const pthread_key_t key = [] {
        // Hold the lock across fork(): the child would lack a thread that held it, and wait for
        // ever.
        pthread_atfork([] { mutex.lock(); }, [] { mutex.unlock(); }, [] { mutex.unlock(); });
        // Runs when a thread ends, after the destructors of its thread_local objects.
        pthread_key_t atEnd{};
        pthread_key_create(&atEnd, [](void*) {
            const std::lock_guard lock(mutex);
            for (std::size_t i = 0; i < Sizes; ++i) {
                letGo(i);
            }
        });
        return atEnd;
    }();
    pthread_setspecific(key, held);
    chunk->next->previous = chunk->previous;
    chunk->previous->next = chunk->next;
    chunk->next = chunk->previous = chunk;
    letGo(index);
    chunk->held = true;
    held[index] = chunk;
}

bool isHeaps(std::size_t index)
{
    return index >= Sizes || __sanitizer_set_report_path != nullptr;
}

// The rare paths are functions that the operators call last, so that the operators need not save
// registers.
[[gnu::noinline]] void* makeInNext(std::size_t index, std::size_t size)
{
    if (isHeaps(index)) {
        return ::operator new(size);
    }
    const std::lock_guard lock(mutex);
    Chunk& list = lists[index];
    hold(index, list.next != &list ? list.next : map((index + 1) * Unit));
    return held[index]->pop();
}

[[gnu::noinline]] void deleteElsewhere(std::size_t index, void* object)
{
    if (isHeaps(index)) {
        return ::operator delete(object);
    }
    const std::lock_guard lock(mutex);
    Chunk* const chunk = chunkOf(object);
    if (chunk->held) {
        chunk->foreign = new (object) void*(chunk->foreign);
        return;
    }
    hold(index, chunk);
    chunk->push(object);
}

} // namespace

void* Storage::operator new(std::size_t size)
{
    const std::size_t index = (size - 1) / Unit;
    Chunk* const chunk = index < Sizes ? held[index] : nullptr;
    return chunk != nullptr && chunk->free != nullptr ? chunk->pop() : makeInNext(index, size);
}

void Storage::operator delete(void* object, std::size_t size) noexcept
{
    const std::size_t index = (size - 1) / Unit;
    Chunk* const chunk = chunkOf(object);
    return index < Sizes && held[index] == chunk ? chunk->push(object)
                                                 : deleteElsewhere(index, object);
}

} // namespace Kestro
