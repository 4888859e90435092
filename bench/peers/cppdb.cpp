// CppDB prepares its statements, caches the prepared ones, and stores every result.

#include "Item.h"
#include "Machine.h"
#include "Peer.h"
#include "RawLink.h"
#include "Record.h"

#include <cppdb/backend.h>
#include <cppdb/frontend.h>
#include <cppdb/pool.h>
#include <list>

namespace bench {

namespace {

std::string login()
{
    return std::string("mysql:database=") + BenchDatabase + ";user=" + account() +
           ";unix_socket='" + serverSocket() + "'";
}

void read(cppdb::result& result, Record& record)
{
    result >> record.id >> record.amount >> record.name >> record.text >> record.value;
}

std::uint64_t keptRows(int rows)
{
    cppdb::session session(login());
    std::list<Record> records;
    {
        cppdb::result result = session << selectRecords(rows);
        while (result.next()) {
            read(result, records.emplace_back());
        }
    }
    std::uint64_t checksum = 0;
    for (const Record& record : records) {
        add(checksum, record);
    }
    return checksum;
}

std::uint64_t streamedRows(int rows)
{
    cppdb::session session(login());
    cppdb::result result = session << selectRecords(rows);
    Record record;
    std::uint64_t checksum = 0;
    while (result.next()) {
        read(result, record);
        add(checksum, record);
    }
    return checksum;
}

std::uint64_t pointSelects(int selects)
{
    cppdb::session session(login());
    const std::string select = selectRecord(selects) + "?";
    Record record;
    std::uint64_t checksum = 0;
    for (int id = 1; id <= selects; ++id) {
        cppdb::result result = session << select << id << cppdb::row;
        read(result, record);
        add(checksum, record);
    }
    return checksum;
}

std::uint64_t upserts(int upserts)
{
    cppdb::session session(login());
    Item item;
    for (int number = 0; number < upserts; ++number) {
        item.turn(number, UpsertIds);
        session << "INSERT INTO item SET id=?,a=?,b=?,c=?,d=?,e=? ON DUPLICATE KEY UPDATE"
                   " a=VALUES(a),b=VALUES(b),c=VALUES(c),d=VALUES(d),e=VALUES(e)"
                << item.id << item.a << item.b << item.c << item.d << item.e << cppdb::exec;
    }
    return 0;
}

std::uint64_t loans(int number)
{
    const cppdb::pool::pointer pool = cppdb::pool::create(login());
    const IdleThread other;
    for (int i = 0; i < number; ++i) {
        const cppdb::session session(pool->open());
    }
    return 0;
}

const bool added =
    addPeer({"cppdb", keptRows, streamedRows, pointSelects, upserts, nullptr, loans, nullptr});

} // namespace

} // namespace bench
