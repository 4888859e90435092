#include "Item.h"
#include "Proxy.h"
#include "ServerTest.h"

#include <atomic>
#include <functional>
#include <thread>

namespace {

using namespace Kestro::Database;

struct Transactions : ServerTest {
    Connection connection{database};

    Transactions() { connection.execute("CREATE TABLE t (v INT PRIMARY KEY)"); }
    void insert(int value) { connection.execute("INSERT INTO t VALUES (" + literal(value) + ")"); }
    // What another session sees.
    std::string rows() { return value("SELECT GROUP_CONCAT(v ORDER BY v) FROM t"); }
    void end() { kill(scalar<std::string>(connection, "SELECT CONNECTION_ID()")); }
};

TEST_F(Transactions, AreRolledBackUnlessCommitted)
{
    const std::string refused = "DatabaseException (4) at Transaction:";
    const auto begin = [&] { const Transaction second(connection); };
    Transaction committed(connection);
    insert(1);
    EXPECT_EQ(failureOf(begin), refused + "4: a transaction is open on this connection already");
    EXPECT_THROW(insert(1), DatabaseException); // the transaction goes on
    committed.commit();
    EXPECT_EQ(failureOf([&] { committed.commit(); }),
              refused + "1: the transaction has ended already");
    {
        const Transaction left(connection);
        insert(2);
    }
    Transaction rolledBack(connection);
    insert(3);
    rolledBack.rollback();
    EXPECT_THROW(rolledBack.rollback(), DatabaseException);
    insert(4);
    connection.execute("BEGIN");
    insert(5);
    EXPECT_EQ(failureOf(begin),
              refused + "4: the session is in a transaction already, which a statement began");
    connection.execute("COMMIT");
    EXPECT_EQ(rows(), "1,4,5");
}

TEST_F(Transactions, AreNotCommittedOnceLost)
{
    run("CREATE FUNCTION ending() RETURNS INT BEGIN KILL CONNECTION_ID(); RETURN 1; END");
    const Table<std::string, int, std::function<void()>> losses = {
        {"before the commit", 2006, [&] { end(); }},
        {"before a statement", 2006,
         [&] {
             end();
             EXPECT_THROW(insert(2), DatabaseException);
             // A new session does not run the next one.
             EXPECT_EQ(exceptionOf([&] { insert(3); }).errorNumber(), 2006);
         }},
        {"while rows are streamed", 1927,
         [&] {
             NoopRowImpl row;
             OneRowParser parser(row);
             Query query(connection, "SELECT ending()", &parser, false);
             EXPECT_THROW(query.execute(), Kestro::Exception);
         }},
        {"closed", 2006, [&] { connection.dbSelect(database); }},
        {"in a deadlock", 1213, [&] {
             run("BEGIN");
             // The server ends the transaction that has changed fewer rows.
             run("INSERT INTO t VALUES (10),(11),(12)");
             std::jthread other([&] { run("SELECT * FROM t WHERE v=1 FOR UPDATE"); });
             Connection watcher("");
             while (scalar<int>(watcher,
                                "SELECT variable_value FROM information_schema.global_status "
                                "WHERE variable_name='Innodb_row_lock_current_waits'") == 0) {
             }
             EXPECT_THROW(insert(10), DatabaseException);
             other.join();
             run("ROLLBACK");
         }}};
    for (const auto& [name, number, lose] : losses) {
        SCOPED_TRACE(name);
        Transaction transaction(connection);
        insert(1);
        lose();
        const DatabaseException e = exceptionOf([&] { transaction.commit(); });
        EXPECT_EQ(e.asString(), "DatabaseException (4) at Transaction:2: the transaction was lost "
                                "before it was committed: nothing of it is saved");
        EXPECT_EQ(e.errorNumber(), number);
    }
    Transaction lostUnnoticed(connection);
    end();
    lostUnnoticed.rollback();
    insert(7);
    EXPECT_EQ(rows(), "7");
}

TEST_F(Transactions, AreInDoubtWhenTheCommitHasNoAnswer)
{
    Proxy proxy;
    Connection through(database);
    Transaction transaction(through);
    through.execute("INSERT INTO t VALUES (1)");
    proxy.left = 0;
    const DatabaseException e = exceptionOf([&] { transaction.commit(); });
    EXPECT_EQ(e.errorNumber(), 2013);
    EXPECT_EQ(e.lineNumber(), 3U);
    EXPECT_EQ(rows(), "1");
}

TEST_F(Transactions, OfASharedHandleAreNoOtherThreads)
{
    Kestro::KYDBDatabase handle;
    handle.selectDB(database);
    std::atomic<int> begun{0};
    std::jthread other([&] {
        for (int i = 1; i <= 50; ++i) {
            while (begun < i) {
            }
            EXPECT_EQ(handle.Query("INSERT INTO t VALUES (" + literal(i) + ")", nullptr), 0);
        }
    });
    for (int i = 1; i <= 50; ++i) {
        Kestro::KYDBTransaction transaction(handle);
        EXPECT_THROW(const Kestro::KYDBTransaction second(handle), DatabaseException);
        ++begun;
        EXPECT_EQ(handle.Query("INSERT INTO t VALUES (" + literal(-i) + ")", nullptr), 0);
        if (i % 2 == 0) {
            transaction.commit();
        }
    }
    other.join();
    EXPECT_EQ(value("SELECT CONCAT(SUM(v > 0), ' ', SUM(v < 0)) FROM t"), "50 25");
    handle.DBConnection().disconnect();
    Kestro::KYDBTransaction(handle).rollback(); // opens the connection again
}

} // namespace
