#pragma once

#include "Link.h"
#include "Rows.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>

namespace client {

/// What a result handle points at. Its rows stand on the link at first; the first thing asked
/// decides whether they are stored or streamed.
class Result {
public:
    /// A result set of this many columns, at least 1, whose rows stand on the link.
    Result(Link& link, int columns);
    Result(const Result&) = delete;
    Result& operator=(const Result&) = delete;
    /// Reads what is left of a stream.
    ~Result();

    int columns() const { return m_columns; }
    /// The number of rows, which are stored for that unless they are being streamed: then it is the
    /// number fetched so far. At least 1 if the rest is lost.
    int rowCount();
    /// Stores the rows. Returns 0 or 1.
    int store();
    /// Makes the row at an index the current one. Null past the last one, and for a streamed row
    /// that has gone by; throws if the rest is lost.
    const char* fetch(int index);
    /// A value of a row that was fetched.
    const char* value(const char* row, int column)
    {
        if (row == m_row && static_cast<unsigned>(column) < m_readable) [[likely]] {
            return m_cells[column].value;
        }
        return valueOfOther(row, column);
    }
    /// The length of a value of the current row, in bytes.
    unsigned long length(int column) const
    {
        return static_cast<unsigned>(column) < m_readable ? m_cells[column].length : 0;
    }

    /// The link is about to be closed: rows that are still on it are lost.
    void linkCloses();

private:
    const char* step();
    const char* stepStream();
    const char* current(const char* row);
    const char* valueOfOther(const char* row, int column) const;
    bool readStreamed(unsigned char* packet, std::size_t size);
    void uncover();
    void leaveLink();
    void fail(const std::string& text);
    [[noreturn]] void throwFailure() const;

    // The row fetched last: null, and no readable columns, if there is none.
    const char* m_row = nullptr;
    Cell* m_cells;
    unsigned m_readable = 0;
    int m_next = 0;                  // index of the row after it
    const char* m_stored = nullptr;  // that row, if it is stored
    std::uint64_t m_storedCount = 0; // of rows, once all are stored
    int m_columns;
    Link* m_link; // null once no row stands on it
    bool m_streaming = false;
    unsigned char* m_rowEnd = nullptr; // of the streamed row; its NUL is in the place of m_covered
    unsigned char m_covered = 0;
    bool m_failed = false; // the rest of the rows is lost, as m_failure says
    Rows m_rows;
    std::array<Cell, 8> m_few; // the cells of most results
    std::unique_ptr<Cell[]> m_many;
    std::string m_failure;
};

} // namespace client
