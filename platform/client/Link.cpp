#include "Link.h"

#include "Result.h"
#include "Text.h"

#include <db_client.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <errmsg.h>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <mysqld_error.h>
#include <poll.h>
#include <pthread.h>
#include <pwd.h>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace client {

namespace {

constexpr unsigned ConnectTimeout = 5; // seconds
constexpr int NoTimeout = -1;          // of poll

// What the server counts beside the text; one byte more, and it drops the link (measured from
// 1 MiB to 64 MiB).
constexpr std::size_t PacketOverhead = 2;

// Makes the session the same whatever the server's global settings are. Values are written in "..."
// with \ escapes, so the two modes that change what these mean go, with the six combined modes that
// bring them back, and so does the one that makes "" a NULL. Every other mode stays.
// character_set_database is what LOAD DATA INFILE reads files in. The two session_track variables
// have the server report that a statement changed the session, or stopped these reports.
constexpr char SessionSetup[] =
    "SET NAMES utf8mb4, SESSION character_set_database=utf8mb4, "
    "SESSION session_track_state_change=1, "
    "SESSION session_track_system_variables='session_track_state_change', "
    "SESSION sql_mode=REPLACE(REPLACE(REPLACE(REPLACE(REPLACE(REPLACE(REPLACE(REPLACE(REPLACE("
    "CONCAT(',',@@SESSION.sql_mode,','),',ANSI_QUOTES,',','),',NO_BACKSLASH_ESCAPES,',','),"
    "',ANSI,',','),',DB2,',','),',MAXDB,',','),',MSSQL,',','),',ORACLE,',','),',POSTGRESQL,',','),"
    "',EMPTY_STRING_IS_NULL,',',')";

// In these a character's second byte may be a backslash or a quote.
constexpr std::string_view UnsafeCharacterSets[] = {"big5", "cp932", "gbk", "sjis", "gb18030"};
constexpr std::string_view UnsafeModes[] = {"ANSI_QUOTES", "NO_BACKSLASH_ESCAPES"};

// Counts the forks between the first process and this one.
std::atomic<unsigned> currentGeneration{0};

// Set when a link with several statements per query is closed, for the thread's next link.
thread_local bool multipleStatementsPromised = false;

void initialiseConnector()
{
    // mysql_library_init ignores SIGPIPE for the whole process, which is the program's to decide;
    // the Connector's sockets do not need it.
    struct sigaction pipeAction {};
    sigaction(SIGPIPE, nullptr, &pipeAction);
    mysql_library_init(0, nullptr, nullptr);
    sigaction(SIGPIPE, &pipeAction, nullptr);
    pthread_atfork(nullptr, nullptr, [] { ++currentGeneration; });
}

// Left to itself, the Connector takes an empty MYSQL_UNIX_PORT for a path.
const char* socketPath()
{
    static constexpr char SystemSocket[] = "/var/run/mysql.sock";
    const char* named = std::getenv("MYSQL_UNIX_PORT");
    if (named != nullptr && *named != '\0') {
        return named;
    }
    return access(SystemSocket, F_OK) == 0 ? SystemSocket : MARIADB_UNIX_ADDR;
}

// The Connector's own look-up of a null user is not safe in threads, and for a user without a name
// it takes what the environment says: the number stands in for a name then.
std::string loginName()
{
    constexpr std::size_t EntryLimit = 16384; // glibc's own buffer for a passwd entry is 1024
    char buffer[EntryLimit];
    passwd entry{};
    passwd* found = nullptr;
    getpwuid_r(geteuid(), &entry, buffer, sizeof buffer, &found);
    return found != nullptr ? found->pw_name : std::to_string(geteuid());
}

// Opens a link with the session set up; on failure the number and text stay on the object.
bool connect(MYSQL* mysql, const std::string& database, bool multipleStatements)
{
    const unsigned timeout = ConnectTimeout;
    const unsigned localInfile = 0;
    const unsigned protocol = MYSQL_PROTOCOL_SOCKET;
    mysql_options(mysql, MYSQL_OPT_CONNECT_TIMEOUT, &timeout);
    mysql_options(mysql, MYSQL_OPT_LOCAL_INFILE, &localInfile);
    mysql_options(mysql, MYSQL_OPT_PROTOCOL, &protocol);
    mysql_options(mysql, MYSQL_SET_CHARSET_NAME, "utf8mb4");
    mysql_options(mysql, MYSQL_INIT_COMMAND, SessionSetup);
    const std::string user = loginName();
    if (mysql_real_connect(mysql, nullptr, user.c_str(), nullptr, database.c_str(), 0, socketPath(),
                           multipleStatements ? CLIENT_MULTI_STATEMENTS : 0) == nullptr) {
        return false;
    }
    fcntl(mysql_get_socket(mysql), F_SETFD, FD_CLOEXEC);
    return true;
}

// The values of the only row; empty if the statement fails, as the object tells, or is not answered
// within the timeout, in milliseconds, -1 for none.
std::vector<std::string> queryRow(MYSQL* mysql, std::string_view text, int timeout)
{
    std::vector<std::string> values;
    if (mysql_send_query(mysql, text.data(), text.size()) != 0) {
        return values;
    }
    pollfd socket{mysql_get_socket(mysql), POLLIN, 0};
    if (poll(&socket, 1, timeout) == 0 || mysql_read_query_result(mysql) != 0) {
        return values;
    }
    if (MYSQL_RES* result = mysql_store_result(mysql)) {
        if (MYSQL_ROW row = mysql_fetch_row(result)) {
            values.assign(row, row + mysql_num_fields(result));
        }
        mysql_free_result(result);
    }
    return values;
}

} // namespace

Link::Link(const char* databaseName, bool multipleStatementsOn)
    : database(databaseName), generation(currentGeneration),
      multipleStatements(multipleStatementsOn)
{}

Link::~Link()
{
    mysql_close(mysql);
}

int Link::open()
{
    // A handle whose connect failed, or whose link was lost, cannot connect again.
    mysql_close(std::exchange(mysql, mysql_init(nullptr)));
    if (mysql == nullptr) {
        return fail(CR_OUT_OF_MEMORY, "Client run out of memory");
    }
    std::vector<std::string> limit;
    if (connect(mysql, database, multipleStatements)) {
        limit = queryRow(mysql, "SELECT @@SESSION.max_allowed_packet",
                         static_cast<int>(ConnectTimeout) * 1000);
    }
    if (limit.empty()) {
        return mysql_errno(mysql) != 0
                   ? fail()
                   : fail(CR_SERVER_LOST, "Lost connection to server: no answer");
    }
    maxAllowedPacket = std::stoul(limit.front());
    sessionKnown = true;
    sessionFresh = true;
    lossTold = false;
    noteTransaction();
    return 0;
}

int Link::ready(std::string_view text)
{
    if (ofParent()) {
        return fail(CR_SERVER_GONE_ERROR,
                    "MySQL server has gone away (the connection is the parent process's)");
    }
    if (stream != nullptr) {
        return fail(CR_COMMANDS_OUT_OF_SYNC,
                    "Commands out of sync; a result of this connection is still being streamed");
    }
    return lossTold ? replace() : checkSession(text);
}

int Link::send(std::string_view text)
{
    if (ready(text) != 0 || fits(text) != 0) {
        return 1;
    }
    if (mysql_send_query(mysql, text.data(), text.size()) == 0) {
        return 0;
    }
    if (!isLost()) {
        return fail();
    }
    if (lost(text) != 0 || fits(text) != 0) {
        return 1;
    }
    return mysql_send_query(mysql, text.data(), text.size()) == 0 ? 0 : fail();
}

int Link::enableMultipleStatements()
{
    if (ready("") != 0) {
        return 1;
    }
    int failed = mysql_set_server_option(mysql, MYSQL_OPTION_MULTI_STATEMENTS_ON);
    if (failed != 0 && isLost()) {
        if (lost("") != 0) {
            return 1;
        }
        failed = mysql_set_server_option(mysql, MYSQL_OPTION_MULTI_STATEMENTS_ON);
    }
    if (failed != 0) {
        return fail();
    }
    multipleStatements = true;
    return 0;
}

int Link::fits(std::string_view text)
{
    if (text.size() + PacketOverhead <= maxAllowedPacket) {
        return 0;
    }
    return fail(ER_NET_PACKET_TOO_LARGE,
                "Got a packet bigger than 'max_allowed_packet' bytes: a statement of " +
                    std::to_string(text.size()) + " bytes is too long for max_allowed_packet=" +
                    std::to_string(maxAllowedPacket) + "; it was not sent");
}

bool Link::isLost() const
{
    const unsigned number = mysql_errno(mysql);
    return number == CR_SERVER_GONE_ERROR || number == CR_SERVER_LOST;
}

// Before the server has a text as a whole: a part of one it does not run.
int Link::lost(std::string_view text)
{
    if (!mayBeReplaced(text)) {
        lossTold = true;
        return fail(CR_SERVER_GONE_ERROR,
                    "MySQL server has gone away, and what the session held is lost; the "
                    "statement was not sent, the next one has a fresh session");
    }
    return replace();
}

bool Link::mayBeReplaced(std::string_view text) const
{
    return sessionFresh && autocommitted && !asksAboutTheLast(text);
}

// When a link is lost, the Connector forgets what it knew of the transaction.
void Link::noteTransaction()
{
    constexpr unsigned Transaction = SERVER_STATUS_IN_TRANS | SERVER_STATUS_AUTOCOMMIT;
    autocommitted = (mysql->server_status & Transaction) == SERVER_STATUS_AUTOCOMMIT;
}

int Link::replace()
{
    if (open() == 0) {
        return 0;
    }
    // One number for all that was not sent; 2013, which a connect can end with too, would say that
    // the statement may have run.
    lossTold = true;
    return fail(CR_SERVER_GONE_ERROR,
                "MySQL server has gone away; opening the connection again: " + failure.text + " (" +
                    std::to_string(failure.number) + ')');
}

int Link::fail()
{
    sessionKnown = false;
    lossTold |= isLost();
    return fail(static_cast<int>(mysql_errno(mysql)), mysql_error(mysql));
}

int Link::fail(int number, std::string text)
{
    failure = {number, std::move(text)};
    return 1;
}

void Link::ended(std::uint64_t rows)
{
    affectedRows = rows;
    noteTransaction();
    if (const std::uint64_t id = mysql_insert_id(mysql)) {
        lastId = id;
    }
    if ((mysql->server_status & SERVER_SESSION_STATE_CHANGED) != 0) {
        sessionKnown = false;
        sessionFresh = false;
        if (mysql->db != nullptr) { // the Connector follows USE
            database = mysql->db;
        }
    }
}

int Link::checkSession(std::string_view text)
{
    if (sessionKnown) {
        return 0;
    }
    const std::vector<std::string> session = queryRow(
        mysql, "SELECT @@SESSION.sql_mode, @@character_set_client, @@session_track_state_change",
        NoTimeout);
    if (session.empty()) {
        return isLost() ? lost(text) : fail();
    }
    noteTransaction();
    const auto refuse = [this](const std::string& reason) {
        return fail(ER_WRONG_VALUE_FOR_VAR,
                    "Escaped values are not safe on this connection any more: " + reason +
                        "; the statement was not sent, open the connection again");
    };
    for (const std::string_view mode : UnsafeModes) {
        if (session[0].find(mode) != std::string::npos) {
            return refuse("the session's sql_mode has " + std::string(mode));
        }
    }
    if (std::ranges::count(UnsafeCharacterSets, session[1]) > 0) {
        return refuse("a character of the session's character set " + session[1] +
                      " may hold a quote or a backslash");
    }
    if (session[2] != "1") {
        return refuse("session_track_state_change was switched off");
    }
    sessionKnown = true;
    return 0;
}

bool Link::ofParent() const
{
    return generation != currentGeneration;
}

void Link::detachSocket() const
{
    const int own = mysql_get_socket(mysql);
    const int nowhere = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (nowhere < 0) {
        close(own);
        return;
    }
    dup2(nowhere, own);
    close(nowhere);
}

Failure& failureWithoutLink()
{
    thread_local Failure failure;
    return failure;
}

int failNotConnected()
{
    failureWithoutLink() = {CR_SERVER_GONE_ERROR, "MySQL server has gone away (not connected)"};
    return 1;
}

} // namespace client

using client::Link;

void* db_connect_unix(const char* database)
{
    static std::once_flag initialised;
    std::call_once(initialised, client::initialiseConnector);

    auto link = std::make_unique<Link>(database, client::multipleStatementsPromised);
    if (link->open() != 0) {
        client::failureWithoutLink() = link->failure;
        return nullptr;
    }
    client::multipleStatementsPromised = false;
    return link.release();
}

void db_disconnect(void* handle)
{
    const std::unique_ptr<Link> link(static_cast<Link*>(handle));
    if (!link) {
        return;
    }
    if (link->ofParent()) {
        link->detachSocket();
    }
    if (link->stream != nullptr) {
        // The rest of the rows is not waited for.
        shutdown(mysql_get_socket(link->mysql), SHUT_RDWR);
        link->stream->linkCloses();
    }
    if (link->multipleStatements) {
        client::multipleStatementsPromised = true;
    }
}

int db_error_number(void* handle)
{
    return (handle != nullptr ? static_cast<Link*>(handle)->failure : client::failureWithoutLink())
        .number;
}

const char* db_error_message(void* handle)
{
    return (handle != nullptr ? static_cast<Link*>(handle)->failure : client::failureWithoutLink())
        .text.c_str();
}

int db_enable_multiple_statements_per_query(void* handle)
{
    auto* link = static_cast<Link*>(handle);
    if (link == nullptr) {
        return client::failNotConnected();
    }
    return link->enableMultipleStatements();
}
