#include "Rows.h"

#include "Wire.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <sys/mman.h>

namespace client {

namespace {

// A narrow row is its kind, a byte for each value's length, and the values, each with a NUL. In a
// wide row, which has a value of more than 250 bytes, a length takes eight bytes.
constexpr unsigned char NarrowNull = 0xfb; // in the server's rows too
constexpr std::uint64_t WideNull = ~std::uint64_t{0};

constexpr std::size_t JumpSize = 1 + sizeof(char*);
constexpr std::size_t PageSize = 4096;
// From this size on a chunk is pages of its own, put in place by the call that takes them, which
// costs less than a fault for each.
constexpr std::size_t LargeChunk = std::size_t{256} << 10;

} // namespace

// The row that is found at a place: there, or in the next chunk.
inline const char* Rows::follow(const char* row)
{
    if (*row == Jump) {
        std::memcpy(&row, row + 1, sizeof row);
    }
    return row;
}

inline void Rows::added(const char* row, char* next)
{
    if (m_count % Step == 0 && m_count != 0) {
        m_index.push_back(row);
    }
    ++m_count;
    *next = Narrow; // until the next row is there
    m_next = next;
}

Rows::~Rows()
{
    while (Chunk* chunk = m_chunks) {
        m_chunks = chunk->next;
        if (chunk->size < LargeChunk) {
            ::operator delete(chunk);
        } else {
            munmap(chunk, chunk->size);
        }
    }
}

// Memory for a row of at most this size, where the next row begins.
char* Rows::room(std::size_t size)
{
    if (static_cast<std::size_t>(m_end - m_next) < size + JumpSize) {
        startChunk(size + JumpSize);
    }
    return m_next;
}

void Rows::startChunk(std::size_t size)
{
    size = std::max(m_nextSize, size + sizeof(Chunk));
    m_nextSize = std::min(m_nextSize * 8, LargeChunk);
    void* memory;
    if (size < LargeChunk) {
        memory = ::operator new(size);
    } else {
        size = (size + PageSize - 1) / PageSize * PageSize;
        memory = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
        if (memory == MAP_FAILED) {
            throw std::bad_alloc();
        }
    }
    m_chunks = new (memory) Chunk{m_chunks, size};
    char* const begin = static_cast<char*>(memory) + sizeof(Chunk);
    *m_next = Jump;
    std::memcpy(m_next + 1, &begin, sizeof begin);
    m_next = begin;
    m_end = static_cast<char*>(memory) + size;
}

bool Rows::append(const unsigned char* packet, std::size_t size)
{
    // Enough for a wide row, too: a second chunk for the same row would leave the first one empty,
    // and follow() goes one chunk further, not two.
    char* const row = room(1 + m_columns * sizeof WideNull + size);
    // As it comes, each value follows its length: this becomes the NUL of the value before. The
    // first one is where the last length will be.
    auto* const lengths = reinterpret_cast<unsigned char*>(row + 1);
    unsigned char* at = lengths + m_columns - 1;
    unsigned char* const end = at + size;
    unsigned char* const last = at;
    std::memcpy(at, packet, size);
    unsigned char length = *packet;
    for (unsigned char* out = lengths;; length = *at, *at = 0) {
        *out = length;
        if (length >= NarrowNull) [[unlikely]] {
            if (length > NarrowNull) {
                return appendWide(row, packet, size);
            }
            length = 0;
        }
        at += 1 + length;
        if (out++ == last) {
            break;
        }
        if (at >= end) {
            return false;
        }
    }
    if (at != end) {
        return false;
    }
    *end = 0;
    row[0] = Narrow;
    added(row, reinterpret_cast<char*>(end) + 1);
    return true;
}

[[gnu::noinline]] bool Rows::appendWide(char* row, const unsigned char* packet, std::size_t size)
{
    char* lengths = row + 1;
    char* values = lengths + m_columns * sizeof WideNull;
    Fields fields(packet, size);
    for (std::size_t column = 0; column < m_columns; ++column) {
        std::uint64_t length = WideNull;
        if (fields.left() != 0 && packet[size - fields.left()] == NarrowNull) {
            fields.fixed(1);
        } else {
            const std::string_view value = fields.text();
            length = value.size();
            std::memcpy(values, value.data(), value.size());
            values += value.size();
        }
        if (fields.broken()) {
            return false;
        }
        *values++ = '\0';
        std::memcpy(lengths, &length, sizeof length);
        lengths += sizeof length;
    }
    if (fields.left() != 0) {
        return false;
    }
    row[0] = Wide;
    added(row, values);
    return true;
}

const char* Rows::at(std::uint64_t index) const
{
    const char* row = follow(m_few);
    if (index >= Step) {
        row = m_index[index / Step - 1];
    }
    if (index % Step != 0) {
        std::vector<Cell> cells(m_columns);
        for (std::uint64_t i = index % Step; i > 0; --i) {
            row = read(row, cells.data());
        }
    }
    return row;
}

const char* Rows::read(const char* row, Cell* cells) const
{
    if (row[0] == Wide) {
        return readWide(row, cells);
    }
    const auto* length = reinterpret_cast<const unsigned char*>(row + 1);
    const char* value = row + 1 + m_columns;
    for (const unsigned char* const end = length + m_columns; length != end; ++length, ++cells) {
        *cells = {value, *length};
        value += *length + 1;
        if (*length == NarrowNull) [[unlikely]] {
            *cells = {nullptr, 0};
            value -= NarrowNull;
        }
    }
    return follow(value);
}

[[gnu::noinline]] const char* Rows::readWide(const char* row, Cell* cells) const
{
    const char* lengths = row + 1;
    const char* value = lengths + m_columns * sizeof WideNull;
    for (std::size_t column = 0; column < m_columns; ++column) {
        std::uint64_t length;
        std::memcpy(&length, lengths + column * sizeof length, sizeof length);
        cells[column] = length == WideNull ? Cell{nullptr, 0} : Cell{value, length};
        value += length == WideNull ? 1 : length + 1;
    }
    return follow(value);
}

} // namespace client
