// Fetches the rows of tables through the classes that kestro-record wrote for them, and saves them
// into copies of the tables. records.h, written for this program, includes the classes and lists
// them in the tuple Records. The databases are called source and copy.

#include "records.h"

#include <KestroDatabase>
#include <iostream>
#include <stdexcept>
#include <tuple>

// Not a using directive: the records' names might be the library's.
namespace Kestro {

template <class Record> void send(KYDBDatabase& source, KYDBDatabase& copy)
{
    const std::string table = Record(source).table_name();
    copy.DBConnection().execute("CREATE TABLE " + table + " LIKE source." + table);
    for (Record& record : fetchAll<Record>(source)) {
        const std::string key = record.sql_keyvalues(KYDB_FLAG_KEY, " AND ");
        if (!key.empty() &&
            Database::scalar<int>(source.DBConnection(),
                                  "SELECT COUNT(*) FROM " + table + " WHERE " + key) != 1) {
            throw std::runtime_error(table + ": not one row has " + key);
        }
        record.DBDatabase(&copy);
        if (record.save(false) != 0) {
            throw std::runtime_error(table + ": " + record.get_error_message());
        }
    }
}

} // namespace Kestro

int main()
try {
    Kestro::KYDBDatabase source;
    Kestro::KYDBDatabase copy;
    source.selectDB("source");
    copy.selectDB("copy");
    const auto sendAll = [&]<class... Record>(const std::tuple<Record...>*) {
        (Kestro::send<Record>(source, copy), ...);
    };
    sendAll(static_cast<const Records*>(nullptr));
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
}
