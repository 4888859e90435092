// A script of one INSERT per line is run in three ways: in batches of about 1 MiB; cut into its
// statements, which are joined to shorter strings; or by the server's own command-line client,
// statement by statement.

#include "Measure.h"
#include "RawLink.h"

#include <KestroDatabase>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

using namespace bench;
using namespace Kestro::Database;

namespace {

std::string scriptFile()
{
    return besideServer("script.sql");
}

void prepare(int statements)
{
    const RawLink link;
    // MEMORY keeps the server's own work small.
    link.run("SET max_heap_table_size=1073741824");
    link.run("CREATE OR REPLACE TABLE line (id INT, text VARCHAR(200) CHARACTER SET latin1)"
             " ENGINE=MEMORY");
    std::ofstream script(scriptFile());
    const std::string filler(150, 'x');
    for (int id = 0; id < statements; ++id) {
        script << "INSERT INTO line VALUES (" << id << ", '" << filler << "');\n";
    }
}

std::uint64_t written()
{
    return std::stoull(RawLink().value("SELECT COUNT(*) + SUM(id) * 7 FROM line"));
}

constexpr Scenario RunScript{"script", 300'000, prepare, written};

std::uint64_t raw(int /*statements*/)
{
    constexpr std::size_t Batch = 1U << 20;
    const RawLink link(CLIENT_MULTI_STATEMENTS);
    std::string script(std::filesystem::file_size(scriptFile()), '\0');
    std::ifstream(scriptFile()).read(script.data(), static_cast<std::streamsize>(script.size()));
    for (std::string_view rest = script; !rest.empty();) {
        const std::string_view batch = rest.substr(0, rest.rfind(";\n", Batch) + 2);
        link.run(batch);
        while (mysql_more_results(link.get()) != 0) {
            link.check(mysql_next_result(link.get()) == 0);
        }
        rest.remove_prefix(batch.size());
    }
    return 0;
}

std::uint64_t queryFile(int /*statements*/)
{
    Connection connection(BenchDatabase);
    connection.enableMultipleStatementsPerQuery();
    QueryFile(connection, scriptFile()).execute();
    return 0;
}

std::uint64_t script(int /*statements*/)
{
    Connection connection(BenchDatabase);
    Script(scriptFile(), connection).execute();
    return 0;
}

std::uint64_t commandLine(int /*statements*/)
{
    const std::string command =
        std::string("mariadb --no-defaults ") + BenchDatabase + " < '" + scriptFile() + "'";
    if (std::system(command.c_str()) != 0) { // NOLINT(*-env33-c): as its users run it
        throw std::runtime_error("mariadb failed");
    }
    return 0;
}

const bool registered =
    RunScript.measure("raw", raw) && RunScript.measure("QueryFile", queryFile) &&
    RunScript.measure("Script", script) && RunScript.measure("mariadb", commandLine);

} // namespace
