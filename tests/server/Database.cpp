#include "ServerTest.h"

#include <KestroDatabase>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

using namespace Kestro::Database;

class Database : public ServerTest {
protected:
    Connection connection{database};
    const std::string path = testing::TempDir() + "kestro_" + database + std::to_string(getpid());

    ~Database() override { std::filesystem::remove(path); }
    void execute(const std::string& text, RowParser* parser = nullptr, bool store = true)
    {
        Query query(connection, parser, store);
        query << text;
        query.execute();
    }
    // Loads the content into table t of a database, or tells why not.
    std::string load(const std::string& content, const std::string& into)
    {
        std::ofstream(path) << content;
        return failureOf([&] { QueryLoadData(connection, into, "t", path); });
    }
};

// Collects the first column and asks whether to go on.
struct Reader : RowImpl {
    std::string all;
    std::function<bool()> then = [] { return true; };
    bool parse(void* connection, void* result, void* row) override
    {
        all += std::string(column(connection, result, row, 0).value_or("NULL")) + ' ';
        return then();
    }
};

TEST_F(Database, RefusalsNameTheServersText)
{
    const auto parseNothing = [](RowImpl& row) {
        return failureOf([&] { row.parse(nullptr, nullptr, nullptr); });
    };
    CountRow count;
    FieldRow field;
    TableNamesRow name;
    OneRowParser parser(name);
    EXPECT_EQ(parseNothing(count), "CountRow (4) at QueryCount:19");
    EXPECT_EQ(parseNothing(field), "FieldRow (4) at QueryDescribeTable:19");
    EXPECT_EQ(parseNothing(name), "TableNamesRow (4) at QueryTableNames:19");
    EXPECT_EQ(failureOf([&] { execute("SELECT NULL", &parser); }),
              "TableNamesRow (4) at QueryTableNames:24");
    EXPECT_EQ(
        failureOf([&] { connection.dbDelete("none"); }),
        "dbDelete (4) at Connection:152: Can't drop database 'none'; database doesn't exist <- "
        "DatabaseException (4) at Query:88: Can't drop database 'none'; database doesn't exist : "
        "Drop database none;");
    EXPECT_EQ(failureOf([&] { connection.dbSelect("none"); }),
              "DatabaseException (0): Unknown database 'none'");
}

TEST_F(Database, RowsReachEveryParserInBothModes)
{
    for (const bool store : {true, false}) {
        RowContainer container;
        KyRowParser<Reader> every(container);
        execute("SELECT seq FROM seq_1_to_1000", &every, store);
        execute("SELECT NULL", &every, store);
        execute("DO 1", &every, store);
        EXPECT_EQ(container.rows().size(), 1001U);
        EXPECT_EQ(static_cast<Reader&>(*container.rows().front()).all, "1 ");
        EXPECT_EQ(static_cast<Reader&>(*container.rows().back()).all, "NULL ");

        Reader reader;
        reader.then = [&] { return !reader.all.ends_with("3 "); };
        OneRowParser one(reader);
        execute("SELECT seq FROM seq_1_to_200000", &one, store);
        execute("SELECT 7 UNION ALL SELECT NULL UNION ALL SELECT X'610062'", &one, store);
        execute("DO 1", &one, store);
        EXPECT_EQ(reader.all, std::string("1 2 3 7 NULL a\0b ", 17));
    }
}

TEST_F(Database, ParsersMayThrowQueryAndReopen)
{
    const auto during = [&](bool store, const std::function<void()>& action) {
        Reader reader;
        reader.then = [&] { return action(), true; };
        OneRowParser parser(reader);
        const std::string failure =
            failureOf([&] { execute("SELECT seq FROM seq_1_to_9", &parser, store); });
        execute("DO 1");
        return failure;
    };
    const auto query = [&] { execute("DO 1"); };
    const auto reopen = [&] { connection.dbSelect("mysql"); };
    EXPECT_EQ(during(true, query) + during(true, reopen), "");
    EXPECT_EQ(during(false, query), "DatabaseException (4) at Query:88: Commands out of sync; a "
                                    "result of this connection is still being streamed : DO 1");
    EXPECT_EQ(during(false, reopen),
              "db_result_fetch_row (4): the connection was closed while the rows were read");
}

TEST_F(Database, CreatesSelectsAndEscapes)
{
    connection.dbCreate("`a b`");
    EXPECT_TRUE(connection.dbSelectIfExists("a b"));
    execute("CREATE TABLE t (id INT AUTO_INCREMENT PRIMARY KEY, s BLOB)");
    Query insert(connection);
    insert << "INSERT INTO t (s) VALUES (\"" << connection.escapeString(everyByte()) << "\")";
    insert.execute();
    EXPECT_EQ(insert.get_lastid(), 1U);
    EXPECT_EQ(value("SELECT s FROM `a b`.t"), everyByte());
    connection.dbDelete("`a b`");
    connection.disconnect();
    EXPECT_EQ(connection.escapeString(std::string("\0\n\r\t\x1a\"'\\", 8)), R"(\0\n\r\t\Z\"\'\\)");
    EXPECT_NE(connection.enableMultipleStatementsPerQuery(), 0);
}

TEST_F(Database, CatalogFollowsTheTables)
{
    execute("CREATE TABLE orders (id INT, name VARCHAR(20))");
    execute("CREATE TABLE `My_table` (id INT)");
    EXPECT_EQ(QueryTableNames(connection).names(), (std::set<std::string>{"My_table", "orders"}));
    EXPECT_TRUE(QueryTableExists(connection, "o%").exists());
    EXPECT_FALSE(QueryTableExists(connection, "order").exists());
    const auto fields = QueryDescribeTable(connection, "orders").fields();
    EXPECT_EQ(fields.front().name + ' ' + fields.back().type, "id varchar(20)");
    std::string counts;
    for (const char* text :
         {"SELECT COUNT(*) FROM seq_1_to_12", "SELECT 7, 1 UNION ALL SELECT 9, 1",
          "SELECT 1 FROM orders", "SELECT NULL", "SELECT ' -12abc'", "SELECT '010'",
          "SELECT 4294967298"}) {
        counts += std::to_string(QueryCount(connection, text).count()) + ' ';
    }
    EXPECT_EQ(counts, "12 7 0 0 -12 10 2 ");
}

TEST_F(Database, AScriptLoadsAsTheServersOwnClientLoadsIt)
{
    const std::string file = "/usr/share/mysql/fill_help_tables.sql";
    const auto checksum = [&] { return at(query("CHECKSUM TABLE mysql.help_topic"), 0, 1); };
    const std::string command = "mariadb --no-defaults --socket=$MYSQL_UNIX_PORT mysql < " + file;
    ASSERT_EQ(std::system(command.c_str()), 0);
    const std::string loaded = checksum();
    run("TRUNCATE mysql.help_topic");
    EXPECT_NE(checksum(), loaded);
    connection.enableMultipleStatementsPerQuery();
    connection.dbSelect("mysql");
    QueryFile script(connection, file);
    EXPECT_GT(script.batches().size(), 2U);
    script.execute();
    EXPECT_EQ(checksum(), loaded);
}

TEST_F(Database, LoadedTextsComeBackUnchanged)
{
    const std::vector<std::string> texts = {
        everyByte().substr(0, 128),  "\\N",  "",    "\t\n\r", "\"'`\\",
        "\xf0\x9f\x98\x80 \xc3\xa9", "\x1a", "NULL"};
    for (const std::string set : {"latin1", "utf8mb3", "utf8mb4"}) {
        const std::string name = database + "_" + set;
        run("CREATE DATABASE " + name + " CHARACTER SET " + set);
        run("USE " + name);
        run("CREATE TABLE t (id INT PRIMARY KEY, b BLOB, s TEXT CHARACTER SET utf8mb4)");
        std::string file =
            "100\t" + connection.escapeString(everyByte()) + "\t\\N\n0\tearlier\tx\n";
        for (std::size_t i = 0; i < texts.size(); ++i) {
            const std::string escaped = connection.escapeString(texts[i]);
            file += std::to_string(i) + '\t' + escaped + '\t' + escaped + '\n';
        }
        EXPECT_EQ(load(file, name), "");
        const Handle rows = query("SELECT b, s FROM t ORDER BY id");
        for (std::size_t i = 0; i < texts.size(); ++i) {
            const int row = static_cast<int>(i);
            EXPECT_EQ(at(rows, row) + at(rows, row, 1), texts[i] + texts[i]) << set;
        }
        EXPECT_EQ(value("SELECT b FROM t WHERE s IS NULL"), everyByte());
        run("DROP DATABASE " + name);
    }
}

TEST_F(Database, RefusedLoadsSayWhy)
{
    const std::string refused = "DatabaseException (4) at Query:";
    EXPECT_EQ(load("", "none"), refused + "168: database not exist");
    EXPECT_EQ(load("", database), refused + "176: table not exist");
    run("CREATE TABLE t (id INT PRIMARY KEY, n INT)");
    EXPECT_EQ(load("7\t8\n", database), "");
    EXPECT_EQ(value("SELECT CONCAT(id, n) FROM t"), "78");
    EXPECT_EQ(load("1\n", database),
              refused + "88: Row 1 doesn't contain data for all columns : LOAD DATA INFILE '" +
                  path + "' REPLACE INTO TABLE t;");
    EXPECT_EQ(value("SELECT COUNT(*) FROM t"), "0");
}

} // namespace
