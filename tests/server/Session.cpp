#include "ServerTest.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

class Session : public ServerTest {
protected:
    static std::string everyByte()
    {
        std::string bytes;
        for (int c = 0; c < 256; ++c) {
            bytes += static_cast<char>(c);
        }
        return bytes;
    }
    // The bytes through a literal into a table and back.
    std::string roundTrip(const std::string& bytes)
    {
        run("CREATE OR REPLACE TABLE bytes (b BLOB)");
        run("INSERT INTO bytes VALUES (\"" + escaped(bytes) + "\")");
        return value("SELECT b FROM bytes");
    }
    void reopen()
    {
        link.reset(db_connect_unix(database.c_str()));
        ASSERT_NE(link, nullptr) << lastError(nullptr);
    }
};

TEST_F(Session, IsTheSameWhateverTheGlobalMode)
{
    const std::string before = value("SELECT @@GLOBAL.sql_mode");
    for (const std::string mode :
         {"", "ANSI", "ANSI_QUOTES", "NO_BACKSLASH_ESCAPES", "ORACLE", "EMPTY_STRING_IS_NULL",
          "MSSQL,DB2,MAXDB,POSTGRESQL", "ANSI,ANSI_QUOTES,NO_BACKSLASH_ESCAPES"}) {
        SCOPED_TRACE(mode);
        run("SET GLOBAL sql_mode=\"STRICT_ALL_TABLES," + mode + "\"");
        reopen();
        EXPECT_EQ(roundTrip(everyByte()), everyByte());
        EXPECT_EQ(value("SELECT \"\" IS NULL"), "0");
        EXPECT_EQ(value("SELECT @@sql_mode LIKE \"%STRICT_ALL_TABLES%\""), "1");
        EXPECT_EQ(value("SELECT CONCAT(@@character_set_client, @@character_set_database)"),
                  "utf8mb4utf8mb4");
    }
    run("SET GLOBAL sql_mode=\"" + before + "\"");
}

// In every character set that a session can have, a value stays in its literal or is not sent.
TEST_F(Session, IsRefusedOnceItsCharacterSetIsUnsafe)
{
    std::string pairs;
    for (int lead = 0x80; lead < 0x100; ++lead) {
        for (const char second : {'\'', '"', '\\'}) {
            pairs += {static_cast<char>(lead), second};
        }
    }
    std::string refused;
    const Result sets = query("SELECT character_set_name FROM information_schema.character_sets "
                              "ORDER BY character_set_name");
    ASSERT_GT(db_result_row_num(link.get(), sets.get()), 30);
    for (int i = 0; void* const row = db_result_fetch_row(sets.get(), i); ++i) {
        const std::string name = db_result_get_value(nullptr, sets.get(), row, 0);
        SCOPED_TRACE(name);
        reopen();
        if (db_query(link.get(), ("SET NAMES " + name).c_str(), nullptr) != 0) {
            EXPECT_EQ(db_error_number(link.get()), 1231); // the server allows it for no client
        } else if (db_query(link.get(), "DO 1", nullptr) != 0) {
            EXPECT_EQ(db_error_number(link.get()), 1231);
            refused += name + ' ';
        } else {
            EXPECT_EQ(roundTrip(pairs), pairs);
        }
    }
    EXPECT_EQ(refused, "big5 cp932 gbk sjis ");
    reopen();
}

TEST_F(Session, IsRefusedOnceItsModeIsUnsafe)
{
    for (const char* set : {"SET sql_mode=ANSI_QUOTES", "SET sql_mode=NO_BACKSLASH_ESCAPES",
                            "SET SESSION sql_mode=CONCAT(@@sql_mode, ',ANSI')"}) {
        SCOPED_TRACE(set);
        reopen();
        run("CREATE OR REPLACE TABLE t (id VARCHAR(9))");
        run(set);
        EXPECT_NE(refusal("INSERT INTO t VALUES (\"1\")").find("the session's sql_mode has"),
                  std::string::npos);
        reopen();
        EXPECT_EQ(value("SELECT COUNT(*) FROM t"), "0");
    }
}

// A socket on which nobody ever answers, as that of a frozen server.
class SilentSocket {
public:
    explicit SilentSocket(const std::string& path) : m_path(path)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(m_socket, 1), 0);
    }
    SilentSocket(const SilentSocket&) = delete;
    SilentSocket& operator=(const SilentSocket&) = delete;
    ~SilentSocket()
    {
        close(m_socket);
        unlink(m_path.c_str());
    }

private:
    std::string m_path;
    int m_socket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

TEST_F(Session, FailedConnectsTellTheirReasonToTheirThread)
{
    const char* const named = std::getenv("MYSQL_UNIX_PORT");
    ASSERT_NE(named, nullptr);
    const std::string real = named;
    const std::string silent = real + ".silent";
    const SilentSocket frozen(silent);
    const struct {
        std::string socket;
        std::string database;
        bool password;
        int number;
    } rows[] = {
        {real + ".none", "", false, 2002},         {std::string(200, 'x'), "", false, 2001},
        {real, "no_such_database", false, 1049},   {real, "", true, 1045},
        {real, std::string(99, 'x'), false, 1102}, {silent, "", false, 2013},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.number);
        setenv("MYSQL_UNIX_PORT", row.socket.c_str(), 1);
        run(row.password ? "SET PASSWORD = PASSWORD('x')" : "DO 1");
        EXPECT_EQ(Link(db_connect_unix(row.database.c_str())), nullptr);
        run(row.password ? "SET PASSWORD = ''" : "DO 1");
        EXPECT_EQ(db_error_number(nullptr), row.number);
        EXPECT_STRNE(db_error_message(nullptr), "");
        std::thread([] {
            EXPECT_EQ(db_error_number(nullptr), 0);
            EXPECT_STREQ(db_error_message(nullptr), "");
        }).join();
    }
    setenv("MYSQL_UNIX_PORT", real.c_str(), 1);
}

TEST_F(Session, SeveralStatementsStayAllowedOnTheThreadsNextLink)
{
    const std::string two = "DO 1; DO 2";
    EXPECT_EQ(refusal(two).substr(0, 4), "1064");
    EXPECT_EQ(db_enable_multiple_statements_per_query(link.get()), 0);
    run(two);
    link.reset();
    EXPECT_EQ(db_connect_unix("no_such_database"), nullptr);
    std::thread([&] {
        const Link foreign(db_connect_unix(""));
        EXPECT_NE(db_query(foreign.get(), two.c_str(), nullptr), 0);
    }).join();
    reopen();
    run(two);
    const Link second(db_connect_unix(""));
    EXPECT_NE(db_query(second.get(), two.c_str(), nullptr), 0);
}

TEST_F(Session, AChildsExitLeavesTheParentsLink)
{
    int sockets = 0;
    for (int fd = 3; fd < 100; ++fd) {
        sockaddr_un peer{};
        socklen_t size = sizeof peer;
        if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &size) == 0) {
            EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
            ++sockets;
        }
    }
    EXPECT_GE(sockets, 1);
    const Result streamed = query("SELECT seq FROM seq_1_to_100000", false);
    ASSERT_NE(db_result_fetch_row(streamed.get(), 0), nullptr);
    const pid_t child = fork();
    if (child == 0) {
        db_disconnect(link.get());
        _exit(0);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_NE(db_result_fetch_row(streamed.get(), 99999), nullptr);
}

TEST_F(Session, FilesOfTheClientAreNotRead)
{
    run("CREATE TABLE t (line TEXT)");
    EXPECT_NE(refusal("LOAD DATA LOCAL INFILE '/etc/passwd' INTO TABLE t"), "");
    EXPECT_EQ(value("SELECT COUNT(*) FROM t"), "0");
}

} // namespace
