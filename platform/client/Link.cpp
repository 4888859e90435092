#include "Link.h"

#include "Result.h"

#include <db_client.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <errmsg.h>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <mutex>
#include <mysqld_error.h>
#include <new>
#include <pthread.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace client {

namespace {

constexpr unsigned ConnectTimeout = 5; // seconds

// Commands of the protocol.
constexpr unsigned char ComQuery = 3;
constexpr unsigned char ComSetOption = 27;
// The first byte of a packet that is neither a row nor the head of a result set.
constexpr unsigned char OkPacket = 0;
constexpr unsigned char FileRequest = 0xfb;
constexpr unsigned char EndPacket = 0xfe;
constexpr unsigned char ErrorPacket = 0xff;
constexpr std::size_t EndLimit = 9; // from this size on it is a row that begins with a long value
constexpr std::uint64_t ProgressNumber = 0xffff; // an error of this number reports progress
constexpr std::uint64_t MostColumns = 4096;      // the server's own limit

// The server counts so many bytes beside the text. It closes the connection if the sum exceeds
// max_allowed_packet (measured with limits from 1 MiB to 64 MiB).
constexpr std::size_t PacketOverhead = 2;

// Counts the forks between the first process and this one.
std::atomic<unsigned> currentGeneration{0};

void initialiseConnector()
{
    // mysql_library_init makes the whole process ignore SIGPIPE. The Connector does not need that,
    // and the program decides about its signals.
    struct sigaction pipeAction {};
    sigaction(SIGPIPE, nullptr, &pipeAction);
    mysql_library_init(0, nullptr, nullptr);
    sigaction(SIGPIPE, &pipeAction, nullptr);
    pthread_atfork(nullptr, nullptr, [] { ++currentGeneration; });
}

// Not left to the Connector, which uses an empty MYSQL_UNIX_PORT as a path.
const char* socketPath()
{
    static constexpr char SystemSocket[] = "/var/run/mysql.sock";
    const char* named = std::getenv("MYSQL_UNIX_PORT");
    if (named != nullptr && *named != '\0') {
        return named;
    }
    return access(SystemSocket, F_OK) == 0 ? SystemSocket : MARIADB_UNIX_ADDR;
}

// Not left to the Connector, whose look-up is not thread-safe and takes the name from the
// environment if the user has no passwd entry. Such a user logs in under the number of his account.
std::string loginName()
{
    constexpr std::size_t EntryLimit = 16384; // glibc's own buffer for a passwd entry is 1024
    char buffer[EntryLimit];
    passwd entry{};
    passwd* found = nullptr;
    getpwuid_r(geteuid(), &entry, buffer, sizeof buffer, &found);
    return found != nullptr ? found->pw_name : std::to_string(geteuid());
}

} // namespace

Link::Link(const char* database)
    : m_session(database), m_generation(currentGeneration), m_socketPath(socketPath()),
      m_user(loginName()), m_maxAllowedPacket(std::numeric_limits<std::uint64_t>::max())
{}

Link::~Link()
{
    if (ofParent()) {
        detachSocket();
    }
    if (m_stream != nullptr) {
        // Without waiting for the rest of the rows.
        shutdown(m_wire.socket(), SHUT_RDWR);
        m_stream->linkCloses();
    }
    mysql_close(m_mysql);
}

int Link::open()
{
    m_state = State::Told;
    m_wire.attach(-1);
    // The Connector cannot connect again with the same MYSQL object.
    mysql_close(std::exchange(m_mysql, mysql_init(nullptr)));
    if (m_mysql == nullptr) {
        return fail(CR_OUT_OF_MEMORY, "Client run out of memory");
    }
    if (!logIn()) {
        return fail(static_cast<int>(mysql_errno(m_mysql)), mysql_error(m_mysql));
    }
    if (!isPlain()) {
        return fail(CR_UNKNOWN_ERROR,
                    "The connection is not a plain local one: TLS, compression or "
                    "another form of packets is on, which this client does not "
                    "speak");
    }
    attach(mysql_get_socket(m_mysql));
    m_wire.limitTime(static_cast<int>(ConnectTimeout) * 1000);
    const int failed = prepareSession();
    m_wire.limitTime(-1);
    if (failed != 0) {
        m_state = State::Told;
        return 1;
    }
    return 0;
}

bool Link::logIn()
{
    const unsigned timeout = ConnectTimeout;
    const unsigned localInfile = 0;
    const unsigned protocol = MYSQL_PROTOCOL_SOCKET;
    mysql_options(m_mysql, MYSQL_OPT_CONNECT_TIMEOUT, &timeout);
    mysql_options(m_mysql, MYSQL_OPT_LOCAL_INFILE, &localInfile);
    mysql_options(m_mysql, MYSQL_OPT_PROTOCOL, &protocol);
    mysql_options(m_mysql, MYSQL_SET_CHARSET_NAME, "utf8mb4");
    if (mysql_real_connect(m_mysql, nullptr, m_user.c_str(), nullptr, m_session.database().c_str(),
                           0, m_socketPath.c_str(),
                           m_multipleStatements ? CLIENT_MULTI_STATEMENTS : 0) == nullptr) {
        return false;
    }
    fcntl(mysql_get_socket(m_mysql), F_SETFD, FD_CLOEXEC);
    return true;
}

// Whether the packets have the form that is read here.
bool Link::isPlain() const
{
    // The Connector's header lacks these flags of the protocol: result sets end with an OK packet,
    // they may come without descriptions, and texts are sent with attributes before them.
    constexpr unsigned long DeprecateEof = 1UL << 24;
    constexpr unsigned long OptionalDescriptions = 1UL << 25;
    constexpr unsigned long QueryAttributes = 1UL << 27;
    constexpr unsigned long Foreign = CLIENT_SSL | CLIENT_COMPRESS | CLIENT_ZSTD_COMPRESSION |
                                      DeprecateEof | OptionalDescriptions | QueryAttributes;
    return (m_mysql->client_flag & Foreign) == 0 && mysql_get_ssl_cipher(m_mysql) == nullptr;
}

void Link::attach(int socket)
{
    m_wire.attach(socket);
    m_session.begin(SERVER_STATUS_AUTOCOMMIT);
    m_state = State::Open;
}

int Link::prepareSession()
{
    const std::uint64_t rows = m_affectedRows; // the program's own statement set it
    // With a limit, because the server's sql_select_limit may be 0.
    if (!m_wire.send(ComQuery, "SELECT @@max_allowed_packet LIMIT 1")) {
        return noPacket();
    }
    const int columns = readHead();
    if (columns <= 0) {
        return columns < 0 ? 1 : malformed("no columns where one was asked for");
    }
    Result limit(*this, columns);
    if (limit.store() != 0) {
        return 1;
    }
    const char* const value = limit.value(limit.fetch(0), 0);
    m_maxAllowedPacket = value != nullptr ? std::strtoull(value, nullptr, 10) : 0;
    m_affectedRows = rows;
    m_answers = 0;
    if (!m_wire.send(ComQuery, Session::Setup)) {
        return noPacket();
    }
    if (readHead() != 0) {
        return m_answerFailed ? 1 : malformed("columns where none were asked for");
    }
    m_session.begin(m_status);
    return 0;
}

int Link::ready(std::string_view text)
{
    if (ofParent()) {
        return fail(CR_SERVER_GONE_ERROR,
                    "MySQL server has gone away (the connection is the parent process's)");
    }
    if (m_stream != nullptr) {
        return fail(CR_COMMANDS_OUT_OF_SYNC,
                    "Commands out of sync; a result of this connection is still being streamed");
    }
    switch (m_state) {
    case State::Told:
        return replace();
    case State::Lost:
        return lost(text);
    default:
        return m_session.isSafe() ? 0 : checkSession(text);
    }
}

int Link::send(std::string_view text)
{
    m_answers = 0;
    if (ready(text) != 0 || fits(text) != 0) {
        return 1;
    }
    if (!m_wire.send(ComQuery, text)) {
        if (lost(text) != 0 || fits(text) != 0) {
            return 1;
        }
        if (!m_wire.send(ComQuery, text)) {
            m_state = State::Told;
            return fail(CR_SERVER_GONE_ERROR, "MySQL server has gone away");
        }
    }
    m_session.sends(text);
    return 0;
}

int Link::enableMultipleStatements()
{
    if (ofParent() || m_stream != nullptr) {
        return ready("");
    }
    m_multipleStatements = true;
    return m_state == State::Open ? sendOption() : 0;
}

// Sets the server's option that allows several statements. A connection that is lost meanwhile is
// no failure: the next statement reports the loss, and logging in sets the option.
int Link::sendOption()
{
    constexpr std::string_view On("\0\0", 2);
    constexpr std::string_view Off("\1\0", 2);
    std::size_t size = 0;
    const unsigned char* packet = nullptr;
    if (m_wire.send(ComSetOption, m_multipleStatements ? On : Off)) {
        packet = m_wire.receive(size);
    }
    if (packet == nullptr && m_wire.fault() == nullptr) {
        m_state = State::Lost;
        return 0;
    }
    if (packet != nullptr && size != 0) {
        if (packet[0] == ErrorPacket) {
            readError(packet, size);
            return 1;
        }
        if (packet[0] == EndPacket) {
            return readEnd(packet, size) == 0 ? 0 : 1;
        }
    }
    return malformed("an option is not answered");
}

int Link::fits(std::string_view text)
{
    if (text.size() + PacketOverhead <= m_maxAllowedPacket) {
        return 0;
    }
    return fail(ER_NET_PACKET_TOO_LARGE,
                "Got a packet bigger than 'max_allowed_packet' bytes: a statement of " +
                    std::to_string(text.size()) + " bytes is too long for max_allowed_packet=" +
                    std::to_string(m_maxAllowedPacket) + "; it was not sent");
}

// Handles a loss before the server has the whole text. A part of a text is never run.
int Link::lost(std::string_view text)
{
    if (!m_session.mayBeReplaced(text)) {
        m_state = State::Told;
        return fail(CR_SERVER_GONE_ERROR,
                    "MySQL server has gone away, and what the session held is lost; the "
                    "statement was not sent, the next one has a fresh session");
    }
    return replace();
}

int Link::replace()
{
    if (open() == 0) {
        return 0;
    }
    // Always 2006: a failed connect may report 2013, which would mean that the statement may have
    // run.
    m_state = State::Told;
    return fail(CR_SERVER_GONE_ERROR,
                "MySQL server has gone away; opening the connection again: " + m_failure.text +
                    " (" + std::to_string(m_failure.number) + ')');
}

int Link::checkSession(std::string_view text)
{
    if (m_session.mustAsk(text)) {
        const bool counted = m_answerCounts;
        m_session.asks();
        if (!m_wire.send(ComQuery, Session::Question)) {
            return lost(text);
        }
        if (readHead() != 0) {
            if (m_state == State::Open) {
                return m_answerFailed ? 1 : malformed("columns where none were asked for");
            }
            return lost(text);
        }
        // ROW_COUNT() was -1 if the last answer was a result set or a failure. Setting the option
        // makes it -1 again.
        if (!counted && sendOption() != 0) {
            return 1;
        }
        if (m_state != State::Open) {
            return lost(text);
        }
    }
    const std::string reason = m_session.whyUnsafe();
    if (!reason.empty()) {
        return fail(ER_WRONG_VALUE_FOR_VAR,
                    "Escaped values are not safe on this connection any more: " + reason +
                        "; the statement was not sent, open the connection again");
    }
    return 0;
}

int Link::readHead()
{
    m_answerFailed = false;
    m_insertId = 0;
    for (bool fileRefused = false;;) {
        std::size_t size;
        const unsigned char* const packet = m_wire.receive(size);
        if (packet == nullptr) {
            return noPacket();
        }
        if (size == 0) {
            return malformed("an empty packet where an answer begins");
        }
        switch (packet[0]) {
        case ErrorPacket:
            if (size > 2 && Fields(packet + 1, 2).fixed(2) == ProgressNumber) {
                continue;
            }
            return readError(packet, size);
        case FileRequest:
            // No file is sent: an empty packet means the end of its content.
            fileRefused = true;
            if (!m_wire.sendEmpty()) {
                return noPacket();
            }
            continue;
        case OkPacket:
            if (readOk(packet, size) == 0 && fileRefused) {
                if (moreAnswers()) {
                    return malformed("a file is asked for in the midst of a text");
                }
                m_answerFailed = true;
                fail(ER_LOAD_INFILE_CAPABILITY_DISABLED, "The server asked for a file of this "
                                                         "program's, and did not get it");
            }
            return m_answerFailed ? -1 : 0;
        default:
            return readDescriptions(packet, size);
        }
    }
}

// Skips the descriptions of the columns: no function returns anything from them.
int Link::readDescriptions(const unsigned char* packet, std::size_t size)
{
    Fields fields(packet, size);
    const std::uint64_t columns = fields.number();
    if (fields.broken() || columns == 0 || columns > MostColumns) {
        return malformed("a result set of an impossible number of columns");
    }
    std::uint64_t read = 0;
    do {
        packet = m_wire.receive(size);
    } while (packet != nullptr && size != 0 && packet[0] < EndPacket && read++ != columns);
    if (packet == nullptr) {
        return noPacket();
    }
    if (size != 0 && packet[0] == ErrorPacket) {
        return readError(packet, size);
    }
    if (size == 0 || packet[0] != EndPacket || read != columns) {
        return malformed("not as many columns as announced");
    }
    return readEnd(packet, size) == 0 ? static_cast<int>(columns) : -1;
}

void Link::dropRows()
{
    Failure before = std::move(m_failure);
    std::size_t size;
    try {
        while (readRow(size) != nullptr) {
        }
    } catch (const std::bad_alloc&) {
        malformed("a row that memory cannot hold");
    }
    // Nobody sees the failure, which may have ended the transaction: the connection counts as lost.
    if (m_answerFailed && (m_state == State::Told || (m_status & SERVER_STATUS_IN_TRANS) != 0)) {
        m_state = State::Lost;
    }
    m_failure = std::move(before);
}

[[gnu::noinline]] unsigned char* Link::readLast(unsigned char* packet, std::size_t size)
{
    if (packet == nullptr) {
        noPacket();
    } else if (size == 0) {
        malformed("an empty packet where a row begins");
    } else if (packet[0] == ErrorPacket) {
        readError(packet, size);
    } else if (size >= EndLimit) {
        return packet;
    } else {
        readEnd(packet, size);
    }
    return nullptr;
}

// These three return 0, or -1 if the answer is a failure.
int Link::readOk(const unsigned char* packet, std::size_t size)
{
    Fields fields(packet + 1, size - 1);
    m_changedRows = fields.number();
    m_insertId = fields.number();
    m_status = static_cast<unsigned>(fields.fixed(2));
    m_answerCounts = true;
    std::string_view changes;
    if ((m_status & SERVER_SESSION_STATE_CHANGED) != 0) {
        fields.fixed(2); // warnings
        fields.text();   // information
        changes = fields.text();
    }
    if (fields.broken() || !m_session.replied(m_status, changes)) {
        return malformed("an OK that ends too early");
    }
    return 0;
}

int Link::readEnd(const unsigned char* packet, std::size_t size)
{
    Fields fields(packet + 1, size - 1);
    fields.fixed(2); // warnings
    m_status = static_cast<unsigned>(fields.fixed(2));
    m_answerCounts = false;
    if (fields.broken()) {
        return malformed("an end of rows that ends too early");
    }
    m_session.replied(m_status);
    return 0;
}

int Link::readError(const unsigned char* packet, std::size_t size)
{
    Fields fields(packet + 1, size - 1);
    const auto number = static_cast<int>(fields.fixed(2));
    std::string_view text = fields.text(fields.left());
    constexpr std::size_t StateSize = 6; // # and five characters before the message
    if (number == 0 || fields.broken()) {
        return malformed("an error without a number");
    }
    if (text.starts_with('#') && text.size() >= StateSize) {
        text.remove_prefix(StateSize);
    }
    m_status &= ~static_cast<unsigned>(SERVER_MORE_RESULTS_EXIST);
    m_answerFailed = true;
    m_answerCounts = false;
    m_session.failed();
    if (number == ER_CONNECTION_KILLED || number == ER_SERVER_SHUTDOWN) {
        m_state = State::Told; // the server closes the connection now
    }
    fail(number, std::string(text));
    return -1;
}

// Handles a failure of Wire::receive() or Wire::sendEmpty(). Returns -1.
int Link::noPacket()
{
    if (m_wire.fault() != nullptr) {
        return malformed(m_wire.fault());
    }
    m_state = State::Told;
    m_status = 0;
    m_answerFailed = true;
    fail(CR_SERVER_LOST, "Lost connection to server during query");
    return -1;
}

int Link::malformed(const std::string& what)
{
    shutdown(m_wire.socket(), SHUT_RDWR);
    m_state = State::Told;
    m_status = 0;
    m_answerFailed = true;
    fail(CR_MALFORMED_PACKET, "Malformed packet: " + what);
    return -1;
}

int Link::fail(int number, std::string text)
{
    m_failure = {number, std::move(text)};
    return 1;
}

void Link::ended(std::uint64_t rows)
{
    m_affectedRows = rows;
    ++m_answers;
    if (m_insertId != 0) {
        m_lastId = m_insertId;
    }
}

bool Link::ofParent() const
{
    return m_generation != currentGeneration;
}

void Link::detachSocket() const
{
    const int own = m_wire.socket();
    if (own < 0) {
        return;
    }
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

namespace {

const Failure& lastFailure(void* handle)
{
    return handle != nullptr ? static_cast<Link*>(handle)->failure() : failureWithoutLink();
}

} // namespace

} // namespace client

using client::Link;

void* db_connect_unix(const char* database)
{
    static std::once_flag initialised;
    std::call_once(initialised, client::initialiseConnector);

    auto link = std::make_unique<Link>(database);
    if (link->open() != 0) {
        client::failureWithoutLink() = link->failure();
        return nullptr;
    }
    return link.release();
}

void db_disconnect(void* handle)
{
    delete static_cast<Link*>(handle);
}

int db_error_number(void* handle)
{
    return client::lastFailure(handle).number;
}

const char* db_error_message(void* handle)
{
    return client::lastFailure(handle).text.c_str();
}

int db_enable_multiple_statements_per_query(void* handle)
{
    auto* link = static_cast<Link*>(handle);
    if (link == nullptr) {
        return client::failNotConnected();
    }
    return link->enableMultipleStatements();
}
