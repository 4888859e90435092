// Fetches and saves the rows of tables through the classes that kestro-record wrote for them.
// records.h, written beside them, includes the classes and lists them in the tuple Records.
//
// usage: round_trip SOURCE COPY FILE: two databases, and a data file to write

#include "records.h"

#include <KestroDatabase>
#include <db_client.h>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <tuple>
#include <vector>

// Not a using directive: the records' names might be the library's.
namespace Kestro {

namespace {

// Reads every row into the same record, one after the other, and has each looked at.
class EachRow : public Database::RowParser {
public:
    EachRow(KYDBTableBase& record, const std::function<void()>& look)
        : m_record(record), m_look(look)
    {}

    void parse(void* connection, void* result) override
    {
        for (int index = 0;; ++index) {
            DBRowResult row{connection, result, db_result_fetch_row(result, index)};
            if (row.row == nullptr) {
                return;
            }
            m_record.parse(&row);
            m_look();
        }
    }

private:
    KYDBTableBase& m_record;
    const std::function<void()>& m_look;
};

struct Checksum : Database::RowImpl {
    std::string sum;

    bool parse(void* connection, void* result, void* row) override
    {
        sum = column(connection, result, row, 1).value_or("no such table");
        return true;
    }
};

using Copies = std::function<std::unique_ptr<KYDBTableSimple>()>;

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
        Record record(m_source);
        return comesBack(record, [&record] { return std::make_unique<Record>(record); });
    }

    bool comesBack(KYDBTableSimple& record, const Copies& copyOf)
    {
        m_table = record.table_name();
        run("CREATE TABLE " + m_copyName + '.' + m_table + " LIKE " + m_sourceName + '.' + m_table);

        const bool hasKey = !record.sql_keys(KYDB_FLAG_KEY, "").empty();
        int rows = 0;
        bool same = true;
        std::string lines;
        forEachRow(record, [&] {
            ++rows;
            same = (!hasKey || isFound(*copyOf())) && same;
            same =
                isDone(*copyOf(), [](KYDBTableSimple& copy) { return copy.save(false); }) && same;
            lines += record.sql_valuesforfile(KYDB_FLAG_SAVE);
        });
        same = (rows > 0 || wrong("there are no rows")) && same && isCopied("saved rows");
        if (same && record.sql_keys(KYDB_FLAG_SAVE, "") == loadableColumns()) {
            same = isLoaded(lines);
        }
        if (hasKey) {
            forEachRow(record, [&] {
                same =
                    isDone(*copyOf(), [](KYDBTableSimple& copy) { return copy.remove(); }) && same;
            });
            same =
                (count(m_copyName + '.' + m_table) == 0 || wrong("rows were not removed")) && same;
        }
        return same;
    }

    void forEachRow(KYDBTableBase& record, const std::function<void()>& look)
    {
        EachRow parser(record, look);
        run("SELECT " + record.sql_keys(KYDB_FLAG_ALL, "") + " FROM " + m_table, &parser);
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

    // In the database of the copies.
    bool isDone(KYDBTableSimple& record, int (*operation)(KYDBTableSimple&))
    {
        record.table_name(); // binds the record to the source first
        record.DBDatabase(&m_copy);
        return operation(record) == 0 || wrong(record.get_error_message());
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
