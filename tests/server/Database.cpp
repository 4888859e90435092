#include "Proxy.h"
#include "ServerTest.h"

#include <KestroDatabase>
#include <fstream>

namespace {

using namespace Kestro::Database;

class Database : public ServerTest {
protected:
    Connection connection{database};

    // Runs a statement; the rows of a result are stored or streamed.
    std::uint32_t execute(const std::string& text, RowParser* parser, bool store)
    {
        Query query(connection, text, parser, store);
        query.execute();
        return query.affectedRows();
    }
    // Loads the content into table t of a database, or tells why not.
    std::string load(const std::string& content, const std::string& into)
    {
        std::ofstream(directory + "/t.txt") << content;
        return failureOf([&] { QueryLoadData(connection, into, "t", directory + "/t.txt"); });
    }
};

// Collects the first column and asks whether to go on.
struct Reader : RowImpl {
    std::string all;
    std::function<bool()> then = [] { return false; };
    bool parse(void* connection, void* result, void* row) override
    {
        all += std::string(column(connection, result, row, 0).value_or("NULL")) + ' ';
        if (all == "throw ") {
            throw Kestro::Exception("thrown");
        }
        return then();
    }
};

TEST_F(Database, RefusalsNameTheServersText)
{
    TableNamesRow name;
    OneRowParser parser(name);
    const std::string none = "Can't drop database 'none'; database doesn't exist";
    expectEqual({{failureOf([] { CountRow().parse(nullptr, nullptr, nullptr); }),
                  "CountRow (4) at QueryCount:19"},
                 {failureOf([] { FieldRow().parse(nullptr, nullptr, nullptr); }),
                  "FieldRow (4) at QueryDescribeTable:19"},
                 {failureOf([&] { name.parse(nullptr, nullptr, nullptr); }),
                  "TableNamesRow (4) at QueryTableNames:19"},
                 {failureOf([&] { connection.execute("SELECT NULL", &parser); }),
                  "TableNamesRow (4) at QueryTableNames:24"},
                 {failureOf([&] { connection.dbDelete("none"); }),
                  "dbDelete (4) at Connection:152: " + none +
                      " <- DatabaseException (4) at Query:88: " + none + " : Drop database none;"},
                 {failureOf([&] { connection.dbSelect("none"); }),
                  "DatabaseException (0): Unknown database 'none'"}});
}

TEST_F(Database, RowsReachEveryParserInBothModes)
{
    for (const bool store : {true, false}) {
        RowContainer container;
        KyRowParser<Reader> every(container); // asks every row, whatever parse() returns
        execute("SELECT seq FROM seq_1_to_1000", &every, store);
        execute("SELECT NULL", &every, store);
        execute("DO 1", &every, store);
        EXPECT_THROW(execute("SELECT 7 UNION SELECT 'throw'", &every, store), Kestro::Exception);
        EXPECT_EQ(container.rows().size(), 1002U); // not the one that threw
        EXPECT_EQ(static_cast<Reader&>(*container.rows().front()).all, "1 ");
        EXPECT_EQ(static_cast<Reader&>(*container.rows().back()).all, "7 ");

        Reader reader;
        reader.then = [&] { return !reader.all.ends_with("3 "); };
        OneRowParser one(reader);
        execute("SELECT seq FROM seq_1_to_200000", &one, store);
        execute("SELECT 7 UNION ALL SELECT NULL UNION ALL SELECT X'610062'", &one, store);
        execute("DO 1", &one, store);
        EXPECT_EQ(reader.all, std::string("1 2 3 7 NULL a\0b ", 17));
    }
}

// A connection that is lost after any byte of an answer is a failure, however the rows are read,
// and so is a malformed row.
TEST_F(Database, AnAnswerThatBreaksOffIsNeverAShortResult)
{
    Proxy proxy;
    proxy.edit = [](bool /*fromServer*/, std::string& bytes) {
        // Values of 5 and of 300 bytes become longer than their rows.
        for (const char* value : {"\5short", "\x2c\1long"}) {
            if (const std::size_t length = bytes.find(value); length != std::string::npos) {
                ++bytes[length];
            }
        }
    };
    connection.dbSelect(database);
    connection.enableMultipleStatementsPerQuery();
    Reader reader;
    reader.then = [] { return true; };
    OneRowParser one(reader);
    RowContainer container;
    KyRowParser<Reader> every(container); // stores the rows when it asks for their number
    for (const char* text :
         {"SELECT 'a', NULL UNION SELECT 'b', 1", "SELECT 'a' UNION SELECT 'b'; DO 1"}) {
        for (RowParser* const parser : std::vector<RowParser*>{&one, &every}) {
            for (const bool store : {true, false}) {
                // At first nothing is cut, and the bytes are counted.
                for (long cut = -1, size = 0; cut < size; ++cut) {
                    connection.execute("DO 1"); // on a link that is opened again if it was lost
                    proxy.left = cut;
                    reader.all = "";
                    const std::string failure = failureOf([&] { execute(text, parser, store); });
                    EXPECT_EQ(failure.empty() ? 0 : connection.errorNumber(), cut < 0 ? 0 : 2013)
                        << text << " after " << cut << ": " << failure;
                    EXPECT_EQ(failure.find("Lost connection") == std::string::npos, cut < 0);
                    EXPECT_TRUE(cut >= 0 || parser == &every || reader.all == "a b ");
                    size = cut < 0 ? -1 - proxy.left : size;
                }
                for (const char* wrong : {"SELECT 'short' AS a", "SELECT REPEAT('long', 75)"}) {
                    EXPECT_NE(failureOf([&] { execute(wrong, parser, store); }), "") << wrong;
                    EXPECT_EQ(connection.errorNumber(), 2027);
                }
            }
        }
    }
}

TEST_F(Database, ParsersMayThrowQueryAndReopen)
{
    const auto during = [&](bool store, const std::function<void()>& action) {
        Reader reader;
        reader.then = [&] { return action(), true; };
        OneRowParser parser(reader);
        std::string failure = failureOf([&] {
            // The count is that of the last statement, or of the fresh link.
            EXPECT_EQ(execute("SELECT seq FROM seq_1_to_9", &parser, store), 0U);
        });
        connection.execute("DO 1");
        return failure;
    };
    const auto query = [&] { connection.execute("DO 1"); };
    std::unique_ptr<Connection> between; // takes the place that the closed link had in memory
    const auto reopen = [&] {
        connection.disconnect();
        between = std::make_unique<Connection>(database);
        EXPECT_EQ(between->execute("SELECT 1"), 1U);
        connection.connect();
    };
    EXPECT_EQ(during(true, query) + during(true, reopen), "");
    EXPECT_EQ(during(false, query), "DatabaseException (4) at Query:88: Commands out of sync; a "
                                    "result of this connection is still being streamed : DO 1");
    EXPECT_EQ(during(false, reopen),
              "db_result_fetch_row (4): the connection was closed while the rows were read");
}

TEST_F(Database, TheCatalogFollows)
{
    connection.dbCreate("`a b`");
    EXPECT_TRUE(connection.dbSelectIfExists("a b"));
    connection.execute("CREATE TABLE orders (id INT AUTO_INCREMENT PRIMARY KEY, name VARCHAR(20))");
    connection.execute("CREATE TABLE `Other` (id INT)");
    EXPECT_EQ(QueryTableNames(connection).names(), (std::set<std::string>{"Other", "orders"}));
    connection.execute("CREATE TABLE other (id INT)");
    EXPECT_TRUE(QueryTableExists(connection, "o%").exists());
    EXPECT_FALSE(QueryTableExists(connection, "order").exists());
    const auto fields = QueryDescribeTable(connection, "orders").fields();
    EXPECT_EQ(fields.front().name + ' ' + fields.back().type, "id varchar(20)");
    connection.execute("INSERT INTO orders (name) VALUES ('a'), ('b'), ('c')");
    EXPECT_EQ(Query(connection).get_lastid(), 1U);
    std::string counts;
    for (const char* text :
         {"SELECT COUNT(*) FROM orders", "SELECT 7, 1 UNION ALL SELECT 9, 1", "SELECT 1 FROM other",
          "SELECT NULL", "SELECT ' -12abc'", "SELECT '010'", "SELECT 4294967298"}) {
        counts += std::to_string(QueryCount(connection, text).count()) + ' ';
    }
    EXPECT_EQ(counts, "3 7 0 0 -12 10 2 ");
    connection.dbDelete("`a b`");
}

TEST_F(Database, LoadedTextsComeBackUnchanged)
{
    connection.disconnect();
    std::vector<std::string> texts = {"\\N", "", "\"'`\\", "\xf0\x9f\x98\x80 \xc3\xa9", "NULL"};
    texts.emplace_back(70'000, '"');
    texts.push_back(everyByte().substr(0, 128));
    for (const std::string set : {"latin1", "utf8mb3", "utf8mb4"}) {
        const std::string name = database + "_" + set;
        run("CREATE OR REPLACE DATABASE " + name + " CHARACTER SET " + set);
        run("USE " + name);
        run("CREATE TABLE t (id INT PRIMARY KEY, b LONGBLOB, s LONGTEXT CHARACTER SET utf8mb4)");
        std::string file = "9\t" + connection.escapeString(everyByte()) + "\t\\N\n0\tearlier\tx\n";
        for (std::size_t i = 0; i < texts.size(); ++i) {
            const std::string escaped = connection.escapeString(texts[i]);
            file += std::to_string(i) + '\t' + escaped + '\t' + escaped + '\n';
        }
        EXPECT_EQ(load(file, name), "");
        const Handle rows = query("SELECT b, s FROM t ORDER BY id");
        for (std::size_t i = 0; i < texts.size(); ++i) {
            const int row = static_cast<int>(i);
            EXPECT_TRUE(at(rows, row) + at(rows, row, 1) == texts[i] + texts[i]) << set << i;
        }
        EXPECT_EQ(value("SELECT b FROM t WHERE s IS NULL"), everyByte());
    }
}

TEST_F(Database, RefusedLoadsSayWhy)
{
    const std::string refused = "DatabaseException (4) at Query:";
    EXPECT_EQ(load("", "none"), refused + "168: database not exist");
    EXPECT_EQ(load("", database), refused + "176: table not exist");
    run("CREATE TABLE t (id INT PRIMARY KEY, n INT)");
    run("INSERT INTO t VALUES (6, 6)");
    EXPECT_EQ(load("7\t8\n", database), "");
    EXPECT_EQ(value("SELECT GROUP_CONCAT(id, n) FROM t"), "78");
    EXPECT_EQ(load("1\n", database),
              refused + "88: Row 1 doesn't contain data for all columns : LOAD DATA INFILE '" +
                  directory + "/t.txt' REPLACE INTO TABLE t;");
    EXPECT_EQ(value("SELECT COUNT(*) FROM t"), "0");
}

} // namespace
