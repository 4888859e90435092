#include "Link.h"
#include "Result.h"
#include "Text.h"

#include <db_client.h>

#include <errmsg.h>
#include <memory>
#include <mysqld_error.h>
#include <string>
#include <string_view>

namespace client {

namespace {

// What the server counts beside the text; one byte more, and it drops the link (measured from
// 1 MiB to 64 MiB).
constexpr std::size_t PacketOverhead = 2;

enum class Rows { Transfer, DecideLate };

// 0 if the text may be sent.
int refuse(Link& link, std::string_view text)
{
    if (const int failed = link.ready(text)) {
        return failed;
    }
    if (text.size() + PacketOverhead > link.maxAllowedPacket) {
        return link.fail(ER_NET_PACKET_TOO_LARGE,
                         "Got a packet bigger than 'max_allowed_packet' bytes: a statement of " +
                             std::to_string(text.size()) +
                             " bytes is too long for max_allowed_packet=" +
                             std::to_string(link.maxAllowedPacket) + "; it was not sent");
    }
    return 0;
}

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

// Sends the text and reads what every statement of it answers. The first result set goes to
// `result` if there is one to fill.
int run(Link& link, std::string_view text, std::unique_ptr<Result>* result, Rows rows)
{
    if (mysql_real_query(link.mysql, text.data(), text.size()) != 0) {
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
    if (const int refused = refuse(link, text)) {
        return refused;
    }
    link.sessionFresh = link.sessionFresh && !leavesUnseen(text);
    std::unique_ptr<Result> first;
    if (const int failed = run(link, text, result != nullptr ? &first : nullptr, rows)) {
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
