// Poco Data binds variables to prepared statements. Rows arrive in containers or, with a limit, one
// at a time.

#include "Item.h"
#include "RawLink.h"
#include "Record.h"

#include <Poco/Data/DataException.h>
#include <Poco/Data/MySQL/Connector.h>
#include <Poco/Data/Session.h>
#include <Poco/Data/TypeHandler.h>
#include <list>

// How Poco Data reads an object; it prescribes the member names.
template <> class Poco::Data::TypeHandler<bench::Record> {
public:
    static std::size_t size() { return 5; }
    static void prepare(std::size_t position, const bench::Record& record,
                        const AbstractPreparator::Ptr& preparator)
    {
        TypeHandler<int>::prepare(position, record.id, preparator);
        TypeHandler<int>::prepare(position + 1, record.amount, preparator);
        TypeHandler<std::string>::prepare(position + 2, record.name, preparator);
        TypeHandler<std::string>::prepare(position + 3, record.text, preparator);
        TypeHandler<double>::prepare(position + 4, record.value, preparator);
    }
    static void extract(std::size_t position, bench::Record& record, const bench::Record& other,
                        const AbstractExtractor::Ptr& extractor)
    {
        TypeHandler<int>::extract(position, record.id, other.id, extractor);
        TypeHandler<int>::extract(position + 1, record.amount, other.amount, extractor);
        TypeHandler<std::string>::extract(position + 2, record.name, other.name, extractor);
        TypeHandler<std::string>::extract(position + 3, record.text, other.text, extractor);
        TypeHandler<double>::extract(position + 4, record.value, other.value, extractor);
    }
};

namespace bench {

namespace {

using namespace Poco::Data::Keywords;

std::string login()
{
    Poco::Data::MySQL::Connector::registerConnector();
    // For "localhost" it finds the socket as the raw client does.
    return "host=localhost;password=;user=" + account() + ";db=" + BenchDatabase;
}

Poco::Data::Session connect()
{
    return {"MySQL", login()};
}

std::uint64_t keptRows(int rows)
{
    Poco::Data::Session session = connect();
    std::list<Record> records;
    session << selectRecords(rows), into(records), now;
    std::uint64_t checksum = 0;
    for (const Record& record : records) {
        add(checksum, record);
    }
    return checksum;
}

std::uint64_t streamedRows(int rows)
{
    Poco::Data::Session session = connect();
    Record record;
    Poco::Data::Statement select = (session << selectRecords(rows), into(record), limit(1));
    std::uint64_t checksum = 0;
    while (!select.done()) {
        if (select.execute() > 0) {
            add(checksum, record);
        }
    }
    return checksum;
}

std::uint64_t pointSelects(int selects)
{
    Poco::Data::Session session = connect();
    Record record;
    int id = 0;
    Poco::Data::Statement select = (session << selectRecord(selects) + "?", use(id), into(record));
    std::uint64_t checksum = 0;
    for (id = 1; id <= selects; ++id) {
        select.execute();
        add(checksum, record);
    }
    return checksum;
}

std::uint64_t upserts(int upserts)
{
    Poco::Data::Session session = connect();
    Item item;
    Poco::Data::Statement upsert =
        (session << "INSERT INTO item SET id=?,a=?,b=?,c=?,d=?,e=? ON DUPLICATE KEY UPDATE"
                    " a=VALUES(a),b=VALUES(b),c=VALUES(c),d=VALUES(d),e=VALUES(e)",
         use(item.id), use(item.a), use(item.b), use(item.c), use(item.d), use(item.e));
    for (int number = 0; number < upserts; ++number) {
        item.turn(number, UpsertIds);
        upsert.execute();
    }
    return 0;
}

const bool registered =
    KeptRows.measure("poco", keptRows) && StreamedRows.measure("poco", streamedRows) &&
    PointSelects.measure("poco", pointSelects) && Upserts.measure("poco", upserts);

} // namespace

} // namespace bench
