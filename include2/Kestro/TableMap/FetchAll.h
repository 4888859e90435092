#pragma once

#include <Kestro/Database/RowContainer.h>
#include <Kestro/TableMap/KYDBTable.h>

#include <concepts>
#include <string>
#include <utility>
#include <vector>

namespace Kestro {

/// The classes that fetchAll() makes records of: derived from KYDBTableBase, movable, and
/// constructible from the handle or from nothing.
template <class T>
concept FetchableRecord = std::derived_from<T, KYDBTableBase> && std::move_constructible<T> &&
    (std::constructible_from<T, KYDBDatabase&> || std::default_initializable<T>);

namespace detail {

template <FetchableRecord Record> Record emptyRecord(KYDBDatabase& database)
{
    if constexpr (std::constructible_from<Record, KYDBDatabase&>) {
        return Record(database);
    } else {
        Record record;
        record.DBDatabase(&database);
        return record;
    }
}

template <FetchableRecord Record> class AllRecords : public Database::RowImpl {
public:
    explicit AllRecords(KYDBDatabase& database) : m_database(database) {}

    bool parse(void* connection, void* result, void* row) override
    {
        auto record = emptyRecord<Record>(m_database);
        (void)record.table_name(); // runs the hook
        DBRowResult fetched{connection, result, row};
        record.parse(&fetched);
        records.push_back(std::move(record)); // with an empty map, as every copy
        return true;
    }

    std::vector<Record> records;

private:
    KYDBDatabase& m_database;
};

} // namespace detail

/// All records of a class, or those for which a condition holds:
///
///     for (const User& user : fetchAll<User>(database, "id > 5 ORDER BY name LIMIT 10")) { ... }
///
/// `where` goes into the statement as it is, after WHERE: escape values from outside. If it is
/// empty there is no WHERE. Each record is a fresh one that is filled from its row: where a column
/// is NULL, a variable that is no std::optional keeps what the class gives it. The result is
/// transferred before the first record is made.
///
/// Threads: the handle may be shared; it is locked until the last record is made. Throws what
/// KYDBDatabase::execute() throws, DatabaseException with the server's text among it, and Exception
/// for a value that does not fit its variable, as KYDBKeyVarMap::parse() does.
template <FetchableRecord Record>
std::vector<Record> fetchAll(KYDBDatabase& database, const std::string& where = "")
{
    detail::AllRecords<Record> rows(database);
    Database::OneRowParser parser(rows);
    Database::Query query(database.DBConnection(), &parser);
    auto record = detail::emptyRecord<Record>(database);
    query << "SELECT " << record.sql_keys(KYDB_FLAG_ALL, "") << " FROM " << record.table_name();
    if (!where.empty()) {
        query << " WHERE " << where;
    }
    database.execute(query);
    return std::move(rows.records);
}

} // namespace Kestro
