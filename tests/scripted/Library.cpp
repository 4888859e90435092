#include "ScriptedClient.h"
#include "Testing.h"

#include <KestroDatabase>
#include <fstream>
#include <list>
#include <locale>
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
    EXPECT_EQ(connection.state(), 2);
    connection.disconnect();
    connection.disconnect(); // does nothing
    EXPECT_EQ(connection.state(), 0);
    client.connects = {false, true, true, false, true, false, false};
    EXPECT_FALSE(connection.dbSelectIfExists("four"));
    EXPECT_TRUE(connection.dbSelectIfExists("five"));
    EXPECT_THROW(connection.dbSelect("six"), DatabaseException);
    connection.connect();
    client.error = nullptr;
    EXPECT_EQ(failureOf([&] { connection.dbSelectIfExists("seven"); }), "DatabaseException (0)");
    EXPECT_EQ(connection.state(), 0);
    connection.connect();
    EXPECT_EQ(client.calls, (Calls{"disconnect", "connect four", "connect one", "disconnect",
                                   "connect five", "disconnect", "connect six", "connect six",
                                   "disconnect", "connect seven", "connect six", "connect six"}));
    client.connects = {false};
    EXPECT_THROW(connection.connect(), DatabaseException);
    EXPECT_EQ(connection.state(), 0);
    --client.open; // the link that was still open is lost, as connect() says
}

TEST_F(Scripted, ServersAreAwaitedInStepsOfThreeSeconds)
{
    const std::string attempt = "connect mysql";
    const Table<unsigned, std::deque<bool>, bool, Calls> rows = {
        {0, {}, false, {}},
        {12, {false, false, false, false}, false, Calls(4, attempt)},
        {10, {false, false, true}, true, {attempt, attempt, attempt, "disconnect"}}};
    for (const auto& [seconds, connects, ready, calls] : rows) {
        client.calls.clear();
        client.connects = connects;
        EXPECT_EQ(Connection::waitUntilServerReady(Connection::defaultAddress(), seconds), ready);
        EXPECT_EQ(client.calls, calls);
    }
}

// Throws the text of its query, if it has one.
struct Throwing : RowParser {
    const Query* query = nullptr;
    void parse(void* /*connection*/, void* /*result*/) override
    {
        if (query != nullptr) {
            throw Kestro::Exception(query->sql());
        }
    }
};

TEST_F(Scripted, StatementsAreSentAsWrittenAndRefusalsNameThem)
{
    Throwing parser;
    const Table<RowParser*, bool, const char*, std::string> rows = {
        {&parser, true, "query a 1000", "75"},
        {&parser, false, "use a 1000", "75"},
        {nullptr, true, "query, no result: a 1000", "88"},
        {nullptr, false, "use, no result: a 1000", "88"}};
    client.error = "syntax";
    client.results = true;
    std::locale::global(std::locale(std::locale::classic(), new Grouping));
    for (const auto& [receiver, store, call, line] : rows) {
        client.calls.clear();
        Query query(connection, receiver, store);
        query.execute(); // an empty one is not sent
        query << "a " << 1000 << '\0' << "b";
        query.execute();
        EXPECT_EQ(query.affectedRows(), 3U); // the low 32 bits
        client.statements = {false};
        EXPECT_EQ(failureOf([&] { query.execute(); }),
                  "DatabaseException (4) at Query:" + line + ": syntax : " + query.sql());
        query.execute();
        EXPECT_EQ(query.get_error_message(), "syntax"); // a success does not clear it
        EXPECT_EQ(query.get_error_number(), 1064);
        query << static_cast<const char*>(nullptr); // is not sent without it
        EXPECT_EQ(failureOf([&] { query.execute(); }),
                  "DatabaseException (4) at Query:" + line +
                      ": the statement was not written completely : " + query.sql());
        EXPECT_EQ(query.get_error_number(), 2000);
        EXPECT_EQ(client.calls, Calls(3, call));
    }
    std::locale::global(std::locale::classic());
}

// The parser asks for the text and throws.
TEST_F(Scripted, TheTextAndBothPositionsStayThroughExecution)
{
    Throwing parser;
    Query query(connection, &parser);
    parser.query = &query;
    client.results = true;
    const auto expectSent = [&](const std::string& sql) {
        client.calls.clear();
        EXPECT_EQ(failureOf([&] { query.execute(); }), sql + " (0)");
        EXPECT_EQ(client.calls, Calls{"query " + sql});
    };
    std::istream text(query.rdbuf());
    std::string word;
    query << "select 1";
    text >> word;
    query.seekp(0);
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

// A batch ends at the first terminator of a block of 4096 bytes by which it exceeds 1 MiB.
TEST_F(Scripted, ScriptsAreCutIntoBatchesAndSentInTurn)
{
    std::string exact; // has a terminator at 1 MiB, too
    while (exact.size() <= 1048576) {
        exact += std::string(4094, 'x') + ";\n";
    }
    const std::string first = '\0' + std::string(1048575, 'x') + "a;\n";
    const std::string second =
        "b;\n" + std::string(1048570, 'x') + ";\nc;\n" + std::string(4091, 'x') + "d;\n";
    const std::string split = std::string(1052668, 'x') + ";\nend"; // in two blocks
    const std::string path = testing::TempDir() + "kestro_script." + std::to_string(getpid());
    std::ofstream(path) << exact << first << second << split;
    QueryFile script(connection, path);
    EXPECT_TRUE(script.batches() == (std::list{exact, first, second, split}));
    unlink(path.c_str());
    EXPECT_TRUE(QueryFile(connection, path).batches().empty());

    client.error = "syntax";
    client.statements = {true, false};
    EXPECT_TRUE(failureOf([&] { script.execute(); }) ==
                "DatabaseException (4) at Query:88: syntax : " + first + '\0');
    script.execute();
    Calls sent;
    for (const auto& batch : {exact, first, exact, first, second, split}) {
        sent.push_back("query, no result: " + batch.substr(0, batch.find('\0')));
    }
    EXPECT_TRUE(client.calls == sent);
}

} // namespace
