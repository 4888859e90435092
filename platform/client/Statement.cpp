#include "Link.h"
#include "Result.h"
#include "Text.h"

#include <db_client.h>

#include <memory>
#include <mysql.h>
#include <string>
#include <string_view>

namespace client {

namespace {

enum class Rows { Transfer, DecideLate };

// Reads the rows of the current result set and forgets them.
int discardRows(Link& link)
{
    MYSQL_RES* rows = mysql_use_result(link.mysql);
    std::uint64_t count = 0;
    while (rows != nullptr && mysql_fetch_row(rows) != nullptr) {
        ++count;
    }
    mysql_free_result(rows);
    if (mysql_errno(link.mysql) != 0) {
        return link.fail();
    }
    link.ended(count);
    return 0;
}

int storeRows(Link& link, std::unique_ptr<Result>& result)
{
    MYSQL_RES* rows = mysql_store_result(link.mysql);
    if (rows == nullptr) {
        return link.fail();
    }
    result = std::make_unique<Result>(rows);
    link.ended(mysql_num_rows(rows));
    return 0;
}

// Reads what every statement of the text that was sent answers. The first result set goes to
// `result` if there is one to fill.
int readAnswers(Link& link, std::unique_ptr<Result>* result, Rows rows)
{
    if (mysql_read_query_result(link.mysql) != 0) {
        return link.fail();
    }
    for (;;) {
        const bool more = mysql_more_results(link.mysql) != 0;
        if (mysql_field_count(link.mysql) == 0) {
            link.ended(mysql_affected_rows(link.mysql));
        } else if (result == nullptr || *result != nullptr) {
            if (const int failed = discardRows(link)) {
                return failed;
            }
        } else if (rows == Rows::DecideLate && !more) {
            *result = std::make_unique<Result>(link);
            return 0;
        } else if (const int failed = storeRows(link, *result)) {
            return failed;
        }
        // Only while more is promised: asked once too often, the Connector forgets the number of
        // affected rows.
        if (mysql_more_results(link.mysql) == 0) {
            return 0;
        }
        if (mysql_next_result(link.mysql) > 0) {
            return link.fail();
        }
    }
}

int query(void* handle, std::string_view text, void** result, Rows rows)
{
    if (result != nullptr) {
        *result = nullptr;
    }
    if (handle == nullptr) {
        return failNotConnected();
    }
    Link& link = *static_cast<Link*>(handle);
    if (isBlank(text)) {
        link.affectedRows = 0;
        return 0;
    }
    if (const int failed = link.send(text)) {
        return failed;
    }
    link.sessionFresh = link.sessionFresh && !leavesUnseen(text);
    std::unique_ptr<Result> first;
    if (const int failed = readAnswers(link, result != nullptr ? &first : nullptr, rows)) {
        link.sessionFresh = link.sessionFresh && leavesNothingIfRefused(text);
        return failed;
    }
    if (result != nullptr) {
        *result = first.release();
    }
    return 0;
}

} // namespace

} // namespace client

using client::Link;

int db_query(void* handle, const char* text, void** result)
{
    return client::query(handle, text, result, client::Rows::Transfer);
}

int db_use_query(void* handle, const char* text, void** result)
{
    return client::query(handle, text, result, client::Rows::DecideLate);
}

std::uint64_t db_affected_rows(void* handle)
{
    return handle != nullptr ? static_cast<Link*>(handle)->affectedRows : 0;
}

std::uint64_t db_lastid(void* handle)
{
    return handle != nullptr ? static_cast<Link*>(handle)->lastId : 0;
}
