// Fetches and saves the rows of tables through the classes that kestro-record wrote for them.
// records.h, written beside them, includes the classes and lists them in the tuple Records.
//
// usage: round_trip SOURCE COPY FILE: two databases, and a data file to write

#include "records.h"

#include <KestroDatabase>
#include <fstream>
#include <iostream>
#include <tuple>
#include <vector>

// Not a using directive: the records' names might be the library's.
namespace Kestro {

namespace {

struct Checksum : Database::RowImpl {
    std::string sum;

    bool parse(void* connection, void* result, void* row) override
    {
        sum = column(connection, result, row, 1).value_or("no such table");
        return true;
    }
};

class RoundTrip {
public:
    RoundTrip(const std::string& source, const std::string& copy, const std::string& file)
        : m_sourceName(source), m_copyName(copy), m_file(file)
    {
        m_source.selectDB(source);
        m_copy.selectDB(copy);
    }

    /// The number of tables that did not come back as they were.
    template <class... Record> int failures(const std::tuple<Record...>*)
    {
        return (!comesBack<Record>() + ... + 0);
    }

private:
    template <class Record> bool comesBack()
    {
        m_table = Record(m_source).table_name();
        std::vector<Record> fetched = fetchAll<Record>(m_source);
        std::vector<KYDBTableSimple*> records;
        for (Record& record : fetched) {
            (void)record.table_name(); // binds the record to the source before the copy
            records.push_back(&record);
        }
        return records.empty() ? wrong("there are no rows") : comesBack(records);
    }

    bool comesBack(const std::vector<KYDBTableSimple*>& records)
    {
        run("CREATE TABLE " + m_copyName + '.' + m_table + " LIKE " + m_sourceName + '.' + m_table);

        const bool hasKey = !records[0]->sql_keys(KYDB_FLAG_KEY, "").empty();
        bool same = true;
        std::string lines;
        for (KYDBTableSimple* record : records) {
            same = (!hasKey || isFound(*record)) && same;
            record->DBDatabase(&m_copy);
            same = (record->save(false) == 0 || wrong(record->get_error_message())) && same;
            lines += record->sql_valuesforfile(KYDB_FLAG_SAVE);
        }
        same = same && isCopied("saved rows");
        if (same && records[0]->sql_keys(KYDB_FLAG_SAVE, "") == loadableColumns()) {
            same = isLoaded(lines);
        }
        if (hasKey) {
            for (KYDBTableSimple* record : records) {
                same = (record->remove() == 0 || wrong(record->get_error_message())) && same;
            }
            same =
                (count(m_copyName + '.' + m_table) == 0 || wrong("rows were not removed")) && same;
        }
        return same;
    }

    bool isFound(KYDBTableSimple& record)
    {
        KYDBRecordParser parser(record);
        if (record.get(&parser) != 0) {
            return wrong(record.get_error_message());
        }
        const std::string condition = record.sql_keyvalues(KYDB_FLAG_KEY, " AND ");
        return (parser.found() && count(m_table + " WHERE " + condition) == 1) ||
               wrong("not one row has " + condition);
    }

    bool isLoaded(const std::string& lines)
    {
        std::ofstream(m_file, std::ios::binary) << lines;
        const std::string copy = m_copyName + '.' + m_table;
        run("DELETE FROM " + copy);
        run("LOAD DATA INFILE '" + m_file + "' INTO TABLE " + copy);
        return isCopied("rows of a data file");
    }

    bool isCopied(const std::string& what)
    {
        return checksum(m_sourceName) == checksum(m_copyName) || wrong(what + " differ");
    }

    std::string checksum(const std::string& database)
    {
        Checksum found;
        Database::OneRowParser parser(found);
        run("CHECKSUM TABLE " + database + '.' + m_table + " EXTENDED", &parser);
        return found.sum;
    }

    // As sql_keys() lists them; of a BIT, a data file has the bytes and not the number.
    std::string loadableColumns()
    {
        std::string names;
        for (const auto& field :
             Database::QueryDescribeTable(m_source.DBConnection(), m_table).fields()) {
            if (!field.type.starts_with("bit")) {
                names += (names.empty() ? "`" : ",`") + field.name + '`';
            }
        }
        return names;
    }

    int count(const std::string& rows)
    {
        return Database::QueryCount(m_source.DBConnection(), "SELECT COUNT(*) FROM " + rows)
            .count();
    }

    void run(const std::string& statement, Database::RowParser* parser = nullptr)
    {
        Database::Query query(m_source.DBConnection(), parser);
        query << statement;
        query.execute();
    }

    bool wrong(const std::string& what) const
    {
        constexpr std::size_t Most = 1000;
        std::cerr << m_table << ": " << what.substr(0, Most) << '\n';
        return false;
    }

    KYDBDatabase m_source;
    KYDBDatabase m_copy;
    std::string m_sourceName;
    std::string m_copyName;
    std::string m_file;
    std::string m_table;
};

} // namespace

} // namespace Kestro

int main(int argc, char** argv)
try {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    Kestro::RoundTrip tables(arguments.at(0), arguments.at(1), arguments.at(2));
    const int failures = tables.failures(static_cast<const Records*>(nullptr));
    std::cout << std::tuple_size_v<Records> << " tables, " << failures << " failures\n";
    return failures == 0 ? 0 : 1;
} catch (const Kestro::Exception& e) {
    std::cerr << e.stringParameter() << '\n';
    return 1;
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
}
