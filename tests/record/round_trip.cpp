// Fetches and saves the rows of tables through the classes that kestro-record wrote for them.
// records.h, written beside them, includes the classes and lists them in the tuple Records.
//
// usage: round_trip SOURCE COPY FILE: two databases, and a data file to write

#include "records.h"

#include <KestroDatabase>
#include <db_client.h>
#include <fstream>
#include <iostream>
#include <tuple>
#include <vector>

// Not a using directive: the records' names might be the library's.
namespace Kestro {

namespace {

// Every row, read one after the other into the same record, and a copy of it kept.
template <class Record> struct Rows : Database::RowParser {
    Record record;
    std::vector<Record> rows;

    explicit Rows(KYDBDatabase& database) : record(database) {}

    void parse(void* connection, void* result) override
    {
        for (int index = 0;; ++index) {
            DBRowResult row{connection, result, db_result_fetch_row(result, index)};
            if (row.row == nullptr) {
                return;
            }
            record.parse(&row);
            rows.push_back(record);
        }
    }
};

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
        Rows<Record> all(m_source);
        m_table = all.record.table_name();
        run("CREATE TABLE " + m_copyName + '.' + m_table + " LIKE " + m_sourceName + '.' + m_table,
            nullptr);
        run("SELECT " + all.record.sql_keys(KYDB_FLAG_ALL, "") + " FROM " + m_table, &all);

        bool same = !all.rows.empty() || wrong("there are no rows");
        for (Record& row : all.rows) {
            same = (!hasKey(row) || isFound(row)) && same;
            row.DBDatabase(&m_copy);
            same = (row.save(false) == 0 || wrong(row.get_error_message())) && same;
        }
        same = same && isCopied("saved rows");
        if (same && all.record.sql_keys(KYDB_FLAG_SAVE, "") == loadableColumns()) {
            same = isLoaded(all.rows);
        }
        for (Record& row : all.rows) {
            same = (!hasKey(row) || row.remove() == 0 || wrong(row.get_error_message())) && same;
        }
        if (hasKey(all.record)) {
            same =
                (count(m_copyName + '.' + m_table) == 0 || wrong("rows were not removed")) && same;
        }
        return same;
    }

    static bool hasKey(KYDBTableBase& record)
    {
        return !record.sql_keys(KYDB_FLAG_KEY, "").empty();
    }

    template <class Record> bool isFound(const Record& row)
    {
        Record found(row);
        KYDBRecordParser parser(found);
        if (found.get(&parser) != 0) {
            return wrong(found.get_error_message());
        }
        const std::string condition = found.sql_keyvalues(KYDB_FLAG_KEY, " AND ");
        return (parser.found() && count(m_table + " WHERE " + condition) == 1) ||
               wrong("not one row has " + condition);
    }

    template <class Record> bool isLoaded(std::vector<Record>& rows)
    {
        std::ofstream file(m_file, std::ios::binary);
        for (Record& row : rows) {
            row.sql_valuesforfile(file, KYDB_FLAG_SAVE);
        }
        file.close();
        const std::string copy = m_copyName + '.' + m_table;
        run("DELETE FROM " + copy, nullptr);
        run("LOAD DATA INFILE '" + m_file + "' INTO TABLE " + copy, nullptr);
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

    void run(const std::string& statement, Database::RowParser* parser)
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
