// What the library costs on top of the plain client: the same rows are fetched by both, and every
// way does the same work with them. "stored" transfers the result and reads its rows into one
// object, "streamed" reads them as they arrive, "kept" makes an object of every row of a stored
// result and keeps them all in a list.
//
//     rows [ROUNDS]     compares the ways and prints tables
//     rows WAY ROWS     runs one way once, in this process, to be looked at by a profiler
//
// The server is the one whose socket MYSQL_UNIX_PORT names.

#include <KestroDatabase>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <chrono>
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
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
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

// What one run tells.
struct Sample {
    double wall; // milliseconds, as is cpu
    double cpu;
    double peak; // MiB
    std::uint64_t checksum;
};

[[noreturn]] void runInChild(const Way& way, const std::string& select, int pipe)
{
    Sample sample{};
    try {
        const auto start = std::chrono::steady_clock::now();
        sample.checksum = way.run(select);
        const std::chrono::duration<double, std::milli> spent =
            std::chrono::steady_clock::now() - start;
        sample.wall = spent.count();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", way.name, failure.what());
        _exit(1);
    }
    _exit(write(pipe, &sample, sizeof sample) == sizeof sample ? 0 : 1);
}

double milliseconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

// A process for every run, so that its peak of memory is the run's own.
Sample measure(const Way& way, const std::string& select)
{
    int ends[2];
    const pid_t child = pipe(ends) == 0 ? fork() : -1;
    if (child < 0) {
        throw std::runtime_error("cannot start a process");
    }
    if (child == 0) {
        runInChild(way, select, ends[1]);
    }
    close(ends[1]);
    Sample sample{};
    const bool complete = read(ends[0], &sample, sizeof sample) == sizeof sample;
    close(ends[0]);
    rusage usage{};
    if (wait4(child, nullptr, 0, &usage) != child || !complete) {
        throw std::runtime_error(std::string(way.name) + " failed");
    }
    sample.cpu = milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
    sample.peak = static_cast<double>(usage.ru_maxrss) / 1024;
    return sample;
}

using Samples = std::vector<Sample>;

// The ways take turns, so that a slow spell of the machine hits all of them.
std::array<Samples, Ways.size()> measureAll(const std::string& select, int rounds)
{
    const std::uint64_t checksum = measure(Ways.front(), select).checksum;
    std::array<Samples, Ways.size()> all;
    for (int round = 0; round <= rounds; ++round) {
        for (std::size_t way = 0; way < Ways.size(); ++way) {
            const Sample sample = measure(Ways[way], select);
            if (sample.checksum != checksum) {
                throw std::runtime_error(std::string(Ways[way].name) + " read other rows");
            }
            if (round > 0) { // round 0 warms up
                all[way].push_back(sample);
            }
        }
    }
    return all;
}

double best(const Samples& samples, double Sample::*member)
{
    return std::ranges::min(samples, {}, member).*member;
}

double median(Samples samples, double Sample::*member)
{
    const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
    std::ranges::nth_element(samples, middle, {}, member);
    return (*middle).*member;
}

void compareWays(int rounds)
{
    const auto all = measureAll(makeTable(ManyRows), rounds);
    std::printf("%d rows, %d rounds; x: times the raw one\n", ManyRows, rounds);
    std::printf("%-16s %9s %6s %9s %6s %9s %6s %9s\n", "way", "median ms", "x", "best ms", "x",
                "CPU ms", "x", "peak MiB");
    for (std::size_t way = 0; way < Ways.size(); ++way) {
        const Samples& own = all[way];
        const Samples& raw = all[way - way % 2];
        const double wall = median(own, &Sample::wall);
        const double least = best(own, &Sample::wall);
        const double cpu = median(own, &Sample::cpu);
        std::printf("%-16s %9.0f %6.2f %9.0f %6.2f %9.0f %6.2f %9.1f\n", Ways[way].name, wall,
                    wall / median(raw, &Sample::wall), least, least / best(raw, &Sample::wall), cpu,
                    cpu / median(raw, &Sample::cpu), median(own, &Sample::peak));
    }
}

void compareSizes()
{
    const std::string few = makeTable(FewRows);
    const std::string many = makeTable(ManyRows);
    std::printf("\npeak MiB, streamed\n%-16s %9d rows %9d rows\n", "way", FewRows, ManyRows);
    for (const Way& way : {Ways[2], Ways[3]}) {
        std::printf("%-16s %14.1f %14.1f\n", way.name, measure(way, few).peak,
                    measure(way, many).peak);
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
