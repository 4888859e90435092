#include "Result.h"

#include <Kestro/Exception.h>
#include <db_client.h>

#include <algorithm>
#include <limits>

namespace client {

Result::Result(MYSQL_RES* stored)
    : link(nullptr), rows(stored), columns(static_cast<int>(mysql_num_fields(stored)))
{}

Result::Result(Link& pending)
    : link(&pending), rows(nullptr), columns(static_cast<int>(mysql_field_count(pending.mysql)))
{
    pending.stream = this;
}

Result::~Result()
{
    if (link != nullptr && link->ofParent()) {
        link->detachSocket();
    }
    if (link != nullptr && rows == nullptr) {
        rows = mysql_use_result(link->mysql);
    }
    // Reads what is left of a stream.
    mysql_free_result(rows);
    leaveLink();
}

int Result::rowCount()
{
    if (link != nullptr && rows == nullptr) {
        transfer();
    }
    if (failed) {
        return std::max(next, 1);
    }
    const std::uint64_t count = mysql_num_rows(rows);
    constexpr int Most = std::numeric_limits<int>::max();
    return count < Most ? static_cast<int>(count) : Most;
}

MYSQL_ROW Result::fetch(int index)
{
    if (index == next - 1 && row != nullptr) {
        return row;
    }
    if (index < 0) {
        return nullptr;
    }
    if (index != next) {
        if (link != nullptr) {
            while (next < index && step() != nullptr) {
            }
            if (next != index) {
                return nullptr;
            }
        } else if (!failed) {
            if (static_cast<std::uint64_t>(index) >= mysql_num_rows(rows)) {
                return nullptr;
            }
            mysql_data_seek(rows, static_cast<unsigned long long>(index));
            next = index;
        }
    }
    return step();
}

unsigned long Result::length(int column)
{
    if (!hasColumn(column)) {
        return 0;
    }
    return lengths != nullptr ? lengths[column] : firstLength(column);
}

// Apart, so that the ways of every other value are short.
[[gnu::noinline]] unsigned long Result::firstLength(int column)
{
    if (row == nullptr) {
        return 0;
    }
    lengths = mysql_fetch_lengths(rows);
    return lengths[column];
}

void Result::linkCloses()
{
    fail("the connection was closed while the rows were read");
}

void Result::transfer()
{
    rows = mysql_store_result(link->mysql);
    if (rows == nullptr) {
        link->fail();
        fail(link->failure.text);
        return;
    }
    link->ended(mysql_num_rows(rows));
    link->stream = nullptr;
    link = nullptr;
}

// The row behind the current one becomes the current one.
MYSQL_ROW Result::step()
{
    if (link != nullptr && rows == nullptr) {
        rows = mysql_use_result(link->mysql);
    }
    lengths = nullptr;
    row = rows != nullptr ? mysql_fetch_row(rows) : nullptr;
    if (row != nullptr) {
        ++next;
        return row;
    }
    if (link != nullptr) {
        if (rows == nullptr || mysql_errno(link->mysql) != 0) {
            link->fail();
            fail(link->failure.text);
        } else {
            leaveLink();
        }
    }
    if (failed) {
        Kestro::Exception lost("db_result_fetch_row", 4);
        lost.stringParameter(failure);
        throw lost;
    }
    return nullptr;
}

void Result::leaveLink()
{
    if (link != nullptr) {
        link->ended(static_cast<std::uint64_t>(next));
        link->stream = nullptr;
        link = nullptr;
    }
}

void Result::fail(const std::string& text)
{
    failed = true;
    failure = text;
    row = nullptr;
    lengths = nullptr;
    mysql_free_result(rows);
    rows = nullptr;
    link->stream = nullptr;
    link = nullptr;
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
    return result != nullptr ? static_cast<Result*>(result)->columns : 0;
}

void* db_result_fetch_row(void* result, int index)
{
    return result != nullptr ? static_cast<Result*>(result)->fetch(index) : nullptr;
}

const char* db_result_get_value(void* /*handle*/, void* result, void* row, int column)
{
    if (result == nullptr || row == nullptr || !static_cast<Result*>(result)->hasColumn(column)) {
        return nullptr;
    }
    return static_cast<MYSQL_ROW>(row)[column];
}

unsigned long db_result_field_length(void* result, int column)
{
    return result != nullptr ? static_cast<Result*>(result)->length(column) : 0;
}
