#include "ScriptedClient.h"

#include <Kestro/Database/Connection.h>
#include <memory>

namespace {

using namespace Kestro::Database;
using Kestro::IPAddress;
using Kestro::SocketAddress;
using scripted::client;
using Calls = std::vector<std::string>;

class ConnectionScripted : public scripted::Test {};

TEST_F(ConnectionScripted, EveryConstructorOpensAndTheDestructorCloses)
{
    const SocketAddress address(IPAddress("10.1.2.3"), 4000);
    const std::function<std::unique_ptr<Connection>()> constructors[] = {
        [] { return std::make_unique<Connection>("shop"); },
        [&] { return std::make_unique<Connection>(address, "shop"); },
        [&] { return std::make_unique<Connection>("shop", "2", "3", address); },
    };
    for (const auto& construct : constructors) {
        client = {};
        {
            const auto connection = construct();
            EXPECT_EQ(connection->state(), 2);
            EXPECT_EQ(connection->enableMultipleStatementsPerQuery(), 7);
            connection->disconnect();
            connection->disconnect();
            EXPECT_EQ(connection->state(), 0);
            EXPECT_EQ(connection->enableMultipleStatementsPerQuery(), 8);
        }
        EXPECT_EQ(client.calls, (Calls{"connect shop", "disconnect"}));
        client = {};
        client.connects = {false};
        EXPECT_THROW(construct(), DatabaseException);
    }
}

TEST_F(ConnectionScripted, RefusedConnectCarriesTheReason)
{
    for (const auto& text : {std::optional<std::string>("no such socket"), {}}) {
        client.connects = {false};
        client.connectError = text;
        try {
            Connection connection("shop");
            ADD_FAILURE();
        } catch (const Kestro::Exception& e) {
            EXPECT_NE(dynamic_cast<const DatabaseException*>(&e), nullptr);
            EXPECT_EQ(e.message(), "DatabaseException");
            EXPECT_EQ(e.intParameter(), 0);
            EXPECT_EQ(e.fileName(), "");
            EXPECT_EQ(e.lineNumber(), 0U);
            EXPECT_FALSE(e.hasCause());
            EXPECT_EQ(e.stringParameter(), text.value_or(""));
        }
    }
}

TEST_F(ConnectionScripted, SelectsAnotherDatabaseByReopening)
{
    Connection connection("one");
    client.connects = {false, true};
    EXPECT_FALSE(connection.dbSelectIfExists("two"));
    EXPECT_EQ(connection.state(), 2);
    EXPECT_TRUE(connection.dbSelectIfExists("two"));
    client.connects = {false};
    EXPECT_THROW(connection.dbSelect("three"), DatabaseException);
    EXPECT_EQ(connection.state(), 0);
    connection.connect();
    client.connects = {false, false};
    EXPECT_THROW(connection.dbSelectIfExists("four"), DatabaseException);
    EXPECT_EQ(connection.state(), 0);
    connection.connect();
    EXPECT_EQ(client.calls,
              (Calls{"connect one", "disconnect", "connect two", "connect one", "disconnect",
                     "connect two", "disconnect", "connect three", "connect three", "disconnect",
                     "connect four", "connect three", "connect three"}));
}

TEST_F(ConnectionScripted, CreatesAndDropsDatabases)
{
    Connection connection("one");
    connection.dbCreate("`a b`");
    connection.dbDelete("two");
    EXPECT_EQ(client.calls, (Calls{"connect one", "query, no result: Create database `a b`;",
                                   "query, no result: Drop database two;"}));
    client.answers = {{1007, "exists", {}, {}}, {1008, "doesn't exist", {}, {}}};
    try {
        connection.dbCreate("two");
        ADD_FAILURE();
    } catch (const DatabaseException& e) {
        EXPECT_EQ(e.asString(), "DatabaseException (4) at Query:88: exists : Create database two;");
    }
    try {
        connection.dbDelete("two");
        ADD_FAILURE();
    } catch (const Kestro::Exception& e) {
        EXPECT_EQ(typeid(e), typeid(Kestro::Exception));
        EXPECT_EQ(e.asString(), "dbDelete (4) at Connection:152: doesn't exist <- "
                                "DatabaseException (4) at Query:88: doesn't exist : "
                                "Drop database two;");
        EXPECT_EQ(e.cause().lineNumber(), 88U);
        EXPECT_FALSE(e.cause().hasCause());
    }
    EXPECT_EQ(connection.errorNumber(), 1008);
}

TEST_F(ConnectionScripted, EscapesIntoTheLengthThatTheClientTells)
{
    Connection connection("one");
    EXPECT_EQ(connection.escapeString(""), "");
    EXPECT_EQ(connection.escapeString(std::string("a\0b", 3)), std::string("aa\0\0bb", 6));
    connection.disconnect();
    EXPECT_EQ(connection.escapeString("'"), "''");
}

TEST_F(ConnectionScripted, WaitsForTheServerInStepsOfThreeSeconds)
{
    const struct {
        unsigned seconds;
        std::deque<bool> connects;
        std::size_t attempts;
        bool ready;
    } rows[] = {
        {0, {}, 0, false},
        {1, {}, 1, true},
        {1, {false}, 1, false},
        {10, {false, false, false, false, false}, 4, false},
        {10, {false, false, true}, 3, true},
    };
    for (const auto& row : rows) {
        client = {};
        client.connects = row.connects;
        EXPECT_EQ(Connection::waitUntilServerReady(Connection::defaultAddress(), row.seconds),
                  row.ready);
        EXPECT_EQ(std::count(client.calls.begin(), client.calls.end(), "connect mysql"),
                  row.attempts);
        EXPECT_EQ(client.openLinks, 0);
    }
}

TEST_F(ConnectionScripted, DefaultAddressIsLocalUntilItIsSet)
{
    const SocketAddress local(IPAddress("127.0.0.1"), 3306);
    EXPECT_EQ(Connection::defaultAddress(), local);
    Connection::defaultAddress(SocketAddress(IPAddress("10.0.0.1"), 1));
    EXPECT_EQ(Connection::defaultAddress().asINET().address, 0x0a000001U);
    EXPECT_EQ(Connection::defaultAddress().asINET().port, 1U);
    Connection::defaultAddress(local);
}

} // namespace
