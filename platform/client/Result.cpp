#include "Result.h"

#include <Kestro/Exception.h>
#include <db_client.h>

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

namespace client {

Result::Result(Link& link, int columns)
    : m_columns(columns), m_link(&link), m_rows(static_cast<std::size_t>(columns))
{
    m_cells = m_few.data();
    if (static_cast<std::size_t>(columns) > m_few.size()) {
        m_many = std::make_unique_for_overwrite<Cell[]>(static_cast<std::size_t>(columns));
        m_cells = m_many.get();
    }
    link.stream(this);
}

// Restores the byte after the streamed row.
inline void Result::uncover()
{
    if (m_rowEnd != nullptr) {
        *m_rowEnd = m_covered;
    }
}

Result::~Result()
{
    if (m_link == nullptr) {
        return;
    }
    if (m_link->ofParent()) {
        m_link->detachSocket();
    }
    uncover();
    m_link->dropRows();
    leaveLink();
}

int Result::rowCount()
{
    if (m_link != nullptr && !m_streaming) {
        store();
    }
    if (m_failed) {
        return std::max(m_next, 1);
    }
    const auto count = m_streaming ? static_cast<std::uint64_t>(m_next) : m_storedCount;
    constexpr int Most = std::numeric_limits<int>::max();
    return count < Most ? static_cast<int>(count) : Most;
}

int Result::store()
{
    Link& link = *m_link;
    std::size_t size;
    while (const unsigned char* packet = link.readRow(size)) {
        if (!m_rows.append(packet, size)) {
            link.malformed("a row is not as long as its values");
            break;
        }
    }
    if (link.answerFailed()) {
        fail(link.failure().text);
        return 1;
    }
    leaveLink();
    m_storedCount = m_rows.count();
    if (m_storedCount != 0) {
        m_stored = m_rows.at(0);
    }
    return 0;
}

const char* Result::fetch(int index)
{
    if (index == m_next) [[likely]] {
        return step();
    }
    if (index == m_next - 1 && m_row != nullptr) {
        return m_row;
    }
    if (index < 0) {
        return nullptr;
    }
    if (m_link != nullptr) {
        while (m_next < index && step() != nullptr) {
        }
        if (m_next != index) {
            return nullptr;
        }
    } else if (!m_failed && !m_streaming) {
        if (static_cast<std::uint64_t>(index) >= m_storedCount) {
            return nullptr;
        }
        m_stored = m_rows.at(static_cast<std::uint64_t>(index));
        m_next = index;
    }
    return step();
}

// Makes the next row the current one.
const char* Result::step()
{
    if (static_cast<std::uint64_t>(m_next) < m_storedCount) [[likely]] {
        const char* const row = m_stored;
        m_stored = m_rows.read(row, m_cells);
        return current(row);
    }
    return stepStream();
}

const char* Result::stepStream()
{
    m_row = nullptr;
    m_readable = 0;
    if (m_failed) {
        throwFailure();
    }
    if (m_link == nullptr) {
        return nullptr;
    }
    m_streaming = true;
    uncover();
    std::size_t size;
    unsigned char* const packet = m_link->readRow(size);
    if (packet != nullptr) {
        if (readStreamed(packet, size)) {
            return current(reinterpret_cast<const char*>(packet));
        }
        m_link->malformed("a row is not as long as its values");
    }
    if (m_link->answerFailed()) {
        fail(m_link->failure().text);
        throwFailure();
    }
    leaveLink();
    return nullptr;
}

inline const char* Result::current(const char* row)
{
    m_readable = static_cast<unsigned>(m_columns);
    ++m_next;
    return m_row = row;
}

// Overwrites each length byte with the NUL of the value before.
bool Result::readStreamed(unsigned char* packet, std::size_t size)
{
    constexpr unsigned char Null = 0xfb;
    unsigned char* at = packet;
    unsigned char* const end = packet + size;
    for (Cell* cell = m_cells; cell != m_cells + m_columns; ++cell) {
        if (at >= end) {
            return false;
        }
        unsigned char* const mark = at;
        std::uint64_t length = *at++;
        if (length == Null) {
            *cell = {nullptr, 0};
            *mark = 0;
            continue;
        }
        if (length > Null) {
            Fields fields(mark, static_cast<std::size_t>(end - mark));
            length = fields.number();
            at = end - fields.left();
        }
        if (length > static_cast<std::uint64_t>(end - at)) {
            return false;
        }
        *mark = 0;
        *cell = {reinterpret_cast<const char*>(at), length};
        at += length;
    }
    m_rowEnd = end;
    m_covered = std::exchange(*end, 0);
    return at == end;
}

// Not inlined, so that the common path stays small.
[[gnu::noinline]] const char* Result::valueOfOther(const char* row, int column) const
{
    if (row == nullptr || m_streaming ||
        static_cast<unsigned>(column) >= static_cast<unsigned>(m_columns)) {
        return nullptr;
    }
    std::vector<Cell> cells(static_cast<std::size_t>(m_columns));
    m_rows.read(row, cells.data());
    return cells[static_cast<std::size_t>(column)].value;
}

void Result::linkCloses()
{
    fail("the connection was closed while the rows were read");
}

void Result::leaveLink()
{
    if (!m_link->answerFailed()) {
        m_link->ended(m_streaming ? static_cast<std::uint64_t>(m_next) : m_rows.count());
    }
    m_link->stream(nullptr);
    m_link = nullptr;
}

void Result::fail(const std::string& text)
{
    m_failed = true;
    m_failure = text;
    m_row = nullptr;
    m_readable = 0;
    m_link->stream(nullptr);
    m_link = nullptr;
}

void Result::throwFailure() const
{
    Kestro::Exception lost("db_result_fetch_row", 4);
    lost.stringParameter(m_failure);
    throw lost;
}

} // namespace client

using client::Result;

void db_free_result(void* result)
{
    delete static_cast<Result*>(result);
}

int db_result_row_num(void* /*handle*/, void* result)
{
    return result != nullptr ? static_cast<Result*>(result)->rowCount() : 0;
}

int db_result_fields_num(void* /*handle*/, void* result)
{
    return result != nullptr ? static_cast<Result*>(result)->columns() : 0;
}

void* db_result_fetch_row(void* result, int index)
{
    return result != nullptr ? const_cast<char*>(static_cast<Result*>(result)->fetch(index))
                             : nullptr;
}

const char* db_result_get_value(void* /*handle*/, void* result, void* row, int column)
{
    return result != nullptr
               ? static_cast<Result*>(result)->value(static_cast<const char*>(row), column)
               : nullptr;
}

unsigned long db_result_field_length(void* result, int column)
{
    return result != nullptr ? static_cast<Result*>(result)->length(column) : 0;
}
