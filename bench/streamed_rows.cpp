// The rows of a result pass through one object as they arrive. Beside the time, memory matters: it
// must not grow with the number of rows, so there is a second table with fewer rows.

#include "Measure.h"
#include "Peer.h"
#include "RawLink.h"
#include "Record.h"

#include <KestroDatabase>

using namespace bench;
using namespace Kestro::Database;

namespace {

constexpr int ManyRows = 1'000'000;
constexpr int FewRows = 100'000;

std::uint64_t raw(int rows)
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

struct PassingRow : RowImpl {
    Record record;
    std::uint64_t checksum = 0;

    bool parse(void* connection, void* result, void* row) override
    {
        record.read([&](int index) { return column(connection, result, row, index).value_or(""); });
        add(checksum, record);
        return true;
    }
};

std::uint64_t kestro(int rows)
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

} // namespace

int main(int argc, char** argv)
{
    std::vector<Way> ways = {{"raw", raw}, {"kestro", kestro}};
    addPeerWays(ways, &Peer::streamedRows);
    return run(argc, argv,
               {{"1,000,000 rows of 5 columns through one object", ManyRows, ways, makeRecords},
                {"100,000 rows of 5 columns through one object", FewRows, ways, makeRecords}});
}
