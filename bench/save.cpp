// What a record's save(true) costs on top of the plain client, which sends the same texts.
//
//     save [ROUNDS]
//
// The server is the one whose socket MYSQL_UNIX_PORT names.

#include "Measure.h"

#include <KestroDatabase>
#include <KestroTableMap>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <mysql.h>
#include <stdexcept>
#include <string>
#include <vector>

using namespace Kestro;

namespace {

constexpr char BenchDatabase[] = "kestro_bench_save";
constexpr int Saves = 20'000;
constexpr int Keys = 1'000;
constexpr int DefaultRounds = 9;

struct Item : KYDBTableSimple {
    KYDBDatabase* database;
    int id = 0;
    std::string a = "twenty characters \"a";
    std::string b = "twenty characters: b";
    std::string c = "twenty characters: c";
    long d = 0;
    char e[32] = "a buffer's text";

    explicit Item(KYDBDatabase* handle) : database(handle) {}
    void turn(int number)
    {
        id = number % Keys;
        d = number;
    }

protected:
    void dbmap_init() override
    {
        if (dbmap_size() == 0) {
            table_name("item");
            DBDatabase(database);
            m_dbmap.push_back("id", id, KYDB_FLAG_KEY | KYDB_FLAG_SAVE)
                .push_back("a", a, KYDB_FLAG_SAVE)
                .push_back("b", b, KYDB_FLAG_SAVE)
                .push_back("c", c, KYDB_FLAG_SAVE)
                .push_back("d", d, KYDB_FLAG_SAVE)
                .push_back("e", e, sizeof e, KYDB_FLAG_SAVE);
        }
    }
};

void select(KYDBDatabase& database)
{
    database.selectDB(BenchDatabase); // creates it the first time
    database.selectDB(BenchDatabase);
}

std::uint64_t sum()
{
    KYDBDatabase database;
    select(database);
    struct Sum : Database::RowImpl {
        std::uint64_t value = 0;
        bool parse(void* connection, void* result, void* row) override
        {
            value = std::stoull(std::string(column(connection, result, row, 0).value_or("0")));
            return true;
        }
    } sum;
    Database::OneRowParser parser(sum);
    database.Query("SELECT SUM(CRC32(CONCAT_WS('|', id, a, b, c, d, e))) FROM item", &parser);
    return sum.value;
}

// The texts are made beforehand: building them is what upsert.cpp measures.
std::uint64_t raw(const std::vector<std::string>& texts)
{
    const std::unique_ptr<MYSQL, decltype(&mysql_close)> link(mysql_init(nullptr), mysql_close);
    const auto check = [&link](bool success) {
        if (!success) {
            throw std::runtime_error(mysql_error(link.get()));
        }
    };
    check(mysql_real_connect(link.get(), nullptr, nullptr, nullptr, BenchDatabase, 0,
                             std::getenv("MYSQL_UNIX_PORT"), 0) != nullptr);
    for (const std::string& text : texts) {
        check(mysql_real_query(link.get(), text.data(), text.size()) == 0);
    }
    return sum();
}

std::uint64_t kestro()
{
    KYDBDatabase database;
    select(database);
    Item item(&database);
    for (int number = 0; number < Saves; ++number) {
        item.turn(number);
        if (item.save(true) != 0) {
            throw std::runtime_error(item.get_error_message());
        }
    }
    return sum();
}

} // namespace

int main(int argc, char** argv)
try {
    const int rounds = argc == 2 ? std::max(std::stoi(argv[1]), 1) : DefaultRounds;
    KYDBDatabase database;
    select(database);
    database.Query("CREATE OR REPLACE TABLE item (id INT PRIMARY KEY, a VARCHAR(40), "
                   "b VARCHAR(40), c VARCHAR(40), d BIGINT, e VARCHAR(40)) ENGINE=MEMORY",
                   nullptr);
    std::vector<std::string> texts;
    Item item(&database);
    for (int number = 0; number < Saves; ++number) {
        item.turn(number);
        const std::string assignments = item.sql_keyvalues(KYDB_FLAG_SAVE, ",");
        texts.push_back("INSERT INTO item SET " + assignments + " ON DUPLICATE KEY UPDATE " +
                        assignments + ";");
    }
    std::printf("%d saves, %d rounds; x: times the raw one\n", Saves, rounds);
    bench::compare({{"raw-save", [&] { return raw(texts); }}, {"kestro-save", kestro}}, rounds);
} catch (const std::exception& failure) {
    std::fprintf(stderr, "save: %s\n", failure.what());
    return 1;
}
