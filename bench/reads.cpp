// Rows are read: a whole result kept as objects in a list, a whole result through one object as it
// arrives, or one row by its key, many times.

#include "RawLink.h"
#include "Record.h"

#include <KestroDatabase>
#include <list>

using namespace bench;
using namespace Kestro;
using namespace Kestro::Database;

namespace {

std::uint64_t rawKept(int rows)
{
    const RawLink link;
    link.run(selectRecords(rows));
    std::list<Record> records;
    {
        RawResult result(link, mysql_store_result(link.get()));
        while (result.fetch()) {
            records.emplace_back().read(result);
        }
    } // frees the result before the records are used, as Query does
    std::uint64_t checksum = 0;
    for (const Record& record : records) {
        add(checksum, record);
    }
    return checksum;
}

std::uint64_t rawStreamed(int rows)
{
    const RawLink link;
    link.run(selectRecords(rows));
    RawResult result(link, mysql_use_result(link.get()));
    Record record;
    std::uint64_t checksum = 0;
    while (result.fetch()) {
        record.read(result);
        add(checksum, record);
    }
    return checksum;
}

std::uint64_t rawSelects(int selects)
{
    const RawLink link;
    const std::string select = selectRecord(selects);
    Record record;
    std::uint64_t checksum = 0;
    for (int id = 1; id <= selects; ++id) {
        link.run(select + std::to_string(id));
        RawResult result(link, mysql_store_result(link.get()));
        link.check(result.fetch());
        record.read(result);
        add(checksum, record);
    }
    return checksum;
}

struct Row : RowImpl {
    Record record;

    bool parse(void* connection, void* result, void* row) override
    {
        record.read([&](int index) { return column(connection, result, row, index).value_or(""); });
        return true;
    }
};

struct PassingRow : Row {
    std::uint64_t checksum = 0;

    bool parse(void* connection, void* result, void* row) override
    {
        Row::parse(connection, result, row);
        add(checksum, record);
        return true;
    }
};

std::uint64_t keptRows(int rows)
{
    Connection connection(BenchDatabase);
    RowContainer records;
    KyRowParser<Row> parser(records);
    Query query(connection, &parser);
    query << selectRecords(rows);
    query.execute();
    std::uint64_t checksum = 0;
    for (const Ref<RowImpl>& row : records.rows()) {
        add(checksum, static_cast<const Row&>(*row).record);
    }
    return checksum;
}

std::uint64_t streamedRows(int rows)
{
    Connection connection(BenchDatabase);
    PassingRow row;
    OneRowParser parser(row);
    constexpr bool Stored = false;
    Query query(connection, &parser, Stored);
    query << selectRecords(rows);
    query.execute();
    return row.checksum;
}

std::uint64_t pointSelects(int selects)
{
    Connection connection(BenchDatabase);
    const std::string select = selectRecord(selects);
    PassingRow row;
    OneRowParser parser(row);
    for (int id = 1; id <= selects; ++id) {
        Query query(connection, &parser);
        query << select << id;
        query.execute();
    }
    return row.checksum;
}

const bool registered =
    KeptRows.measure("raw", rawKept) && KeptRows.measure("kestro", keptRows) &&
    StreamedRows.measure("raw", rawStreamed) && StreamedRows.measure("kestro", streamedRows) &&
    PointSelects.measure("raw", rawSelects) && PointSelects.measure("kestro", pointSelects);

} // namespace
