#include "ServerTest.h"

#include <KestroDatabase>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

using namespace Kestro::Database;

class Scripts : public ServerTest {
protected:
    Connection connection{database};
    const std::string path = testing::TempDir() + "kestro_" + database + std::to_string(getpid());

    ~Scripts() override { std::filesystem::remove(path); }
    std::string load(const std::string& content, const std::string& into)
    {
        std::ofstream(path) << content;
        try {
            QueryLoadData(connection, into, "t", path);
        } catch (const DatabaseException& e) {
            return std::to_string(connection.errorNumber()) + ' ' + e.stringParameter();
        }
        return "";
    }
};

TEST_F(Scripts, RealScriptsLoadAsTheServersOwnClientLoadsThem)
{
    const std::string zones = path + ".zones";
    ASSERT_EQ(
        std::system(
            ("mariadb-tzinfo-to-sql /usr/share/zoneinfo > " + zones + " 2>/dev/null").c_str()),
        0)
        << "mariadb-client is needed";
    const struct {
        std::string script;
        std::string tables;
    } rows[] = {
        {"/usr/share/mysql/fill_help_tables.sql",
         "mysql.help_topic, mysql.help_category, mysql.help_keyword, mysql.help_relation"},
        {zones, "mysql.time_zone, mysql.time_zone_name, mysql.time_zone_transition, "
                "mysql.time_zone_transition_type"},
    };
    for (const auto& row : rows) {
        const auto checksums = [&] {
            const Result result = query("CHECKSUM TABLE " + row.tables);
            std::string all;
            for (int i = 0; void* const line = db_result_fetch_row(result.get(), i); ++i) {
                all += db_result_get_value(nullptr, result.get(), line, 1) + std::string(" ");
            }
            return all;
        };
        connection.dbSelect("mysql");
        connection.enableMultipleStatementsPerQuery();
        QueryFile script(connection, row.script);
        EXPECT_GT(script.batches().size(), 2U);
        script.execute();
        const std::string ours = checksums();
        EXPECT_GT(QueryCount(connection,
                             "SELECT COUNT(*) FROM " + row.tables.substr(0, row.tables.find(',')))
                      .count(),
                  100);
        run("TRUNCATE " + row.tables.substr(0, row.tables.find(',')));
        EXPECT_NE(checksums(), ours);
        ASSERT_EQ(
            std::system(
                ("mariadb --no-defaults --socket=$MYSQL_UNIX_PORT mysql < " + row.script).c_str()),
            0);
        EXPECT_EQ(checksums(), ours);
    }
    std::filesystem::remove(zones);
}

TEST_F(Scripts, AFailureInALaterBatchEndsTheScript)
{
    std::string text = "CREATE TABLE t (id INT PRIMARY KEY);\n";
    const std::string filler = "-- " + std::string(100, 'x') + "\nDO 1;\n";
    for (const char* id : {"1", "2", "2", "3"}) {
        text += std::string("INSERT INTO t VALUES (") + id + ");\n";
        const std::size_t start = text.size();
        while (text.size() - start <= (1U << 20)) {
            text += filler;
        }
    }
    std::ofstream(path) << text;
    connection.enableMultipleStatementsPerQuery();
    QueryFile script(connection, path);
    ASSERT_GE(script.batches().size(), 4U);
    try {
        script.execute();
        ADD_FAILURE();
    } catch (const DatabaseException& e) {
        EXPECT_EQ(e.stringParameter().substr(0, 39), "Duplicate entry '2' for key 'PRIMARY' :");
    }
    EXPECT_EQ(connection.errorNumber(), 1062);
    EXPECT_EQ(value("SELECT GROUP_CONCAT(id) FROM t"), "1,2");
}

TEST_F(Scripts, LoadedTextsComeBackUnchanged)
{
    std::string everyAscii;
    for (int c = 0; c < 128; ++c) {
        everyAscii += static_cast<char>(c);
    }
    std::string everyByte;
    for (int c = 0; c < 256; ++c) {
        everyByte += static_cast<char>(c);
    }
    const std::vector<std::string> texts = {
        everyAscii, "\\N", "", "\\", "\t\n\r", "\"'`", "\xf0\x9f\x98\x80 \xc3\xa9", "\x1a", "NULL"};
    for (const std::string set : {"latin1", "utf8mb3", "utf8mb4"}) {
        SCOPED_TRACE(set);
        const std::string name = database + "_" + set;
        run("CREATE DATABASE " + name + " CHARACTER SET " + set);
        run("CREATE TABLE " + name +
            ".t (id INT PRIMARY KEY, b BLOB, "
            "s TEXT CHARACTER SET utf8mb4)");
        std::string file = "0\t" + escaped(everyByte) + "\t\\N\n100\tearlier\tx\n";
        for (std::size_t i = 0; i < texts.size(); ++i) {
            file +=
                std::to_string(i + 1) + '\t' + escaped(texts[i]) + '\t' + escaped(texts[i]) + '\n';
        }
        EXPECT_EQ(load(file + "100\tlater\tx\n", name), "");
        const auto at = [&](const char* column, std::size_t id) {
            return value(std::string("SELECT ") + column + " FROM " + name +
                         ".t WHERE id=" + std::to_string(id));
        };
        EXPECT_EQ(at("b", 0), everyByte);
        EXPECT_EQ(at("s IS NULL", 0), "1");
        EXPECT_EQ(at("b", 100), "later");
        for (std::size_t i = 0; i < texts.size(); ++i) {
            EXPECT_EQ(at("b", i + 1), texts[i]);
            EXPECT_EQ(at("s", i + 1), texts[i]);
        }
        run("DROP DATABASE " + name);
    }
}

TEST_F(Scripts, ARefusedLoadEmptiesTheTableAndSaysWhy)
{
    run("CREATE TABLE t (id INT PRIMARY KEY, n INT)");
    const struct {
        const char* content;
        const char* failure;
    } rows[] = {
        {"1\n", "1261 Row 1 doesn't contain data for all columns"},
        {"1\t2\t3\n", "1262 Row 1 was truncated; it contained more data than there were input "
                      "columns"},
        {"1\tx\n", "1366 Incorrect integer value: 'x' for column"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(load("7\t8\n", database), "");
        EXPECT_EQ(value("SELECT CONCAT(id, n) FROM t"), "78");
        EXPECT_EQ(load(row.content, database).substr(0, std::string(row.failure).size()),
                  row.failure);
        EXPECT_EQ(value("SELECT COUNT(*) FROM t"), "0");
    }
    EXPECT_EQ(load("", "no_such_database").substr(2), "database not exist");
    EXPECT_EQ(connection.state(), Connection::Connected);
    run("DROP TABLE t");
    EXPECT_EQ(load("", database).substr(2), "table not exist");
}

TEST_F(Scripts, CatalogFollowsTheTables)
{
    EXPECT_TRUE(QueryTableNames(connection).names().empty());
    run("CREATE TABLE orders (id INT, name VARCHAR(20))");
    run("CREATE TABLE `My_table` (id INT)");
    EXPECT_EQ(QueryTableNames(connection).names(), (std::set<std::string>{"My_table", "orders"}));
    EXPECT_TRUE(QueryTableExists(connection, "orders").exists());
    EXPECT_TRUE(QueryTableExists(connection, "o%").exists());
    EXPECT_FALSE(QueryTableExists(connection, "order").exists());
    EXPECT_EQ(QueryDescribeTable(connection, "orders").fields().back().type, "varchar(20)");
    EXPECT_THROW(QueryDescribeTable(connection, "none"), DatabaseException);
    EXPECT_EQ(QueryCount(connection, "SELECT COUNT(*) FROM orders").count(), 0);
    EXPECT_EQ(QueryCount(connection, "SELECT COUNT(*) FROM seq_1_to_12").count(), 12);
    EXPECT_EQ(QueryCount(connection, "SELECT 1 FROM orders GROUP BY id HAVING id=1").count(), 0);
}

} // namespace
