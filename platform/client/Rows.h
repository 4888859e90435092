#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace client {

/// One value of a row: NUL-terminated, or null for SQL NULL.
struct Cell {
    const char* value;
    unsigned long length; ///< bytes
};

/// The stored rows of a result, packed one after the other. They stay where they are until the
/// object goes, which gives their memory back.
class Rows {
public:
    /// For rows of this many columns, at least 1.
    explicit Rows(std::size_t columns)
        : m_columns(columns), m_next(m_few), m_end(m_few + sizeof m_few)
    {}
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;
    ~Rows();

    std::uint64_t count() const { return m_count; }
    /// Adds a row as the server sent it; false if it does not have as many values as there are
    /// columns, to the byte.
    bool append(const unsigned char* packet, std::size_t size);

    /// The row at an index below count(), to be read; the cost is the same for all of them.
    const char* at(std::uint64_t index) const;
    /// Reads the values of a row. Returns the row after it, which must not be read unless count()
    /// says that there is one.
    const char* read(const char* row, Cell* cells) const;

private:
    // What a row begins with, or what is found in its place: the address of the next one.
    enum Kind : char { Narrow, Wide, Jump };

    char* room(std::size_t size);
    void startChunk(std::size_t size);
    void added(const char* row, char* next);
    bool appendWide(char* row, const unsigned char* packet, std::size_t size);
    const char* readWide(const char* row, Cell* cells) const;
    static const char* follow(const char* row);

    struct Chunk {
        Chunk* next;
        std::size_t size;
    };
    static constexpr std::uint64_t Step = 32; // rows

    std::size_t m_columns;
    std::uint64_t m_count = 0;
    char* m_next; // where the next row begins
    char* m_end;  // of the memory that it can take
    Chunk* m_chunks = nullptr;
    std::size_t m_nextSize = 4096;    // of the next chunk
    std::vector<const char*> m_index; // every Step-th row but the first
    char m_few[448];                  // the first rows, so that most results need no chunk
};

} // namespace client
