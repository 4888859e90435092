// Saves that fail and wrote nothing: the server chose them as the victim of a deadlock or, on a
// cluster, of a conflict with another node (1213), or the link was gone before they were sent
// (2006). The same save is right once more. Not so after 2013: look whether the row is there.

#include <KestroTableMap>
#include <iostream>
#include <numeric>
#include <thread>
#include <vector>

using namespace Kestro;

namespace {

constexpr int Deadlock = 1213;
constexpr int NotSent = 2006;
constexpr int MostAttempts = 20;

struct Counter : KYDBTableSimple {
    KYDBDatabase& database;
    std::string name;
    long value = 0;

    explicit Counter(KYDBDatabase& handle) : database(handle) {}

    int saveRepeatedly()
    {
        for (int attempt = 1;; ++attempt) {
            if (save(true) == 0) {
                return 0;
            }
            const bool repeatable = get_error_number() == Deadlock || get_error_number() == NotSent;
            if (!repeatable || attempt == MostAttempts) {
                return -1;
            }
        }
    }

protected:
    void dbmap_init() override
    {
        if (dbmap_size() == 0) {
            table_name("counter");
            DBDatabase(&database);
            m_dbmap.push_back("name", name, KYDB_FLAG_KEY | KYDB_FLAG_SAVE)
                .push_back("value", value, KYDB_FLAG_SAVE);
        }
    }
};

} // namespace

int main()
try {
    KYDBDatabase setUp;
    setUp.selectDB("kestro_example");
    setUp.selectDB("kestro_example");
    setUp.execute("CREATE OR REPLACE TABLE counter (name VARCHAR(20) PRIMARY KEY, value BIGINT)");
    // Threads with connections of their own write the same rows.
    std::vector<std::thread> threads;
    std::vector<int> failures(4, 0);
    for (int& own : failures) {
        threads.emplace_back([&own] {
            KYDBDatabase database;
            database.selectDB("kestro_example");
            for (long round = 0; round < 50; ++round) {
                Counter counter(database);
                counter.name = "row " + std::to_string(round % 3);
                counter.value = round;
                own += counter.saveRepeatedly() == 0 ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const int failed = std::accumulate(failures.begin(), failures.end(), 0);
    std::cout << failed << " saves failed\n";
    setUp.DBConnection().dbDelete("kestro_example");
    return failed == 0 ? 0 : 1;
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
}
