#include "ScriptedClient.h"
#include "Testing.h"

#include <Kestro/Database/ConnectionPool.h>
#include <functional>
#include <optional>

using Kestro::SocketAddress;
using namespace Kestro::Database;
using Lock = ConnectionPool::Lock;

namespace {

// Called in each pause of a caller who waits.
std::function<void()> inPause;

class Pool : public testing::Test {
protected:
    const SocketAddress address{Kestro::IPAddress("127.0.0.1"), 3306};
    int pauses = 0;

    Pool()
    {
        client = {};
        inPause = [this] { ++pauses; };
    }
    ~Pool() override { EXPECT_EQ(client.open, 0) << "connections left open"; }

    // 0 for an empty loan.
    static int lentId(const Lock& lock) { return lock ? lock.ref()->id() : 0; }
};

TEST_F(Pool, AWaitingCallerLooksTwentyTimes)
{
    ConnectionPool pool("one", "", "", address, 1);
    std::optional<Lock> holder(std::in_place, pool, false);
    *holder = pool.getConnection(false);
    EXPECT_EQ(lentId(pool.getConnection(false)), 0);
    EXPECT_EQ(pauses, 0);
    Lock none(pool, true);
    none = pool.getConnection(true);
    EXPECT_EQ(pauses, 20);
    EXPECT_EQ(failureOf([&] { none.connection(); }),
              "operator-> (1) at include2/KestroRefcounted:359: "
              "the pool had no connection to lend, waited for 2000 ms");
    inPause = [&] {
        if (++pauses == 39) {
            holder.reset();
        }
    };
    EXPECT_EQ(lentId(pool.getConnection(true)), 1);
    EXPECT_EQ(pauses, 39);
}

TEST_F(Pool, OpensTwentyFiveAtMostAndAllOrNone)
{
    ConnectionPool pool("one", "", "", address, 30);
    EXPECT_EQ(pool.size(), 25U);
    EXPECT_EQ(lentId(pool.growPool()), 26);

    client.calls.clear();
    client.connects = {true, true, false};
    client.error = "no more";
    EXPECT_EQ(
        failureOf([&] { ConnectionPool("two", "", "", address, 4); }),
        "Database::ConnectionPool (4) at ConnectionPool:93 <- DatabaseException (0): no more");
    EXPECT_EQ(client.calls, (std::vector<std::string>{"connect two", "connect two", "connect two",
                                                      "disconnect", "disconnect"}));
}

TEST_F(Pool, ResetReplacesTheConnectionOfTheSameId)
{
    ConnectionPool pool("one", "", "", address, 2);
    {
        const Lock first = pool.getConnection(false);
        RefConnection renewed;
        {
            const Lock second = pool.getConnection(false);
            RefConnection replaced = second.ref();
            renewed = pool.reset(replaced);
            EXPECT_FALSE(pool.reset(replaced));
        } // the loan of a connection that is not in the pool any more
        EXPECT_EQ(lentId(pool.getConnection(false)), 0);
        (void)Lock(renewed, pool, false);
        EXPECT_EQ(lentId(pool.getConnection(false)), 3);

        client.connects = {false, false};
        EXPECT_THROW(pool.reset(renewed), DatabaseException);
        EXPECT_THROW(pool.growPool(), DatabaseException);
        EXPECT_EQ(pool.size(), 1U);
        EXPECT_EQ(lentId(pool.growPool()), 6);
        RefConnection empty;
        EXPECT_EQ(failureOf([&] { pool.reset(empty); }),
                  "operator-> (1) at include2/KestroRefcounted:359");
    }
    EXPECT_EQ(lentId(pool.getConnection(false)), 1);
}

TEST_F(Pool, AnAssignmentMovesTheLoanOrRefusesIt)
{
    const Table<std::string, SocketAddress, bool, bool, bool> rows = {
        // the other pool's database and address, equal, checked, taken
        {"one", {Kestro::IPAddress("127.0.0.1"), 3307}, true, true, true},
        {"one", {Kestro::IPAddress("127.0.0.2"), 3306}, false, true, false},
        {"two", address, false, true, false},
        {"two", address, false, false, true}};
    for (const auto& [database, where, equal, checked, taken] : rows) {
        ConnectionPool pool("one", "", "", address, 1);
        ConnectionPool other(database, "", "", where, 1);
        EXPECT_EQ(pool == other, equal) << database;
        {
            Lock target(pool, checked);
            Lock source = other.getConnection(false);
            target = source;
            EXPECT_FALSE(source);
            EXPECT_EQ(lentId(target), taken ? 1 : 0) << database;
        }
        // The pool that a connection comes back to is the target's, so the other one stays taken.
        EXPECT_EQ(lentId(other.getConnection(false)), 0);
    }
}

} // namespace

// The pause of a caller who waits, in the place of the platform's.
void Kestro::ks_usleep(unsigned microseconds, unsigned seconds)
{
    EXPECT_TRUE(microseconds == 100'000 && seconds == 0);
    inPause();
}
