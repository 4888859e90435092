// A record with two key columns and every kind of variable: int, long, std::string and a buffer.

#include <KestroTableMap>
#include <iostream>

using namespace Kestro;

namespace {

struct Reading : KYDBTableSimple {
    KYDBDatabase& database;
    int sensor = 0;
    long time = 0;
    std::string unit;
    char comment[16] = ""; // longer comments are cut to 15 characters when they are fetched

    explicit Reading(KYDBDatabase& handle) : database(handle) {}

protected:
    void dbmap_init() override
    {
        if (dbmap_size() == 0) {
            table_name("reading");
            DBDatabase(&database);
            m_dbmap.push_back("sensor", sensor, KYDB_FLAG_KEY | KYDB_FLAG_SAVE)
                .push_back("time", time, KYDB_FLAG_KEY | KYDB_FLAG_SAVE)
                .push_back("unit", unit, KYDB_FLAG_SAVE)
                .push_back("comment", comment, sizeof comment, KYDB_FLAG_SAVE);
        }
    }
};

} // namespace

int main()
try {
    KYDBDatabase database;
    database.selectDB("kestro_example");
    database.selectDB("kestro_example");
    database.execute("CREATE OR REPLACE TABLE reading (sensor INT, time BIGINT, unit VARCHAR(10), "
                     "comment VARCHAR(100), PRIMARY KEY (sensor, time))");
    database.execute("INSERT INTO reading VALUES (7, 1700000000000, 'mm', "
                     "'a comment that is too long for the buffer')");

    Reading reading(database);
    reading.sensor = 7;
    reading.time = 1700000000000;
    std::cout << reading.sql_keyvalues(KYDB_FLAG_KEY, " AND ") << '\n';
    KYDBRecordParser parser(reading);
    if (reading.get(&parser) == 0 && parser.found()) {
        reading.dump(std::cout);
    }
    std::cout << "removed: " << reading.remove() << '\n';
    database.DBConnection().dbDelete("kestro_example");
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
}
