// Items are written: inserted or updated one by one, or written into a data file, which the
// server's bulk loader reads.

#include "Item.h"
#include "RawLink.h"

#include <KestroDatabase>
#include <KestroTableMap>
#include <cstdio>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

using namespace bench;
using namespace Kestro;

namespace {

void appendText(std::string& statement, const RawLink& link, const std::string& text)
{
    const std::size_t start = statement.size();
    statement += '"';
    statement.resize(start + 1 + 2 * text.size() + 1);
    const unsigned long length = mysql_real_escape_string(link.get(), statement.data() + start + 1,
                                                          text.data(), text.size());
    statement.resize(start + 1 + length);
    statement += '"';
}

std::uint64_t rawUpserts(int upserts)
{
    const RawLink link;
    Item item;
    std::string assignments;
    for (int number = 0; number < upserts; ++number) {
        item.turn(number, UpsertIds);
        assignments = "id=" + std::to_string(item.id) + ",a=";
        appendText(assignments, link, item.a);
        assignments += ",b=";
        appendText(assignments, link, item.b);
        assignments += ",c=";
        appendText(assignments, link, item.c);
        assignments += ",d=" + std::to_string(item.d) + ",e=";
        appendText(assignments, link, item.e);
        link.run("INSERT INTO item SET " + assignments + " ON DUPLICATE KEY UPDATE " + assignments);
    }
    return 0;
}

void bind(KYDBKeyVarMap& columns, Item& item)
{
    columns.push_back("id", item.id, KYDB_FLAG_KEY | KYDB_FLAG_SAVE)
        .push_back("a", item.a, KYDB_FLAG_SAVE)
        .push_back("b", item.b, KYDB_FLAG_SAVE)
        .push_back("c", item.c, KYDB_FLAG_SAVE)
        .push_back("d", item.d, KYDB_FLAG_SAVE)
        .push_back("e", item.e, KYDB_FLAG_SAVE);
}

struct ItemRecord : KYDBTableSimple {
    Item item;

    explicit ItemRecord(KYDBDatabase& database)
    {
        table_name("item");
        DBDatabase(&database);
    }

protected:
    void dbmap_init() override
    {
        if (dbmap_size() == 0) {
            bind(m_dbmap, item);
        }
    }
};

std::uint64_t upserts(int upserts)
{
    KYDBDatabase database;
    database.selectDB(BenchDatabase);
    ItemRecord record(database);
    for (int number = 0; number < upserts; ++number) {
        record.item.turn(number, UpsertIds);
        if (record.save(true) != 0) {
            throw std::runtime_error(record.get_error_message());
        }
    }
    return 0;
}

// Items become rows of an empty table.
constexpr Scenario LoadData{"load_data", 500'000, [](int /*size*/) { makeItems("MyISAM"); },
                            sumOfItems};

std::string dataFile()
{
    return besideServer("load.txt");
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

std::uint64_t rawLoadData(int rows)
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

std::uint64_t loadData(int rows)
{
    Item item;
    KYDBKeyVarMap columns;
    bind(columns, item);
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

const bool registered = Upserts.measure("raw", rawUpserts) && Upserts.measure("kestro", upserts) &&
                        LoadData.measure("raw", rawLoadData) &&
                        LoadData.measure("kestro", loadData);

} // namespace
