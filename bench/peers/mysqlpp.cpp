// MySQL++ writes statements into a stream with manipulators that quote, and converts the fields of
// rows on request.

#include "Item.h"
#include "RawLink.h"
#include "Record.h"

#include <list>
#include <mysql++/mysql++.h>
#include <stdexcept>

namespace bench {

namespace {

void readRow(const mysqlpp::Row& row, Record& record)
{
    record.id = row[0];
    record.amount = row[1];
    row[2].to_string(record.name);
    row[3].to_string(record.text);
    record.value = row[4];
}

struct RowRecord : Record {
    explicit RowRecord(const mysqlpp::Row& row) { readRow(row, *this); }
};

class Link : public mysqlpp::Connection {
public:
    Link() : mysqlpp::Connection(BenchDatabase, serverSocket().c_str(), account().c_str()) {}
};

std::uint64_t keptRows(int rows)
{
    Link link;
    std::list<RowRecord> records;
    mysqlpp::Query query = link.query(selectRecords(rows));
    query.storein(records);
    std::uint64_t checksum = 0;
    for (const Record& record : records) {
        add(checksum, record);
    }
    return checksum;
}

std::uint64_t streamedRows(int rows)
{
    Link link;
    mysqlpp::Query query = link.query(selectRecords(rows));
    mysqlpp::UseQueryResult result = query.use();
    Record record;
    std::uint64_t checksum = 0;
    while (mysqlpp::Row row = result.fetch_row()) {
        readRow(row, record);
        add(checksum, record);
    }
    return checksum;
}

std::uint64_t pointSelects(int selects)
{
    Link link;
    const std::string select = selectRecord(selects);
    Record record;
    std::uint64_t checksum = 0;
    for (int id = 1; id <= selects; ++id) {
        mysqlpp::Query query = link.query();
        query << select << id;
        const mysqlpp::StoreQueryResult result = query.store();
        readRow(result[0], record);
        add(checksum, record);
    }
    return checksum;
}

void assign(mysqlpp::Query& query, const Item& item)
{
    query << "id=" << item.id << ",a=" << mysqlpp::quote << item.a << ",b=" << mysqlpp::quote
          << item.b << ",c=" << mysqlpp::quote << item.c << ",d=" << item.d
          << ",e=" << mysqlpp::quote << item.e;
}

std::uint64_t upserts(int upserts)
{
    Link link;
    Item item;
    for (int number = 0; number < upserts; ++number) {
        item.turn(number, UpsertIds);
        mysqlpp::Query query = link.query();
        query << "INSERT INTO item SET ";
        assign(query, item);
        query << " ON DUPLICATE KEY UPDATE ";
        assign(query, item);
        query.execute();
    }
    return 0;
}

const bool registered =
    KeptRows.measure("mysql++", keptRows) && StreamedRows.measure("mysql++", streamedRows) &&
    PointSelects.measure("mysql++", pointSelects) && Upserts.measure("mysql++", upserts);

} // namespace

} // namespace bench
