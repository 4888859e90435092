#pragma once

#include <Kestro/Api.h>

#include <cstddef>
#include <new>

namespace Kestro {

/// Where small objects live that come and go in great numbers, such as handles and rows: freed ones
/// are kept for the next of their size, first by the thread that freed them, so that making one is
/// a few instructions and rows lie close together. The memory stays with the process.
///
/// A class derives from it to have its objects, and those of classes derived from it, made there by
/// new. Objects of more than 256 bytes, or aligned to more than 16, are the heap's as ever, and so
/// are all when the sanitizers that watch the heap are at work. Any thread may make and delete.
/// There is no new (std::nothrow).
class KESTRO_API Storage {
public:
    /// Throws std::bad_alloc if there is no memory.
    static void* operator new(std::size_t size);
    static void* operator new(std::size_t size, std::align_val_t alignment)
    {
        return ::operator new(size, alignment);
    }
    static void* operator new(std::size_t /*size*/, void* place) { return place; }

    /// The other half of each operator new.
    static void operator delete(void* object, std::size_t size) noexcept;
    static void operator delete(void* object, std::size_t /*size*/,
                                std::align_val_t alignment) noexcept
    {
        ::operator delete(object, alignment);
    }
    static void operator delete(void* /*object*/, void* /*place*/) noexcept {}

protected:
    Storage() = default;
    ~Storage() = default;
};

} // namespace Kestro
