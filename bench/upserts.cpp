// Rows of 6 columns are inserted, or updated where their key exists. Some of their texts must be
// escaped.

#include "Item.h"
#include "Measure.h"
#include "Peer.h"
#include "RawLink.h"

#include <KestroTableMap>
#include <stdexcept>

using namespace bench;
using namespace Kestro;

namespace {

constexpr int Upserts = 50'000;

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

std::uint64_t raw(int upserts)
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
            m_dbmap.push_back("id", item.id, KYDB_FLAG_KEY | KYDB_FLAG_SAVE)
                .push_back("a", item.a, KYDB_FLAG_SAVE)
                .push_back("b", item.b, KYDB_FLAG_SAVE)
                .push_back("c", item.c, KYDB_FLAG_SAVE)
                .push_back("d", item.d, KYDB_FLAG_SAVE)
                .push_back("e", item.e, KYDB_FLAG_SAVE);
        }
    }
};

std::uint64_t kestro(int upserts)
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

// MEMORY keeps the server's own work small.
void empty(int /*upserts*/)
{
    makeItems("MEMORY");
}

std::uint64_t written(int /*upserts*/)
{
    return sumOfItems();
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<Way> ways = {{"raw", raw}, {"kestro", kestro}};
    addPeerWays(ways, &Peer::upserts);
    Scenario scenario{"50,000 upserts of 6 columns", Upserts, ways, empty, written};
    scenario.oneProcessor = true;
    return run(argc, argv, {scenario});
}
