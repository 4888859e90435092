// What the library costs on top of the plain client: the same rows are fetched by both, and every
// way does the same work with them. "stored" transfers the result and reads its rows into one
// object, "streamed" reads them as they arrive, "kept" makes an object of every row of a stored
// result and keeps them all in a list.
//
//     rows [ROUNDS]     compares the ways and prints tables
//     rows WAY ROWS     runs one way once, in this process, to be looked at by a profiler
//
// The server is the one whose socket MYSQL_UNIX_PORT names.

#include "Measure.h"

#include <KestroDatabase>
#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <list>
#include <memory>
#include <mysql.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

using namespace Kestro;
using namespace Kestro::Database;

namespace {

constexpr char BenchDatabase[] = "kestro_bench";
constexpr int ManyRows = 1'000'000;
constexpr int FewRows = 100'000;
constexpr int DefaultRounds = 9;

template <class Number> void assign(Number& number, std::string_view text)
{
    std::from_chars(text.data(), text.data() + text.size(), number);
}

struct Record {
    int id = 0;
    int amount = 0;
    std::string name;
    std::string text;
    double value = 0;

    /// column(index) is the value in that column.
    template <class Column> void read(const Column& column)
    {
        assign(id, column(0));
        assign(amount, column(1));
        name = column(2);
        text = column(3);
        assign(value, column(4));
    }
};

// Cheap, so that it does not hide what is measured; a row lost, doubled or out of place changes it.
void add(std::uint64_t& checksum, const Record& record)
{
    const auto last = [](const std::string& text) { return text.empty() ? '\0' : text.back(); };
    for (const std::uint64_t part :
         {static_cast<std::uint64_t>(record.id), static_cast<std::uint64_t>(record.amount),
          record.name.size() + static_cast<unsigned char>(last(record.name)),
          record.text.size() + static_cast<unsigned char>(last(record.text)),
          std::bit_cast<std::uint64_t>(record.value)}) {
        checksum = checksum * 31 + part;
    }
}

using Receive = MYSQL_RES* (*)(MYSQL*);

// A result as the plain client gives it, on a link of its own.
class RawResult {
public:
    RawResult(const std::string& select, Receive receive)
    {
        mysql_options(m_link.get(), MYSQL_SET_CHARSET_NAME, "utf8mb4");
        check(mysql_real_connect(m_link.get(), nullptr, nullptr, nullptr, BenchDatabase, 0,
                                 std::getenv("MYSQL_UNIX_PORT"), 0) != nullptr);
        check(mysql_real_query(m_link.get(), select.data(), select.size()) == 0);
        m_rows.reset(receive(m_link.get()));
        check(m_rows != nullptr);
    }

    MYSQL_ROW fetch()
    {
        MYSQL_ROW row = mysql_fetch_row(m_rows.get());
        check(row != nullptr || mysql_errno(m_link.get()) == 0);
        return row;
    }

    void read(MYSQL_ROW row, Record& record)
    {
        const unsigned long* lengths = mysql_fetch_lengths(m_rows.get());
        record.read([&](int index) { return std::string_view(row[index], lengths[index]); });
    }

    void freeRows() { m_rows.reset(); }

private:
    void check(bool success)
    {
        if (!success) {
            throw std::runtime_error(mysql_error(m_link.get()));
        }
    }

    std::unique_ptr<MYSQL, decltype(&mysql_close)> m_link{mysql_init(nullptr), mysql_close};
    std::unique_ptr<MYSQL_RES, decltype(&mysql_free_result)> m_rows{nullptr, mysql_free_result};
};

template <Receive receive> std::uint64_t rawFetched(const std::string& select)
{
    RawResult result(select, receive);
    Record record;
    std::uint64_t checksum = 0;
    while (MYSQL_ROW row = result.fetch()) {
        result.read(row, record);
        add(checksum, record);
    }
    return checksum;
}

std::uint64_t rawKept(const std::string& select)
{
    RawResult result(select, mysql_store_result);
    std::list<Record> records;
    while (MYSQL_ROW row = result.fetch()) {
        result.read(row, records.emplace_back());
    }
    result.freeRows(); // before the records are used, as Query does
    std::uint64_t checksum = 0;
    for (const Record& record : records) {
        add(checksum, record);
    }
    return checksum;
}

struct KeptRow : RowImpl {
    Record record;

    bool parse(void* connection, void* result, void* row) override
    {
        record.read([&](int index) { return column(connection, result, row, index).value_or(""); });
        return true;
    }
};

struct PassingRow : KeptRow {
    std::uint64_t checksum = 0;

    bool parse(void* connection, void* result, void* row) override
    {
        KeptRow::parse(connection, result, row);
        add(checksum, record);
        return true;
    }
};

std::uint64_t kestroKept(const std::string& select)
{
    Connection connection(BenchDatabase);
    RowContainer records;
    KyRowParser<KeptRow> parser(records);
    Query query(connection, &parser);
    query << select;
    query.execute();
    std::uint64_t checksum = 0;
    for (const Ref<RowImpl>& row : records.rows()) {
        add(checksum, static_cast<const KeptRow&>(*row).record);
    }
    return checksum;
}

template <bool storeResult> std::uint64_t kestroFetched(const std::string& select)
{
    Connection connection(BenchDatabase);
    PassingRow row;
    OneRowParser parser(row);
    Query query(connection, &parser, storeResult);
    query << select;
    query.execute();
    return row.checksum;
}

struct Way {
    const char* name;
    std::uint64_t (*run)(const std::string& select);
};

// Each way of the library stands behind the raw one that it is compared with.
constexpr std::array Ways = {
    Way{"raw-stored", rawFetched<mysql_store_result>},
    Way{"kestro-stored", kestroFetched<true>},
    Way{"raw-streamed", rawFetched<mysql_use_result>},
    Way{"kestro-streamed", kestroFetched<false>},
    Way{"raw-kept", rawKept},
    Way{"kestro-kept", kestroKept},
};

// Makes a table of this many rows, unless it is there, and returns the statement that reads it.
std::string makeTable(int rows)
{
    Connection connection("");
    const auto run = [&connection](const std::string& statement) {
        Query query(connection);
        query << statement;
        query.execute();
    };
    run(std::string("CREATE DATABASE IF NOT EXISTS ") + BenchDatabase);
    connection.dbSelect(BenchDatabase);
    const std::string count = std::to_string(rows);
    // MyISAM is read fastest: the server's time hides least of the client's.
    run("CREATE TABLE IF NOT EXISTS rows_" + count +
        " (id INT, amount INT, name VARCHAR(20), text VARCHAR(60), value DOUBLE) ENGINE=MyISAM"
        " SELECT seq AS id, seq * 7919 % 100003 AS amount, CONCAT('name ', seq) AS name,"
        " CONCAT('text of row ', seq, ' ', REPEAT('x', seq % 30)) AS text, seq / 7e0 AS value"
        " FROM seq_1_to_" +
        count);
    return "SELECT id, amount, name, text, value FROM rows_" + count;
}

// The fetching ways, bound to a statement.
std::vector<bench::Way> waysOf(const std::string& select)
{
    std::vector<bench::Way> ways;
    for (const Way& way : Ways) {
        ways.push_back({way.name, [&way, select] { return way.run(select); }});
    }
    return ways;
}

void compareWays(int rounds)
{
    std::printf("%d rows, %d rounds; x: times the raw one\n", ManyRows, rounds);
    bench::compare(waysOf(makeTable(ManyRows)), rounds);
}

void compareSizes()
{
    const auto few = waysOf(makeTable(FewRows));
    const auto many = waysOf(makeTable(ManyRows));
    std::printf("\npeak MiB, streamed\n%-16s %9d rows %9d rows\n", "way", FewRows, ManyRows);
    for (const std::size_t way : {2U, 3U}) {
        std::printf("%-16s %14.1f %14.1f\n", few[way].name.c_str(), bench::measure(few[way]).peak,
                    bench::measure(many[way]).peak);
    }
}

void runOnce(const std::string& name, int rows)
{
    const auto* way = std::ranges::find(Ways, name, &Way::name);
    if (way == Ways.end()) {
        throw std::runtime_error("no such way: " + name);
    }
    std::printf("%016jx\n", static_cast<std::uintmax_t>(way->run(makeTable(rows))));
}

} // namespace

int main(int argc, char** argv)
{
    try {
        if (argc == 3) {
            runOnce(argv[1], std::stoi(argv[2]));
        } else {
            compareWays(argc == 2 ? std::max(std::stoi(argv[1]), 1) : DefaultRounds);
            compareSizes();
        }
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "rows: %s\n", failure.what());
        return 1;
    }
}
