#pragma once

#include <Kestro/Api.h>

#include <cstddef>
#include <new>

namespace Kestro {

/// Internal: the allocator of the blocks of handles and of row objects, those of classes derived
/// from RowImpl included. It is in a public header only because public classes derive from it.
/// Programs do not name it.
///
/// Objects of one size lie close together, in chunks, and making one takes a few instructions. A
/// chunk goes back to the system with its last object; a few empty ones are kept for the next
/// objects. Objects of more than 256 bytes, or aligned to more than 16, come from the heap. In a
/// program that is compiled with a sanitizer all objects do, so that the sanitizer sees them. Any
/// thread may make and delete objects. There is no new (std::nothrow).
class KESTRO_API Storage {
public:
    /// Throws std::bad_alloc if there is no memory.
    void* operator new(std::size_t size);
    void* operator new(std::size_t size, std::align_val_t to) { return ::operator new(size, to); }
    void* operator new(std::size_t /*size*/, void* place) { return place; }

    /// The counterparts of the operators new.
    void operator delete(void* object, std::size_t size) noexcept;
    void operator delete(void* o, std::align_val_t to) noexcept { ::operator delete(o, to); }
    void operator delete(void* /*object*/, void* /*place*/) noexcept {}

protected:
    ~Storage() = default;
};

} // namespace Kestro
