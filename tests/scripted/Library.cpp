#include "ScriptedClient.h"
#include "Testing.h"

#include <KestroDatabase>
#include <fstream>
#include <locale>
#include <random>
#include <unistd.h>

namespace {

using namespace Kestro::Database;
using Calls = std::vector<std::string>;

class Scripted : public testing::Test {
    struct Script {
        Script() { client = {}; }
        ~Script() { EXPECT_EQ(client.open, 0) << "links and results left open"; }
    } m_script;

protected:
    Connection connection{"one"};
    Scripted() { client.calls.clear(); }
};

TEST_F(Scripted, ConnectionsOpenTheirDatabaseAndReopenOnAnother)
{
    const Kestro::SocketAddress address(Kestro::IPAddress("127.0.0.1"), 3306);
    EXPECT_EQ(Connection::defaultAddress(), address);
    {
        const Connection two(address, "two");
        Connection three("three", "", "", address);
        EXPECT_EQ(three.state(), 2);
        three.disconnect();
        three.disconnect();
        EXPECT_EQ(three.state(), 0);
    }
    client.connects = {false, true, true, false, true, false, false};
    EXPECT_FALSE(connection.dbSelectIfExists("four"));
    EXPECT_TRUE(connection.dbSelectIfExists("five"));
    EXPECT_THROW(connection.dbSelect("six"), DatabaseException);
    connection.connect();
    client.error = nullptr;
    EXPECT_EQ(failureOf([&] { connection.dbSelectIfExists("seven"); }), "DatabaseException (0)");
    EXPECT_EQ(connection.state(), 0);
    connection.connect();
    EXPECT_EQ(client.calls, (Calls{"connect two", "connect three", "disconnect", "disconnect",
                                   "disconnect", "connect four", "connect one", "disconnect",
                                   "connect five", "disconnect", "connect six", "connect six",
                                   "disconnect", "connect seven", "connect six", "connect six"}));
    client.connects = {false};
    EXPECT_THROW(connection.connect(), DatabaseException);
    EXPECT_EQ(connection.state(), 0);
    --client.open; // the link that was still open is lost, as connect() says
}

TEST_F(Scripted, ServersAreAwaitedInStepsOfThreeSeconds)
{
    const Table<unsigned, std::deque<bool>, std::size_t> rows = {
        {0, {}, 0},
        {9, {false, false, false, true}, 3},
        {10, {false, false, false, false, true}, 4},
        {10, {false, false, true}, 3}};
    for (const auto& [seconds, connects, attempts] : rows) {
        client.calls.clear();
        client.connects = connects;
        const bool ready = Connection::waitUntilServerReady(Connection::defaultAddress(), seconds);
        Calls expected(attempts, "connect mysql");
        expected.resize(attempts + (ready ? 1 : 0), "disconnect");
        EXPECT_EQ(client.calls, expected);
    }
}

struct Throwing : RowParser {
    void parse(void* /*connection*/, void* result) override
    {
        if (result != nullptr) {
            throw std::runtime_error("of the parser's own");
        }
    }
};

struct Grouping : std::numpunct<char> {
    std::string do_grouping() const override { return "\3"; }
};

TEST_F(Scripted, StatementsAreSentAsWrittenAndRefusalsNameThem)
{
    Throwing parser;
    const Table<RowParser*, bool, const char*, const char*> rows = {
        {&parser, true, "query a 1000", "75"},
        {&parser, false, "use a 1000", "75"},
        {nullptr, true, "query, no result: a 1000", "88"},
        {nullptr, false, "use, no result: a 1000", "88"}};
    const std::string place = "DatabaseException (4) at Query:";
    client.error = "syntax";
    std::locale::global(std::locale(std::locale::classic(), new Grouping));
    for (const auto& [receiver, store, call, line] : rows) {
        client.calls.clear();
        Query query(connection, receiver, store);
        query.execute(); // an empty one is not sent
        query << "a " << 1000 << '\0' << "b";
        query.execute();
        EXPECT_EQ(query.affectedRows(), 3U); // the low 32 bits
        EXPECT_EQ(query.get_error_number(), 0);
        client.statements = {false};
        EXPECT_EQ(failureOf([&] { query.execute(); }), place + line + ": syntax : " + query.sql());
        query.execute();
        EXPECT_EQ(query.get_error_message(), "syntax"); // a success does not clear it
        EXPECT_EQ(query.get_error_number(), 1064);
        EXPECT_EQ(client.calls, Calls(3, call));
    }
    std::locale::global(std::locale::classic());
    client.results = true;
    Query throwing(connection, &parser);
    throwing << "SELECT 1";
    EXPECT_THROW(throwing.execute(), std::runtime_error);
    client.statements = {false};
    EXPECT_THROW(throwing.execute(), DatabaseException);
    EXPECT_EQ(client.open, 1); // the link
    client.results = false;
    client.calls.clear();
    Query query(connection);
    query << "DELETE FROM t WHERE a=" << static_cast<const char*>(nullptr) << " AND b=3";
    EXPECT_EQ(failureOf([&] { query.execute(); }),
              place + "88: the statement was not written completely : DELETE FROM t WHERE a=");
    EXPECT_EQ(query.get_error_number(), 2000);
    connection.dbCreate("`d`");
    connection.dbDelete("`d`");
    EXPECT_EQ(QueryCount(connection, "SELECT 1").count(), 0);
    EXPECT_TRUE(QueryDescribeTable(connection, "t").fields().empty());
    EXPECT_TRUE(QueryTableNames(connection).names().empty());
    EXPECT_FALSE(QueryTableExists(connection, "t").exists());
    EXPECT_EQ(client.calls,
              (Calls{"query, no result: Create database `d`;",
                     "query, no result: Drop database `d`;", "query SELECT 1", "query desc t;",
                     "query show tables;", "query show tables like 't';"}));
}

TEST_F(Scripted, TheTextAndBothPositionsStayThroughExecution)
{
    struct : RowParser {
        const Query* query = nullptr;
        void parse(void* /*connection*/, void* /*result*/) override
        {
            throw std::runtime_error(query->sql());
        }
    } parser;
    Query query(connection, &parser);
    parser.query = &query;
    std::istream text(query.rdbuf());
    std::string word;
    query << "select 1";
    text >> word;
    EXPECT_EQ(word, "select");
    EXPECT_EQ(query.tellp(), 8);
    query.seekp(0);
    const auto expectSent = [&](const std::string& sql) {
        client.calls.clear();
        std::string seen;
        try {
            query.execute();
        } catch (const std::runtime_error& e) {
            seen = e.what();
        }
        EXPECT_EQ(seen, sql);
        EXPECT_EQ(client.calls, Calls{"query " + sql});
    };
    expectSent("select 1");
    query << "SELECT";
    expectSent("SELECT 1");
    text >> word;
    EXPECT_EQ(word, "1");
    query.seekp(0, std::ios::end);
    // Through every size of the buffer.
    for (std::string sql = "SELECT 1"; sql.size() < 2100; sql += 'x') {
        expectSent(sql);
        query << 'x';
    }
}

// Where the batches end, found without reading in blocks: the first terminator that lies inside a
// stretch of 4096 bytes is a place to cut if the batch up to it is longer than 1 MiB.
std::list<std::string> model(const std::string& content)
{
    std::list<std::string> batches;
    std::size_t start = 0;
    for (std::size_t block = 0; block < content.size(); block += 4096) {
        const std::size_t end = content.find(";\n", block) + 2;
        if (end != 1 && end <= block + 4096 && end - start > 1048576) {
            batches.push_back(content.substr(start, end - start));
            start = end;
        }
    }
    if (start < content.size()) {
        batches.push_back(content.substr(start));
    }
    return batches;
}

TEST_F(Scripted, ScriptsAreCutAsTheModelSaysAndSentInTurn)
{
    const std::string path = testing::TempDir() + "kestro_script." + std::to_string(getpid());
    const auto batchesOf = [&](const std::string& content) {
        std::ofstream(path) << content;
        return QueryFile(connection, path).batches();
    };
    std::mt19937 random(20);
    for (int file = 0; file < 60; ++file) {
        std::string content(random() % (4 << 20), 'x');
        // Close to the edges of blocks, where the cutting is decided.
        for (std::size_t count = random() % 2000; count > 0; --count) {
            const std::size_t at = random() % (content.size() / 4096 + 1) * 4096 + random() % 7;
            content.replace(std::min(at, content.size()), 2, ";\n");
        }
        content.insert(0, 4093, '\0');
        EXPECT_TRUE(batchesOf(content) == model(content)) << "file " << file;
    }

    std::string exact;
    while (exact.size() <= 1048576) {
        exact += std::string(4094, 'x') + ";\n";
    }
    EXPECT_TRUE(batchesOf(exact + exact + "y") == (std::list<std::string>{exact, exact, "y"}));
    QueryFile script(connection, path);
    script.execute();
    client.error = "syntax";
    client.statements = {true, false};
    EXPECT_TRUE(failureOf([&] { script.execute(); }) ==
                "DatabaseException (4) at Query:88: syntax : " + exact + '\0');
    const std::string sent = "query, no result: " + exact;
    EXPECT_TRUE(client.calls == (Calls{sent, sent, "query, no result: y", sent, sent}));
    unlink(path.c_str());
    EXPECT_TRUE(QueryFile(connection, path).batches().empty());
}

} // namespace
