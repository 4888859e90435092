// What a record's fragment writers cost beside appending to a string by hand, without a server: the
// text of one upsert of 8 columns of 20 characters, two of them with a quote.

#include <KestroTableMap>
#include <array>
#include <benchmark/benchmark.h>
#include <string>

namespace {

using namespace Kestro;

const std::array<std::string, 8> Names = {"c0", "c1", "c2", "c3", "c4", "c5", "c6", "c7"};

struct Wide : KYDBTableSimple {
    std::array<std::string, 8> values;

    Wide()
    {
        for (std::size_t i = 0; i < values.size(); ++i) {
            values[i] = std::string(19, static_cast<char>('a' + i)) + (i % 4 == 0 ? "'" : "x");
        }
    }

protected:
    void dbmap_init() override
    {
        if (dbmap_size() == 0) {
            table_name("wide");
            for (std::size_t i = 0; i < values.size(); ++i) {
                m_dbmap.push_back(Names[i], values[i], KYDB_FLAG_SAVE);
            }
        }
    }
};

std::string byRecord(Wide& record)
{
    const std::string assignments = record.sql_keyvalues(KYDB_FLAG_SAVE, ",");
    return "INSERT INTO " + record.table_name() + " SET " + assignments +
           " ON DUPLICATE KEY UPDATE " + assignments + ";";
}

std::string byHand(const Wide& record)
{
    std::string assignments;
    for (std::size_t i = 0; i < Names.size(); ++i) {
        if (i > 0) {
            assignments += ',';
        }
        assignments += Names[i];
        assignments += "=\"";
        assignments += kydb_escape_string(record.values[i]);
        assignments += '"';
    }
    return "INSERT INTO wide SET " + assignments + " ON DUPLICATE KEY UPDATE " + assignments + ";";
}

void record(benchmark::State& state)
{
    Wide wide;
    if (byRecord(wide) != byHand(wide)) {
        state.SkipWithError("the texts differ");
    }
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(byRecord(wide));
    }
}
BENCHMARK(record);

void hand(benchmark::State& state)
{
    const Wide wide;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(byHand(wide));
    }
}
BENCHMARK(hand);

} // namespace

BENCHMARK_MAIN();
