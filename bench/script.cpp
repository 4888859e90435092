// A script of 50 MiB with one INSERT per line is run: in batches of about 1 MiB, cut into its
// statements and joined again, or by the server's own command-line client, which sends statement by
// statement.

#include "Measure.h"
#include "RawLink.h"

#include <KestroDatabase>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

using namespace bench;
using namespace Kestro::Database;

namespace {

constexpr int MiB = 50;
constexpr std::size_t BatchLimit = 1U << 20;
constexpr std::size_t BlockSize = 4096;

std::string scriptFile()
{
    return std::filesystem::temp_directory_path() / "kestro_bench_script.sql";
}

std::uint64_t raw(int /*size*/)
{
    const RawLink link(CLIENT_MULTI_STATEMENTS);
    // Like QueryFile, reads the whole file first, and cuts it at the same places.
    std::string text(std::filesystem::file_size(scriptFile()), '\0');
    std::ifstream(scriptFile()).read(text.data(), static_cast<std::streamsize>(text.size()));
    for (std::size_t start = 0; start < text.size();) {
        std::size_t end = start;
        for (std::size_t block = start - start % BlockSize; end - start <= BatchLimit;
             block += BlockSize) {
            const std::size_t cut = text.find(";\n", block);
            end = block + BlockSize < text.size() ? std::max(cut + 2, start) : text.size();
            if (end == text.size()) {
                break;
            }
        }
        link.run({text.data() + start, end - start});
        while (mysql_more_results(link.get()) != 0) {
            link.check(mysql_next_result(link.get()) == 0);
        }
        start = end;
    }
    return 0;
}

std::uint64_t kestro(int /*size*/)
{
    Connection connection(BenchDatabase);
    connection.enableMultipleStatementsPerQuery();
    QueryFile(connection, scriptFile()).execute();
    return 0;
}

// Statement by statement, as the command-line client reads them, and joined again.
std::uint64_t kestroScript(int /*size*/)
{
    Connection connection(BenchDatabase);
    Script(scriptFile(), connection).execute();
    return 0;
}

std::uint64_t commandLine(int /*size*/)
{
    const std::string command =
        std::string("mariadb --no-defaults ") + BenchDatabase + " < '" + scriptFile() + "'";
    if (std::system(command.c_str()) != 0) { // NOLINT(*-env33-c): as its users run it
        throw std::runtime_error("mariadb failed");
    }
    return 0;
}

void prepare(int size)
{
    const RawLink link;
    // MEMORY keeps the server's own work small.
    link.run("SET max_heap_table_size=1073741824");
    link.run("CREATE OR REPLACE TABLE line (id INT, text VARCHAR(200)) ENGINE=MEMORY");
    std::ofstream script(scriptFile());
    const std::string filler(150, 'x');
    std::size_t written = 0;
    for (int id = 0; written < static_cast<std::size_t>(size) << 20; ++id) {
        const std::string line =
            "INSERT INTO line VALUES (" + std::to_string(id) + ", '" + filler + "');\n";
        script << line;
        written += line.size();
    }
}

std::uint64_t written(int /*size*/)
{
    std::filesystem::remove(scriptFile());
    return std::stoull(RawLink().value("SELECT COUNT(*) + SUM(id) * 7 FROM line"));
}

} // namespace

int main(int argc, char** argv)
{
    return run(argc, argv,
               {{"A script of 50 MiB, one INSERT a line",
                 MiB,
                 {{"raw", raw},
                  {"kestro", kestro},
                  {"kestro-script", kestroScript},
                  {"mariadb", commandLine}},
                 prepare,
                 written}});
}
