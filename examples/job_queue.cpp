// A queue of jobs in a table, worked off by threads that share a pool of connections. A worker
// takes a job and does it in one transaction: if it fails half-way, the job is free again.

#include <KestroDatabase>
#include <atomic>
#include <iostream>
#include <optional>
#include <thread>
#include <vector>

using namespace Kestro::Database;

namespace {

constexpr int Jobs = 60;
constexpr int Deadlock = 1213;

// Whether there was a job to do.
bool doOne(Connection& connection, std::atomic<int>& failures)
{
    Transaction transaction(connection);
    const auto job = scalar<std::optional<std::int64_t>>(
        connection, "SELECT (SELECT id FROM job WHERE done IS NULL ORDER BY id LIMIT 1 "
                    "FOR UPDATE SKIP LOCKED)");
    if (!job) {
        return false;
    }
    connection.execute("UPDATE account SET jobs = jobs + 1 WHERE id = " + literal(*job % 3));
    if (*job % 20 == 0 && failures++ < 3) {
        throw std::runtime_error("job " + std::to_string(*job) + " fails the first time");
    }
    connection.execute("UPDATE job SET done = NOW() WHERE id = " + literal(*job));
    transaction.commit();
    return true;
}

void work(ConnectionPool& pool, std::atomic<int>& failures)
{
    for (bool found = true; found;) {
        ConnectionPool::Lock loan = pool.getConnection(true);
        try {
            found = doOne(loan.connection(), failures);
        } catch (const DatabaseException& e) { // without a loan too: its text says so
            if (e.errorNumber() != Deadlock) {
                std::cerr << e.what() << '\n';
                return;
            }
        } catch (const std::runtime_error&) {
        } // rolled back, and done by whoever is next
    }
}

} // namespace

int main()
try {
    Connection connection("");
    connection.dbCreate("kestro_example");
    connection.dbSelect("kestro_example");
    connection.execute("CREATE TABLE account (id INT PRIMARY KEY, jobs INT NOT NULL DEFAULT 0)");
    connection.execute("INSERT INTO account (id) VALUES (0), (1), (2)");
    connection.execute("CREATE TABLE job (id INT PRIMARY KEY, done DATETIME)");
    connection.execute("INSERT INTO job (id) SELECT seq FROM seq_1_to_" + std::to_string(Jobs));

    ConnectionPool pool("kestro_example", "", "", Connection::defaultAddress(), 2);
    std::atomic<int> failures = 0;
    {
        std::vector<std::jthread> workers;
        for (int i = 0; i < 4; ++i) {
            workers.emplace_back([&] { work(pool, failures); });
        }
    }
    const auto done = scalar<int>(connection, "SELECT COUNT(done) FROM job");
    const auto counted = scalar<int>(connection, "SELECT SUM(jobs) FROM account");
    std::cout << done << " jobs done, " << counted << " counted\n";
    connection.dbDelete("kestro_example");
    return done == Jobs && counted == Jobs ? 0 : 1;
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
}
