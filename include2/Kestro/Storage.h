#pragma once

#include <Kestro/Api.h>

#include <cstddef>
#include <new>

namespace Kestro {

/// The library's own: where its handles' blocks and its row objects, and so those of classes
/// derived from RowImpl, live. It is here as public classes derive from it; programs do not name
/// it.
///
/// Objects of one size lie close together, and making one takes a few instructions. Memory goes
/// back to the system when all objects near each other are gone. Objects of more than 256 bytes, or
/// aligned to more than 16, are the heap's, and so are all in a program compiled with a sanitizer
/// that watches the heap. Any thread may make and delete. There is no new (std::nothrow).
class KESTRO_API Storage {
public:
    /// Throws std::bad_alloc if there is no memory.
    void* operator new(std::size_t size);
    void* operator new(std::size_t size, std::align_val_t to) { return ::operator new(size, to); }
    void* operator new(std::size_t /*size*/, void* place) { return place; }

    /// The other half of each operator new.
    void operator delete(void* object, std::size_t size) noexcept;
    void operator delete(void* o, std::align_val_t to) noexcept { ::operator delete(o, to); }
    void operator delete(void* /*object*/, void* /*place*/) noexcept {}

protected:
    ~Storage() = default;
};

} // namespace Kestro
