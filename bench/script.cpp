// What QueryFile costs on top of the plain client: both read a script of one INSERT a line and send
// it in the same batches.
//
//     script [ROUNDS]
//
// The server is the one whose socket MYSQL_UNIX_PORT names.

#include "Measure.h"

#include <KestroDatabase>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mysql.h>
#include <stdexcept>
#include <string>

using namespace Kestro::Database;

namespace {

constexpr char BenchDatabase[] = "kestro_bench_script";
constexpr std::size_t ScriptSize = 50U << 20;
constexpr std::size_t BatchLimit = 1U << 20;
constexpr int DefaultRounds = 5;

void execute(Connection& connection, const std::string& statement)
{
    Query query(connection);
    query << statement;
    query.execute();
}

void emptyTable()
{
    Connection connection("");
    execute(connection, std::string("CREATE DATABASE IF NOT EXISTS ") + BenchDatabase);
    connection.dbSelect(BenchDatabase);
    // MEMORY keeps the server's own work small.
    execute(connection, "SET max_heap_table_size=1073741824");
    execute(connection, "CREATE OR REPLACE TABLE line (id INT, text VARCHAR(200)) ENGINE=MEMORY");
}

std::string writeScript()
{
    std::string path = std::filesystem::temp_directory_path() / "kestro_bench_script.sql";
    std::ofstream script(path);
    const std::string filler(150, 'x');
    std::size_t size = 0;
    for (int id = 0; size < ScriptSize; ++id) {
        const std::string line =
            "INSERT INTO line VALUES (" + std::to_string(id) + ", '" + filler + "');\n";
        script << line;
        size += line.size();
    }
    return path;
}

std::uint64_t rows(Connection& connection)
{
    return static_cast<std::uint64_t>(QueryCount(connection, "SELECT COUNT(*) FROM line").count());
}

std::uint64_t raw(const std::string& path)
{
    emptyTable();
    const std::unique_ptr<MYSQL, decltype(&mysql_close)> link(mysql_init(nullptr), mysql_close);
    const auto check = [&link](bool success) {
        if (!success) {
            throw std::runtime_error(mysql_error(link.get()));
        }
    };
    check(mysql_real_connect(link.get(), nullptr, nullptr, nullptr, BenchDatabase, 0,
                             std::getenv("MYSQL_UNIX_PORT"), CLIENT_MULTI_STATEMENTS) != nullptr);
    // The whole file first, as QueryFile does, cut where QueryFile cuts it.
    std::string text(std::filesystem::file_size(path), '\0');
    std::ifstream(path).read(text.data(), static_cast<std::streamsize>(text.size()));
    for (std::size_t start = 0; start < text.size();) {
        std::size_t end = start;
        for (std::size_t block = start - start % 4096; end - start <= BatchLimit; block += 4096) {
            const std::size_t cut = text.find(";\n", block);
            end = block + 4096 < text.size() ? std::max(cut + 2, start) : text.size();
            if (end == text.size()) {
                break;
            }
        }
        check(mysql_real_query(link.get(), text.data() + start, end - start) == 0);
        while (mysql_more_results(link.get()) != 0) {
            check(mysql_next_result(link.get()) == 0);
        }
        start = end;
    }
    Connection connection(BenchDatabase);
    return rows(connection);
}

std::uint64_t kestro(const std::string& path)
{
    emptyTable();
    Connection connection(BenchDatabase);
    connection.enableMultipleStatementsPerQuery();
    QueryFile(connection, path).execute();
    return rows(connection);
}

} // namespace

int main(int argc, char** argv)
try {
    const int rounds = argc == 2 ? std::max(std::stoi(argv[1]), 1) : DefaultRounds;
    const std::string path = writeScript();
    std::printf("a script of %ju bytes, %d rounds; x: times the raw one\n",
                static_cast<std::uintmax_t>(std::filesystem::file_size(path)), rounds);
    bench::compare({{"raw-script", [&] { return raw(path); }},
                    {"kestro-script", [&] { return kestro(path); }}},
                   rounds);
    std::filesystem::remove(path);
} catch (const std::exception& failure) {
    std::fprintf(stderr, "script: %s\n", failure.what());
    return 1;
}
