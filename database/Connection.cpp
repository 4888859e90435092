#include <Kestro/Database/Connection.h>

#include <Kestro/Database/Query.h>
#include <db_client.h>

#include <algorithm>
#include <ctime>
#include <iterator>
#include <unistd.h>
#include <utility>

namespace Kestro::Database {

namespace {

// What dbDelete reports as its place, whatever the lines of this file.
constexpr char DbDeleteFile[] = "Connection";
constexpr unsigned DbDeleteLine = 152;

constexpr int GoneAway = 2006; // the client interface's number for a link that is closed
// After these failures the server has rolled the whole transaction back: a row changed under a
// snapshot, no room for locks, a deadlock, a shutdown, and a link that was killed or lost.
constexpr int EndTransaction[] = {1020, 1206, 1213, 1053, 1927, GoneAway, 2013, 2027};

constexpr std::size_t LongestText = 1000; // in what(): a screen of it

constexpr unsigned RetryInterval = 3; // seconds between two attempts of waitUntilServerReady

} // namespace

DatabaseException::DatabaseException(int intParameter, const std::string& fileName,
                                     unsigned lineNumber)
    : Exception("DatabaseException", intParameter, fileName, lineNumber)
{}

DatabaseException::DatabaseException(int intParameter, const std::string& fileName,
                                     unsigned lineNumber, std::string&& stringParameter,
                                     int errorNumber)
    : DatabaseException(intParameter, fileName, lineNumber)
{
    m_errorNumber = errorNumber;
    std::string what = Exception::what();
    if (errorNumber != 0) {
        what += ", error " + std::to_string(errorNumber);
    }
    what.append(": ").append(stringParameter, 0, LongestText);
    if (stringParameter.size() > LongestText) {
        what += "... (" + std::to_string(stringParameter.size()) + " bytes)";
    }
    m_what = std::make_shared<const std::string>(std::move(what));
    this->stringParameter(std::move(stringParameter));
}

DatabaseException::~DatabaseException() = default;

const char* DatabaseException::what() const noexcept
{
    return m_what ? m_what->c_str() : Exception::what();
}

SocketAddress Connection::s_defaultAddress(IPAddress("127.0.0.1"), 3306);

SocketAddress Connection::defaultAddress()
{
    return s_defaultAddress;
}

void Connection::defaultAddress(const SocketAddress& address)
{
    s_defaultAddress = address;
}

bool Connection::waitUntilServerReady(const SocketAddress& /*address*/, unsigned seconds)
{
    const std::int64_t deadline = static_cast<std::int64_t>(time(nullptr)) + seconds;
    while (deadline > time(nullptr)) {
        if (void* handle = db_connect_unix("mysql")) {
            db_disconnect(handle);
            return true;
        }
        sleep(RetryInterval);
    }
    return false;
}

Connection::Connection(const std::string& database, const std::string& param2,
                       const std::string& param3, const SocketAddress& address)
    : m_database(database), m_param2(param2), m_param3(param3), m_address(address)
{
    connect();
}

Connection::Connection(const SocketAddress& address, const std::string& database)
    : Connection(database, "", "", address)
{}

Connection::Connection(const std::string& database) : Connection(database, "", "", defaultAddress())
{}

Connection::~Connection()
{
    disconnect();
}

void Connection::connect()
{
    failed(GoneAway);
    m_handle = db_connect_unix(m_database.c_str());
    if (m_handle == nullptr) {
        throw DatabaseException(0, "", 0, errorMessage(), errorNumber());
    }
    m_state = Connected;
    if (m_multipleStatements) {
        db_enable_multiple_statements_per_query(m_handle);
    }
}

void Connection::disconnect()
{
    if (m_handle != nullptr) {
        db_disconnect(m_handle);
        m_state = Disconnected;
        m_handle = nullptr;
    }
}

void Connection::failed(int errorNumber)
{
    if (m_transaction == TransactionState::Open &&
        std::ranges::find(EndTransaction, errorNumber) != std::end(EndTransaction)) {
        m_transaction = TransactionState::Lost;
        m_lostBy = errorNumber;
    }
}

int Connection::enableMultipleStatementsPerQuery()
{
    m_multipleStatements = true;
    return db_enable_multiple_statements_per_query(m_handle);
}

int Connection::errorNumber() const
{
    return db_error_number(m_handle);
}

std::string Connection::errorMessage() const
{
    const char* text = db_error_message(m_handle);
    return text != nullptr ? text : "";
}

std::string Connection::escapeString(const std::string& text) const
{
    if (text.empty()) {
        return {};
    }
    std::string escaped(2 * text.size() + 1, '\0');
    escaped.resize(static_cast<std::uint32_t>(
        db_escape_string(m_handle, escaped.data(), text.data(), text.size())));
    return escaped;
}

std::uint32_t Connection::execute(const std::string& statement, RowParser* parser)
{
    Query query(*this, statement, parser, true);
    query.execute();
    return query.affectedRows();
}

void Connection::dbCreate(const std::string& name)
{
    execute("Create database " + name + ";");
}

void Connection::dbDelete(const std::string& name)
{
    try {
        execute("Drop database " + name + ";");
    } catch (const Exception& caught) {
        Exception refused("dbDelete", 4, DbDeleteFile, DbDeleteLine);
        refused.cause(caught);
        refused.stringParameter(errorMessage());
        throw refused;
    }
}

void Connection::dbSelect(const std::string& name)
{
    disconnect();
    m_database = name;
    connect();
}

bool Connection::dbSelectIfExists(const std::string& name)
{
    const std::string previous = m_database;
    try {
        dbSelect(name);
        return true;
    } catch (const Exception&) {
        m_database = previous;
        connect();
        return false;
    }
}

} // namespace Kestro::Database
