#include "ScriptedClient.h"

#include <Kestro/Database/Query.h>

namespace {

using namespace Kestro::Database;
using scripted::client;
using Calls = std::vector<std::string>;

class QueryScripted : public scripted::Test {
protected:
    QueryScripted() { client.calls.clear(); }
    Connection connection{"one"};
    void TearDown() override
    {
        connection.disconnect();
        scripted::Test::TearDown();
    }
};

struct Parser : RowParser {
    int calls = 0;
    bool gotResult = false;
    bool throws = false;
    void parse(void* /*connection*/, void* result) override
    {
        ++calls;
        gotResult = result != nullptr;
        if (throws) {
            throw std::runtime_error("of the parser's own");
        }
    }
};

TEST_F(QueryScripted, RefusalNamesTextStatementAndPlace)
{
    Parser parser;
    const struct {
        RowParser* parser;
        bool storeResult;
        const char* call;
        unsigned line;
    } rows[] = {
        {&parser, true, "query SELECT 1", 75},
        {&parser, false, "use SELECT 1", 75},
        {nullptr, true, "query, no result: SELECT 1", 88},
        {nullptr, false, "use, no result: SELECT 1", 88},
    };
    for (const auto& row : rows) {
        client.calls.clear();
        client.affectedRows = 0x500000003;
        Query query(connection, row.parser, row.storeResult);
        query << "SELECT " << 1;
        query.execute();
        EXPECT_EQ(query.affectedRows(), 3U);
        EXPECT_EQ(query.get_error_number(), 0);
        EXPECT_EQ(query.get_error_message(), "");

        client.answers = {{1064, "syntax", {}, {}}, {}};
        client.affectedRows = 9;
        try {
            query.execute();
            ADD_FAILURE();
        } catch (const DatabaseException& e) {
            EXPECT_EQ(e.message(), "DatabaseException");
            EXPECT_EQ(e.intParameter(), 4);
            EXPECT_EQ(e.fileName(), "Query");
            EXPECT_EQ(e.lineNumber(), row.line);
            EXPECT_EQ(e.stringParameter(), "syntax : SELECT 1");
            EXPECT_FALSE(e.hasCause());
        }
        EXPECT_EQ(query.affectedRows(), 3U);
        query.execute();
        EXPECT_EQ(query.get_error_number(), 1064);
        EXPECT_EQ(query.get_error_message(), "syntax");
        EXPECT_EQ(query.affectedRows(), 9U);
        EXPECT_EQ(client.calls, Calls(3, row.call));
    }
    EXPECT_EQ(parser.calls, 4);
}

TEST_F(QueryScripted, TextIsKeptAsWrittenAndAnEmptyOneIsNotSent)
{
    Query query(connection);
    query.execute();
    query << "a" << '\0' << "b";
    EXPECT_EQ(query.sql(), std::string("a\0b", 3));
    query.execute();
    query << "c";
    query.execute();
    EXPECT_EQ(client.calls, (Calls{"query, no result: a", "query, no result: a"}));
    EXPECT_EQ(query.sql(), std::string("a\0bc", 4));
}

TEST_F(QueryScripted, IncompleteTextIsNotSent)
{
    Query query(connection);
    query << "DELETE FROM t WHERE name=" << static_cast<const char*>(nullptr) << " AND id=3";
    try {
        query.execute();
        ADD_FAILURE();
    } catch (const DatabaseException& e) {
        EXPECT_EQ(e.asString(), "DatabaseException (4) at Query:88: the statement was not written "
                                "completely : DELETE FROM t WHERE name=");
    }
    EXPECT_TRUE(client.calls.empty());
}

TEST_F(QueryScripted, ResultIsFreedWhateverTheParserDoes)
{
    Parser parser;
    Query query(connection, &parser);
    query << "SELECT 1";
    client.answers = {{0, "", {{}}, {}}, {}, {0, "", {{}}, {}}};
    query.execute();
    EXPECT_TRUE(parser.gotResult);
    EXPECT_EQ(client.openResults, 0);
    query.execute();
    EXPECT_FALSE(parser.gotResult);
    parser.throws = true;
    EXPECT_THROW(query.execute(), std::runtime_error);
    EXPECT_EQ(client.openResults, 0);
    EXPECT_EQ(query.get_error_number(), 0);
}

TEST_F(QueryScripted, LastIdIsTheConnections)
{
    client.lastId = 1ULL << 40;
    EXPECT_EQ(Query(connection).get_lastid(), 1ULL << 40);
}

} // namespace
