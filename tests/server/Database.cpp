#include "ServerTest.h"

#include <KestroDatabase>

namespace {

using namespace Kestro::Database;
using Kestro::Exception;

struct Number : RowImpl {
    int number = 0;
    int seen = 0;
    int last = 0; // to be asked for; 0 asks for all
    bool parse(void* connection, void* result, void* row) override
    {
        number = std::stoi(std::string(column(connection, result, row, 0).value_or("0")));
        return ++seen != last;
    }
};

class Database : public ServerTest {
protected:
    Connection connection{database};

    void execute(const std::string& text, RowParser* parser = nullptr, bool store = true)
    {
        Query query(connection, parser, store);
        query << text;
        query.execute();
    }
    template <class Call> static std::string failure(const Call& call)
    {
        try {
            call();
        } catch (const Exception& e) {
            return e.asString();
        }
        return "no exception";
    }
};

TEST_F(Database, RefusalsNameTheServersText)
{
    Number row;
    OneRowParser parser(row);
    EXPECT_EQ(failure([] { Connection("no_such_database"); }),
              "DatabaseException (0): Unknown database 'no_such_database'");
    EXPECT_EQ(failure([&] { execute("SELECT nothing"); }),
              "DatabaseException (4) at Query:88: Unknown column 'nothing' in 'SELECT' : "
              "SELECT nothing");
    for (const bool store : {true, false}) {
        EXPECT_EQ(failure([&] { execute("SELECT nothing", &parser, store); }),
                  "DatabaseException (4) at Query:75: Unknown column 'nothing' in 'SELECT' : "
                  "SELECT nothing");
    }
    EXPECT_EQ(connection.errorNumber(), 1054);
    EXPECT_EQ(failure([&] { connection.dbCreate(database); }),
              "DatabaseException (4) at Query:88: Can't create database '" + database +
                  "'; database exists : Create database " + database + ";");
    EXPECT_EQ(failure([&] { connection.dbDelete("no_such_database"); }),
              "dbDelete (4) at Connection:152: Can't drop database 'no_such_database'; database "
              "doesn't exist <- DatabaseException (4) at Query:88: Can't drop database "
              "'no_such_database'; database doesn't exist : Drop database no_such_database;");
    EXPECT_FALSE(connection.dbSelectIfExists("no_such_database"));
    EXPECT_EQ(connection.state(), Connection::Connected);
    EXPECT_EQ(failure([&] { connection.dbSelect("no_such_database"); }),
              "DatabaseException (0): Unknown database 'no_such_database'");
    EXPECT_EQ(connection.state(), Connection::Disconnected);
    EXPECT_EQ(failure([&] { execute("DO 1"); }), "DatabaseException (4) at Query:88: MySQL server "
                                                 "has gone away (not connected) : DO 1");
}

TEST_F(Database, RowsReachEveryParserInBothModes)
{
    for (const bool store : {true, false}) {
        RowContainer all;
        KyRowParser<Number> every(all);
        execute("SELECT seq FROM seq_1_to_1000", &every, store);
        execute("SELECT 7", &every, store);
        execute("DO 1", &every, store);
        ASSERT_EQ(all.rows().size(), 1001U);
        EXPECT_EQ(static_cast<Number&>(*all.rows().front()).number, 1);
        EXPECT_EQ(static_cast<Number&>(*all.rows().back()).number, 7);

        Number ten;
        ten.last = 10;
        OneRowParser one(ten);
        execute("SELECT seq FROM seq_1_to_200000", &one, store);
        EXPECT_EQ(ten.number, 10);
        Number next;
        OneRowParser again(next);
        execute("SELECT seq FROM seq_1_to_200000", &again, store);
        EXPECT_EQ(next.seen, 200000);
    }
}

TEST_F(Database, ParsersMayThrowQueryAndReopen)
{
    struct Rough : Number {
        Connection& connection;
        std::string what;
        Rough(Connection& inner, std::string todo) : connection(inner), what(std::move(todo)) {}
        bool parse(void* /*connection*/, void* /*result*/, void* /*row*/) override
        {
            if (what == "reopen") {
                connection.dbSelect("mysql");
                return true;
            }
            Query inner(connection);
            inner << what;
            inner.execute();
            return true;
        }
    };
    const struct {
        const char* what;
        bool store;
        const char* failure;
    } rows[] = {
        {"DO 1", true, "no exception"},
        {"SELECT nothing", true, "Unknown column"},
        {"DO 1", false, "Commands out of sync"},
        {"reopen", true, "no exception"},
        {"reopen", false, "the connection was closed"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        Rough rough(connection, row.what);
        OneRowParser parser(rough);
        EXPECT_NE(failure([&] {
                      execute("SELECT seq FROM seq_1_to_1000", &parser, row.store);
                  }).find(row.failure),
                  std::string::npos);
        EXPECT_EQ(failure([&] { execute("DO 1"); }), "no exception");
    }
}

TEST_F(Database, CreatesSelectsAndEscapes)
{
    const std::string name = database + "_2";
    connection.dbCreate(name);
    EXPECT_TRUE(connection.dbSelectIfExists(name));
    execute("CREATE TABLE t (id INT AUTO_INCREMENT PRIMARY KEY, s TEXT)");
    const std::string text("\" OR \"\"=\"\\'\0\t\n\x1a\xf0\x9f\x98\x80", 19);
    Query insert(connection);
    insert << "INSERT INTO t (s) VALUES (\"" << connection.escapeString(text) << "\")";
    insert.execute();
    EXPECT_EQ(insert.get_lastid(), 1U);
    EXPECT_EQ(insert.affectedRows(), 1U);
    EXPECT_EQ(value("SELECT s FROM " + name + ".t"), text);
    connection.dbDelete(name);
    EXPECT_TRUE(Connection::waitUntilServerReady(Connection::defaultAddress(), 1));
}

} // namespace
