// Worker threads that share the connections of a pool: one job, one loan. Who finds none free may
// come back later; who has spoilt a connection's session replaces the connection.

#include <KestroDatabase>
#include <atomic>
#include <iostream>
#include <mutex>
#include <shared_mutex>
#include <thread>
#include <vector>

using namespace Kestro::Database;

namespace {

constexpr int Jobs = 40;
constexpr int NotSafe = 1231; // the session was changed: escaped values would not be safe

class Workers {
public:
    explicit Workers(ConnectionPool& pool) : m_pool(pool) {}

    void run()
    try {
        for (int job = ++m_last; job <= Jobs; job = ++m_last) {
            while (!done(job)) {
                ++m_postponed; // nothing was free for two seconds; something else could be done now
            }
        }
    } catch (const std::exception& e) {
        std::cerr << e.what() << '\n';
    }

    int postponed() const { return m_postponed; }

private:
    // Any number of threads may borrow and give back at once, but reset() wants the pool for
    // itself.
    bool done(int job)
    {
        std::shared_lock sharing(m_inUse);
        ConnectionPool::Lock loan = m_pool.getConnection(true);
        if (!loan) {
            return false;
        }
        if (job == Jobs / 2) {
            loan.connection().execute("SET SESSION sql_mode = 'ANSI_QUOTES'");
        }
        try {
            insert(loan.connection(), job);
        } catch (const DatabaseException& e) {
            if (e.errorNumber() != NotSafe) {
                throw;
            }
            sharing.unlock();
            doneOnFresh(loan.ref(), job);
            sharing.lock(); // for the return of the old loan, which changes nothing any more
        }
        return true;
    }

    void doneOnFresh(RefConnection spoilt, int job)
    {
        const std::unique_lock alone(m_inUse);
        RefConnection fresh = m_pool.reset(spoilt);
        const ConnectionPool::Lock loan(fresh, m_pool, false);
        std::cout << "connection " << fresh->id() << " in the place of another\n";
        insert(loan.connection(), job);
    }

    static void insert(Connection& connection, int job)
    {
        connection.execute("INSERT INTO job VALUES (" + literal(job) + ")");
    }

    ConnectionPool& m_pool;
    std::shared_mutex m_inUse;
    std::atomic<int> m_last = 0;
    std::atomic<int> m_postponed = 0;
};

} // namespace

int main()
try {
    Connection setUp("");
    setUp.dbCreate("kestro_example");
    setUp.dbSelect("kestro_example");
    setUp.execute("CREATE TABLE job (id INT PRIMARY KEY)");

    ConnectionPool pool("kestro_example", "", "", Connection::defaultAddress(), 2);
    {
        const ConnectionPool::Lock first = pool.getConnection(false);
        const ConnectionPool::Lock second = pool.getConnection(false);
        const ConnectionPool::Lock third = pool.getConnection(false);
        std::cout << (third ? "a third connection\n" : "both are on loan\n");
    }

    Workers workers(pool);
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&workers] { workers.run(); });
    }
    threads.clear(); // waits for them
    const std::int32_t done = QueryCount(setUp, "SELECT COUNT(*) FROM job").count();
    std::cout << done << " jobs done\n";
    if (workers.postponed() != 0) {
        std::cerr << workers.postponed() << " loans came to nothing\n";
    }
    setUp.dbDelete("kestro_example");
    return done == Jobs ? 0 : 1;
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
}
