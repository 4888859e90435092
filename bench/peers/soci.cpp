// SOCI binds variables. Its MySQL backend writes them into the statement and stores every result.

#include "Item.h"
#include "Machine.h"
#include "Peer.h"
#include "RawLink.h"
#include "Record.h"

#include <list>
#include <soci/mysql/soci-mysql.h>
#include <soci/soci.h>
#include <stdexcept>

namespace bench {

namespace {

std::string login()
{
    return std::string("db=") + BenchDatabase + " user=" + account() + " unix_socket='" +
           serverSocket() + "'";
}

template <class Take> void fetchAll(int rows, const Take& take)
{
    soci::session session(soci::mysql, login());
    Record record;
    soci::statement statement =
        (session.prepare << selectRecords(rows), soci::into(record.id), soci::into(record.amount),
         soci::into(record.name), soci::into(record.text), soci::into(record.value));
    statement.execute();
    while (statement.fetch()) {
        take(record);
    }
}

std::uint64_t keptRows(int rows)
{
    std::list<Record> records;
    fetchAll(rows, [&records](const Record& record) { records.push_back(record); });
    std::uint64_t checksum = 0;
    for (const Record& record : records) {
        add(checksum, record);
    }
    return checksum;
}

std::uint64_t streamedRows(int rows)
{
    std::uint64_t checksum = 0;
    fetchAll(rows, [&checksum](const Record& record) { add(checksum, record); });
    return checksum;
}

std::uint64_t pointSelects(int selects)
{
    soci::session session(soci::mysql, login());
    Record record;
    int id = 0;
    soci::statement statement =
        (session.prepare << selectRecord(selects) + ":id", soci::use(id), soci::into(record.id),
         soci::into(record.amount), soci::into(record.name), soci::into(record.text),
         soci::into(record.value));
    std::uint64_t checksum = 0;
    for (id = 1; id <= selects; ++id) {
        statement.execute(true);
        add(checksum, record);
    }
    return checksum;
}

std::uint64_t upserts(int upserts)
{
    soci::session session(soci::mysql, login());
    Item item;
    soci::statement statement =
        (session.prepare << "INSERT INTO item SET id=:id,a=:a,b=:b,c=:c,d=:d,e=:e"
                            " ON DUPLICATE KEY UPDATE id=:id,a=:a,b=:b,c=:c,d=:d,e=:e",
         soci::use(item.id, "id"), soci::use(item.a, "a"), soci::use(item.b, "b"),
         soci::use(item.c, "c"), soci::use(item.d, "d"), soci::use(item.e, "e"));
    for (int number = 0; number < upserts; ++number) {
        item.turn(number, UpsertIds);
        statement.execute(true);
    }
    return 0;
}

struct OpenPool : soci::connection_pool {
    OpenPool() : soci::connection_pool(PoolSize)
    {
        for (std::size_t i = 0; i < PoolSize; ++i) {
            at(i).open(soci::mysql, login());
        }
    }
};

std::uint64_t loans(int number)
{
    OpenPool pool;
    const IdleThread other;
    for (int i = 0; i < number; ++i) {
        const soci::session session(pool);
    }
    return 0;
}

class Sessions : public Pool {
public:
    bool cycle() override
    {
        soci::session session(m_pool);
        int one = 0;
        session << CycleStatement, soci::into(one);
        if (one != 1) {
            throw std::runtime_error("a statement failed");
        }
        return true;
    }

private:
    OpenPool m_pool;
};

std::unique_ptr<Pool> pool()
{
    return std::make_unique<Sessions>();
}

const bool added =
    addPeer({"soci", keptRows, streamedRows, pointSelects, upserts, nullptr, loans, pool});

} // namespace

} // namespace bench
