// Rows are written from variables into a data file, which the server's bulk loader reads, or are
// inserted by statements of many rows. With one statement per row, round trips would be most of the
// work.

#include "Item.h"
#include "Measure.h"
#include "Peer.h"
#include "RawLink.h"

#include <KestroDatabase>
#include <KestroTableMap>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

using namespace bench;
using namespace Kestro;

namespace {

constexpr int Rows = 500'000;

std::string dataFile()
{
    return std::filesystem::temp_directory_path() / "kestro_bench_load.txt";
}

void appendField(std::string& line, const std::string& text)
{
    for (const char byte : text) {
        switch (byte) {
        case '\t':
            line += "\\t";
            break;
        case '\n':
            line += "\\n";
            break;
        case '\0':
            line += "\\0";
            break;
        case '\\':
            line += "\\\\";
            break;
        default:
            line += byte;
        }
    }
    line += '\t';
}

std::uint64_t raw(int rows)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(dataFile().c_str(), "w"),
                                                               std::fclose);
    bool complete = file != nullptr;
    Item item;
    std::string line;
    for (int number = 0; complete && number < rows; ++number) {
        item.turn(number, rows);
        line = std::to_string(item.id) + '\t';
        appendField(line, item.a);
        appendField(line, item.b);
        appendField(line, item.c);
        line += std::to_string(item.d) + '\t';
        appendField(line, item.e);
        line.back() = '\n';
        complete = std::fwrite(line.data(), line.size(), 1, file.get()) == 1;
    }
    if (!complete || std::fflush(file.get()) != 0) {
        throw std::runtime_error("cannot write " + dataFile());
    }
    const RawLink link;
    link.run("DELETE FROM item");
    link.run("LOAD DATA INFILE '" + dataFile() + "' REPLACE INTO TABLE item CHARACTER SET utf8mb4");
    return 0;
}

std::uint64_t kestro(int rows)
{
    Item item;
    KYDBKeyVarMap columns;
    columns.push_back("id", item.id, KYDB_FLAG_SAVE)
        .push_back("a", item.a, KYDB_FLAG_SAVE)
        .push_back("b", item.b, KYDB_FLAG_SAVE)
        .push_back("c", item.c, KYDB_FLAG_SAVE)
        .push_back("d", item.d, KYDB_FLAG_SAVE)
        .push_back("e", item.e, KYDB_FLAG_SAVE);
    std::ofstream file(dataFile());
    for (int number = 0; number < rows; ++number) {
        item.turn(number, rows);
        columns.valuesforfile(file, KYDB_FLAG_SAVE);
    }
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + dataFile());
    }
    Database::Connection connection("");
    Database::QueryLoadData(connection, BenchDatabase, "item", dataFile());
    return 0;
}

void empty(int /*rows*/)
{
    makeItems("MyISAM");
}

std::uint64_t written(int /*rows*/)
{
    std::filesystem::remove(dataFile());
    return sumOfItems();
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<Way> ways = {{"raw", raw}, {"kestro", kestro}};
    addPeerWays(ways, &Peer::insertedRows);
    return run(argc, argv,
               {{"500,000 rows from variables into a table", Rows, ways, empty, written}});
}
