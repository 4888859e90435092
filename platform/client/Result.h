#pragma once

#include "Link.h"
#include "Rows.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>

namespace client {

/// What a result handle points at. At first its rows are still to come on the connection; the first
/// call decides whether they are stored or streamed.
class Result {
public:
    /// A result set of this many columns, at least 1, whose rows are to come on the link.
    Result(Link& link, int columns);
    Result(const Result&) = delete;
    Result& operator=(const Result&) = delete;
    /// Reads and drops the rest of the rows.
    ~Result();

    int columns() const { return m_columns; }
    /// The number of rows, which are stored first. If they are being streamed, the number fetched
    /// so far. At least 1 if the rest of the rows is lost.
    int rowCount();
    /// Stores the rows. Returns 0, or 1 if they are lost.
    int store();
    /// Makes the row at an index the current one and returns it. Returns null after the last row,
    /// for a negative index, and for a streamed row before the current one. Throws if the row is
    /// lost.
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

    /// The link is about to be closed: its remaining rows are lost.
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

    const char* m_row = nullptr;     // the current row, or null
    Cell* m_cells;                   // its values
    unsigned m_readable = 0;         // how many values it has: m_columns, or 0 without a row
    int m_next = 0;                  // the index of the next row
    const char* m_stored = nullptr;  // the next row, if it is stored
    std::uint64_t m_storedCount = 0; // the number of rows once all are stored, else 0
    int m_columns;
    Link* m_link; // null once all rows have been read from it, or are lost
    bool m_streaming = false;
    // A streamed row's last NUL covers a byte that may begin the next packet.
    unsigned char* m_rowEnd = nullptr;
    unsigned char m_covered = 0;
    bool m_failed = false; // the rest of the rows is lost, for the reason in m_failure
    Rows m_rows;
    std::array<Cell, 8> m_few; // where m_cells points for a result of few columns
    std::unique_ptr<Cell[]> m_many;
    std::string m_failure;
};

} // namespace client
