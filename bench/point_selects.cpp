// One row is read by its key, many times.

#include "Measure.h"
#include "Peer.h"
#include "RawLink.h"
#include "Record.h"

#include <KestroDatabase>

using namespace bench;
using namespace Kestro::Database;

namespace {

constexpr int Selects = 100'000;

std::uint64_t raw(int selects)
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

struct OneRow : RowImpl {
    Record record;

    bool parse(void* connection, void* result, void* row) override
    {
        record.read([&](int index) { return column(connection, result, row, index).value_or(""); });
        return false;
    }
};

std::uint64_t kestro(int selects)
{
    Connection connection(BenchDatabase);
    const std::string select = selectRecord(selects);
    OneRow row;
    OneRowParser parser(row);
    std::uint64_t checksum = 0;
    for (int id = 1; id <= selects; ++id) {
        Query query(connection, &parser);
        query << select << id;
        query.execute();
        add(checksum, row.record);
    }
    return checksum;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<Way> ways = {{"raw", raw}, {"kestro", kestro}};
    addPeerWays(ways, &Peer::pointSelects);
    Scenario scenario{"100,000 selects of one row by its key", Selects, ways, makeRecords};
    scenario.oneProcessor = true;
    return run(argc, argv, {scenario});
}
