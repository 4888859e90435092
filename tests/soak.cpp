// Random operations from many threads, with sessions killed under them, for as long as one likes:
//
//     ./dev server build/dev/tests/soak SECONDS [SEED]
//
// It fails if a call fails in a way that a killed session does not explain, if a row that was
// acknowledged is not there, or one too many is, if a link stays open, or if it hangs.

#include "Item.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <db_client.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <list>
#include <random>
#include <shared_mutex>
#include <thread>
#include <unistd.h>

using namespace Kestro;
using namespace Kestro::Database;

namespace {

constexpr char SoakDatabase[] = "kestro_soak";
constexpr int Threads = 8;
constexpr unsigned PoolSize = 4;
constexpr unsigned HangAfter = 60; // seconds behind the end

// The numbers of a result's first column, until there are enough.
struct Numbers : RowImpl {
    std::vector<long> all;
    std::size_t enough;

    explicit Numbers(std::size_t limit) : enough(limit) {}
    bool parse(void* connection, void* result, void* row) override
    {
        all.push_back(std::stol(std::string(column(connection, result, row, 0).value_or("-1"))));
        return all.size() < enough;
    }
};

// What all threads use. Borrowers hold poolUse shared; a reset has the pool for itself.
struct Shared {
    KYDBDatabase database;
    ConnectionPool pool{SoakDatabase, "", "", Connection::defaultAddress(), PoolSize};
    std::shared_mutex poolUse;
    std::atomic<bool> stop{false};
};

class Worker {
public:
    Worker(Shared& shared, int index, unsigned seed)
        : m_shared(shared), m_random(seed + static_cast<unsigned>(index)), m_next(index)
    {}

    void run()
    {
        Connection own(SoakDatabase);
        own.disconnect();
        const std::array<std::function<void()>, 12> operations = {
            [&] {
                own.disconnect();
                own.connect();
            },
            [&] {
                if (own.dbSelectIfExists("kestro_none")) {
                    fail("kestro_none exists");
                }
            },
            [&] { attempt(own, 0, [&] { QueryCount(own, "SELECT COUNT(*) FROM item"); }); },
            [&] {
                attempt(
                    own, 0, [&] { execute(own, "SELECT FROM WHERE"); }, 1064);
            },
            [&] { attempt(own, 0, [&] { streamAndStop(own); }); },
            [&] { attempt(own, 1, [&] { execute(own, insert(own)); }); },
            // The session may have ended by itself.
            [&] {
                attempt(
                    own, 0, [&] { killAnother(own); }, 1094);
            },
            [&] { attempt(own, 0, [&] { leaveSomething(own); }); },
            [&] { borrow(pick(4) == 0); },
            [&] { replaceBorrowed(); },
            [&] { runScript(own); },
            [&] { saveRecord(); },
        };
        while (!m_shared.stop) {
            try {
                if (own.state() != Connection::Connected) {
                    own.connect();
                    own.enableMultipleStatementsPerQuery();
                }
                operations[pick(operations.size())]();
            } catch (const DatabaseException& refused) { // killed while it was opened
                account(0, db_error_number(nullptr), refused.asString());
            }
            ++operationsDone;
        }
    }

    long operationsDone = 0;
    long acknowledged = 0; // rows, as the next
    long inDoubt = 0;
    long failures = 0; // explained ones
    bool wrong = false;

private:
    std::size_t pick(std::size_t count)
    {
        return std::uniform_int_distribution<std::size_t>(0, count - 1)(m_random);
    }
    void fail(const std::string& what)
    {
        std::fprintf(stderr, "wrong: %s\n", what.c_str());
        wrong = true;
    }
    // A save of this many rows has ended with this number, 0 for success.
    void account(long rows, int number, const std::string& text, int expected = 0)
    {
        if (number == 0) {
            acknowledged += rows;
        } else if (number == 2006) { // not sent
            ++failures;
        } else if (number == 2013 || number == 1927 || number == 1317) { // killed meanwhile
            ++failures;
            inDoubt += rows;
        } else if (number != expected) {
            fail(std::to_string(number) + ' ' + text);
        }
    }
    template <class Call>
    void attempt(Connection& connection, long rows, const Call& call, int expected = 0)
    {
        try {
            call();
            account(rows, 0, "");
        } catch (const Exception& failure) {
            account(rows, connection.errorNumber(), failure.asString(), expected);
        }
    }
    long nextNumber() { return m_next += Threads; }
    std::string insert(const Connection& connection)
    {
        return "INSERT INTO item VALUES (" + std::to_string(nextNumber()) + ", \"" +
               connection.escapeString("it's \"written\"") + "\")";
    }

    void streamAndStop(Connection& own)
    {
        Numbers numbers(pick(3000));
        OneRowParser parser(numbers);
        execute(own, "SELECT seq FROM seq_1_to_2000", &parser, false);
        for (std::size_t i = 0; i < numbers.all.size(); ++i) {
            if (numbers.all[i] != static_cast<long>(i) + 1) {
                fail("a row of a stream");
            }
        }
    }
    static void killAnother(Connection& own)
    {
        Numbers victim(1);
        OneRowParser parser(victim);
        execute(own,
                "SELECT id FROM information_schema.processlist WHERE db = DATABASE()"
                " AND id <> CONNECTION_ID() ORDER BY RAND() LIMIT 1",
                &parser);
        if (!victim.all.empty()) {
            execute(own, "KILL " + std::to_string(victim.all.front()));
        }
    }
    void leaveSomething(Connection& own)
    {
        static constexpr std::array<const char*, 4> Statements = {
            "SET @x = 1", "BEGIN", "CREATE OR REPLACE TEMPORARY TABLE t (id INT)",
            "DO GET_LOCK(CONCAT(CONNECTION_ID()), 0)"};
        execute(own, Statements[pick(Statements.size())]);
        execute(own, "COMMIT");
    }
    void borrow(bool wait)
    {
        const std::shared_lock use(m_shared.poolUse);
        const ConnectionPool::Lock lock = m_shared.pool.getConnection(wait);
        if (lock) {
            Connection& lent = lock.connection();
            attempt(lent, 1, [&] { execute(lent, insert(lent)); });
        }
    }
    void replaceBorrowed()
    {
        const std::unique_lock use(m_shared.poolUse);
        if (m_shared.pool.size() < PoolSize) { // a reset has failed
            m_shared.pool.growPool();
            return;
        }
        const ConnectionPool::Lock lock = m_shared.pool.getConnection(false);
        RefConnection bad = lock.ref();
        RefConnection good = m_shared.pool.reset(bad);
        const ConnectionPool::Lock loan(good, m_shared.pool, false);
        if (!loan || m_shared.pool.size() != PoolSize) {
            fail("a pool of another size");
        }
    }
    void runScript(Connection& own)
    {
        const std::filesystem::path path =
            std::filesystem::temp_directory_path() /
            ("kestro_soak." + std::to_string(getpid()) + '.' + std::to_string(nextNumber()));
        const long rows = 1 + static_cast<long>(pick(40));
        {
            std::ofstream file(path);
            for (long i = 0; i < rows; ++i) {
                file << insert(own) << ";\n";
            }
        }
        QueryFile script(own, path);
        std::filesystem::remove(path);
        attempt(own, rows, [&] { script.execute(); });
    }
    void saveRecord()
    {
        Item item(m_shared.database);
        item.number = nextNumber();
        const bool saved = item.save(true) == 0;
        account(1, saved ? 0 : item.get_error_number(), item.get_error_message());
    }

    Shared& m_shared;
    std::mt19937 m_random;
    long m_next;
};

// Every acknowledged row is there, and at most those in doubt besides. Every link is closed.
bool endIsValid(const std::list<Worker>& workers)
{
    long done = 0;
    long acknowledged = 0;
    long inDoubt = 0;
    long failures = 0;
    bool valid = true;
    for (const Worker& worker : workers) {
        done += worker.operationsDone;
        acknowledged += worker.acknowledged;
        inDoubt += worker.inDoubt;
        failures += worker.failures;
        valid &= !worker.wrong;
    }
    Connection connection(SoakDatabase);
    const long found = QueryCount(connection, "SELECT COUNT(*) FROM item").count();
    const long distinct = QueryCount(connection, "SELECT COUNT(DISTINCT number) FROM item").count();
    std::printf("%ld operations, %ld failed with their session; rows: %ld acknowledged, %ld in "
                "doubt, %ld found\n",
                done, failures, acknowledged, inDoubt, found);
    while (QueryCount(connection, "SELECT COUNT(*) FROM information_schema.processlist"
                                  " WHERE db = DATABASE() AND id <> CONNECTION_ID()")
               .count() != 0) {
    }
    return valid && done > 0 && found == distinct && found >= acknowledged &&
           found <= acknowledged + inDoubt;
}

} // namespace

int main(int argc, char** argv)
try {
    if (argc < 2) {
        std::fprintf(stderr, "usage: soak SECONDS [SEED]\n");
        return 2;
    }
    const auto seconds = static_cast<unsigned>(std::stoul(argv[1]));
    const unsigned seed =
        argc > 2 ? static_cast<unsigned>(std::stoul(argv[2])) : std::random_device()();
    std::printf("%u seconds, seed %u\n", seconds, seed);
    alarm(seconds + HangAfter);

    {
        Connection connection("");
        connection.dbCreate(SoakDatabase);
        connection.dbSelect(SoakDatabase);
        execute(connection, "CREATE TABLE item (number BIGINT, text VARCHAR(60))");
    }
    std::list<Worker> workers;
    {
        Shared shared;
        shared.database.selectDB(SoakDatabase);
        std::list<std::jthread> threads;
        for (int i = 0; i < Threads; ++i) {
            threads.emplace_back(&Worker::run, &workers.emplace_back(shared, i, seed));
        }
        std::this_thread::sleep_for(std::chrono::seconds(seconds));
        shared.stop = true;
    }
    return endIsValid(workers) ? 0 : 1;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "soak: %s\n", failure.what());
    return 1;
}
