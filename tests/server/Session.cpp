#include "ServerTest.h"

#include <KestroDatabase>
#include <KestroTableMap>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <mysql.h>
#include <set>
#include <thread>
#include <unistd.h>

namespace {

// Set before the first link is opened: that is when the Connector would have it ignored.
[[maybe_unused]] const sighandler_t inherited = std::signal(SIGPIPE, SIG_DFL);

class Session : public ServerTest {
protected:
    // Writes the bytes into a table by a literal and reads them back.
    std::string roundTrip(const std::string& bytes)
    {
        run("CREATE OR REPLACE TABLE bytes (b BLOB)");
        run("INSERT INTO bytes VALUES (" + Kestro::Database::literal(bytes) + ")");
        return value("SELECT b FROM bytes");
    }
};

TEST_F(Session, IsTheSameWhateverTheGlobalMode)
{
    for (const std::string mode :
         {"ANSI", "ANSI_QUOTES", "NO_BACKSLASH_ESCAPES", "EMPTY_STRING_IS_NULL", "ORACLE", "DB2",
          "MSSQL,MAXDB,POSTGRESQL", "ANSI,ANSI_QUOTES,NO_BACKSLASH_ESCAPES"}) {
        run("SET GLOBAL sql_mode=\"STRICT_ALL_TABLES," + mode + "\"");
        reopen();
        EXPECT_EQ(roundTrip(everyByte()), everyByte()) << mode;
        EXPECT_EQ(value("SELECT CONCAT(\"\" IS NULL, @@sql_mode LIKE \"%STRICT_ALL_TABLES%\", "
                        "@@character_set_client, @@character_set_database)"),
                  "01utf8mb4utf8mb4")
            << mode;
    }
    run("SET GLOBAL sql_mode=DEFAULT");
}

// In every character set that a session can have, a value stays in its literal or is not sent.
TEST_F(Session, IsRefusedOnceEscapedValuesAreUnsafe)
{
    std::string pairs;
    for (const char lead : everyByte()) {
        pairs += {lead, '\'', lead, '"', lead, '\\'};
    }
    std::set<std::string> refused;
    const Handle sets = query("SHOW CHARACTER SET");
    for (int i = 0; at(sets, i) != "NULL"; ++i) {
        reopen();
        // Some sets are for no client: the server refuses them itself.
        if (error("SET NAMES " + at(sets, i)) == 0) {
            if (error("DO 1") != 0) {
                refused.insert(at(sets, i));
            } else {
                EXPECT_EQ(roundTrip(pairs), pairs) << at(sets, i);
            }
        }
    }
    EXPECT_EQ(refused, (std::set<std::string>{"big5", "cp932", "gbk", "sjis"}));
    const std::string blind = " BEGIN SET session_track_state_change=0; "
                              "SET session_track_system_variables=''; SET NAMES gbk; ";
    run("CREATE PROCEDURE blind()" + blind + "END");
    run("CREATE FUNCTION blinding() RETURNS INT" + blind + "RETURN 1; END");
    for (const char* set :
         {"SET sql_mode=ANSI_QUOTES", "SET sql_mode=NO_BACKSLASH_ESCAPES",
          "SET sql_mode=CONCAT(@@sql_mode, ',ANSI')", "SET session_track_state_change=0",
          "SET sql_mode=ANSI; SELECT 1", "SET session_track_system_variables=''",
          "SET session_track_system_variables='character_set_client'",
          "SET @x=1, session_track_schema=0", "CALL blind()", "DO blinding()", "SELECT blinding()",
          "SELECT 1; CALL blind(); SELECT 1",
          "BEGIN NOT ATOMIC SET NAMES gbk; SIGNAL SQLSTATE '45000'; END"}) {
        reopen();
        db_enable_multiple_statements_per_query(link.get());
        error(set);
        EXPECT_EQ(error("CREATE TABLE t (id INT)"), 1231) << set;
    }
    reopen();
    EXPECT_EQ(value("SHOW TABLES LIKE 't'"), "NULL");
}

TEST_F(Session, FailedConnectsTellTheirReasonToTheirThread)
{
    const std::string real = environment("MYSQL_UNIX_PORT");
    const std::string tooLong(200, 'x');
    const Table<std::string, std::string, std::string, int> rows = {{real + ".none", "", "", 2002},
                                                                    {tooLong, "", "", 2001},
                                                                    {real, "none", "", 1049},
                                                                    {real, "", "secret", 1045},
                                                                    {real, tooLong, "", 1102}};
    for (const auto& [socket, name, password, number] : rows) {
        setenv("MYSQL_UNIX_PORT", socket.c_str(), 1);
        run("SET PASSWORD = PASSWORD('" + password + "')");
        EXPECT_EQ(db_connect_unix(name.c_str()), nullptr);
        run("SET PASSWORD = ''");
        EXPECT_EQ(db_error_number(nullptr), number) << db_error_message(nullptr);
        EXPECT_STRNE(db_error_message(nullptr), "");
        std::thread([] { EXPECT_EQ(db_error_number(nullptr), 0); }).join();
    }
    setenv("MYSQL_UNIX_PORT", real.c_str(), 1);
}

// A connection that asked for them keeps them however it is opened again; no other has them.
TEST_F(Session, SeveralStatementsAreAllowedWhereTheyWereAskedFor)
{
    using namespace Kestro::Database;
    const auto carriesTwo = [](Connection& connection) {
        return failureOf([&] { connection.execute("DO 1; DO 2"); }).empty();
    };
    Connection asked("mysql");
    Connection other(database);
    EXPECT_EQ(asked.enableMultipleStatementsPerQuery(), 0);
    EXPECT_TRUE(carriesTwo(asked));
    EXPECT_FALSE(asked.dbSelectIfExists("none"));
    EXPECT_TRUE(carriesTwo(asked));
    EXPECT_FALSE(carriesTwo(other));
    other.disconnect();
    EXPECT_NE(other.enableMultipleStatementsPerQuery(), 0);
    other.connect();
    EXPECT_TRUE(carriesTwo(other));

    ConnectionPool pool(database, "", "", Connection::defaultAddress(), 2);
    RefConnection lent = ConnectionPool::Lock(pool.getConnection(false)).ref();
    lent->connection().enableMultipleStatementsPerQuery();
    EXPECT_TRUE(carriesTwo(pool.reset(lent)->connection()));
    EXPECT_FALSE(carriesTwo(pool.getConnection(false).connection()));
}

// Every answer is the one that a plain link gets.
TEST_F(Session, OurOwnStatementsDoNotShow)
{
    run("CREATE TABLE t (n INT)");
    run("CREATE TRIGGER remembers BEFORE INSERT ON t FOR EACH ROW SET @x = 1");
    run("CREATE FUNCTION remembering() RETURNS INT BEGIN SET @x = 1; RETURN 1; END");
    const std::string insert = "INSERT INTO t VALUES (1), (2), (3)";
    const std::string select = "SELECT seq FROM seq_1_to_3";
    const std::string counts = "SELECT CONCAT(FOUND_ROWS(), ' ', ROW_COUNT())";
    const std::vector<std::vector<std::string>> rows = {
        {select, "FAIL", counts},
        {select, "SET NAMES latin1", counts},
        {select, "SET @x = 1", counts},
        {select, "SET STATEMENT max_statement_time=1 FOR SELECT 7", counts},
        {"SELECT remembering()", counts},
        {insert, "SELECT FOUND_ROWS() * 100 + ROW_COUNT()"},
        {insert, "FAIL", counts},
        {"BEGIN NOT ATOMIC SIGNAL SQLSTATE '45000' SET MYSQL_ERRNO=5, MESSAGE_TEXT='why'; END",
         "SHOW WARNINGS"},
        {"FAIL", "SELECT CONCAT(@@error_count, '!')"},
        {"SET sql_select_limit=0", "SELECT 1", "SET sql_select_limit=DEFAULT", "SELECT 2"},
        {"SET sql_select_limit=0", "FAIL", "SELECT '3' LIMIT 1"},
        {"SET character_set_results=utf16", "SELECT '\xc3\xa9' LIMIT 1"}};
    for (const std::vector<std::string>& texts : rows) {
        const std::unique_ptr<MYSQL, void (*)(MYSQL*)> plain(mysql_init(nullptr), mysql_close);
        mysql_options(plain.get(), MYSQL_SET_CHARSET_NAME, "utf8mb4");
        mysql_real_connect(plain.get(), nullptr, nullptr, nullptr, database.c_str(), 0,
                           std::getenv("MYSQL_UNIX_PORT"), 0);
        reopen();
        for (const std::string& text : texts) {
            SCOPED_TRACE(texts.front() + "; " + text);
            void* result = nullptr;
            const bool failed = db_query(link.get(), text.c_str(), &result) != 0;
            mysql_query(plain.get(), text.c_str());
            EXPECT_EQ(failed ? db_error_number(link.get()) : 0, mysql_errno(plain.get()));
            MYSQL_RES* const stored = mysql_store_result(plain.get());
            char** const row = stored != nullptr ? mysql_fetch_row(stored) : nullptr;
            EXPECT_EQ(at(Handle(result, db_free_result), 0),
                      row != nullptr ? std::string(row[0], *mysql_fetch_lengths(stored)) : "NULL");
            mysql_free_result(stored);
        }
    }
    // A global limit of no rows lets a link open all the same.
    run("SET GLOBAL sql_select_limit=0");
    reopen();
    run("SET GLOBAL sql_select_limit=DEFAULT");
}

TEST_F(Session, AChildLeavesTheParentsLinksAndItsSignals)
{
    EXPECT_EQ(std::signal(SIGPIPE, SIG_DFL), SIG_DFL);
    const Handle idle(db_connect_unix(""), db_disconnect);
    const Handle streamed = query("SELECT seq FROM seq_1_to_100000", false);
    EXPECT_EQ(at(streamed, 0), "1");
    EXPECT_EXIT(
        {
            const int failure = error("DO 1", idle.get());
            db_disconnect(idle.get());
            db_free_result(streamed.get());
            _exit(failure == 2006 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_EQ(at(streamed, 99999), "100000");
    EXPECT_EQ(error("DO 1", idle.get()), 0);
    // A program that is started does not inherit the socket.
    EXPECT_EQ(std::system("for fd in 3 4 5 6 7 8 9; do test ! -S /dev/fd/$fd || exit 1; done"), 0);
}

} // namespace
