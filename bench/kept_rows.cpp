// Every row of a result becomes an object of its own, kept in a list.

#include "Measure.h"
#include "Peer.h"
#include "RawLink.h"
#include "Record.h"

#include <KestroDatabase>
#include <list>
#include <optional>

using namespace bench;
using namespace Kestro;
using namespace Kestro::Database;

namespace {

constexpr int Rows = 1'000'000;

std::uint64_t raw(int rows)
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

struct RecordRow : RowImpl {
    Record record;

    bool parse(void* connection, void* result, void* row) override
    {
        record.read([&](int index) { return column(connection, result, row, index).value_or(""); });
        return true;
    }
};

std::uint64_t kestro(int rows)
{
    Connection connection(BenchDatabase);
    RowContainer records;
    KyRowParser<RecordRow> parser(records);
    Query query(connection, &parser);
    query << selectRecords(rows);
    query.execute();
    std::uint64_t checksum = 0;
    for (const Ref<RowImpl>& row : records.rows()) {
        add(checksum, static_cast<const RecordRow&>(*row).record);
    }
    return checksum;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<Way> ways = {{"raw", raw}, {"kestro", kestro}};
    addPeerWays(ways, &Peer::keptRows);
    return run(
        argc, argv,
        {{"1,000,000 rows of 5 columns into objects, kept in a list", Rows, ways, makeRecords}});
}
