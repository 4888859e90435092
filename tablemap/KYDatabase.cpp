#include <Kestro/TableMap/KYDatabase.h>

#include <Kestro/TableMap/KYDBTransaction.h>
#include <basepp/dbg.h>

namespace Kestro {

namespace {

constexpr char SystemDatabase[] = "mysql";

// What the trace line gives as its place, whatever the lines of this file.
constexpr char TraceFile[] = "KYDatabase";
constexpr int TraceLine = 37;
constexpr char TraceFunction[] = "Query_real";
constexpr std::uint32_t TraceMask = 0x80008;

} // namespace

KYDBDatabase::KYDBDatabase() : m_connection(SystemDatabase)
{}

KYDBDatabase::KYDBDatabase(const SocketAddress& address) : m_connection(address, SystemDatabase)
{}

void KYDBDatabase::selectDB(const std::string& database)
{
    const Synchronized lock(m_mutex);
    m_connection.enableMultipleStatementsPerQuery();
    if (!m_connection.dbSelectIfExists(database)) {
        m_connection.dbCreate(database);
    }
}

// The connection, which is reopened if it was closed. The caller has the lock.
Database::Connection& KYDBDatabase::opened()
{
    if (m_connection.state() != Database::Connection::Connected) {
        m_connection.connect();
    }
    return m_connection;
}

void KYDBDatabase::execute(Database::Query& query)
{
    const Synchronized lock(m_mutex);
    opened();
    query.execute();
}

std::uint32_t KYDBDatabase::execute(const std::string& sql, Database::RowParser* parser)
{
    const Synchronized lock(m_mutex);
    return opened().execute(sql, parser);
}

int KYDBDatabase::Query_real(Database::Query& query)
{
    try {
        execute(query);
        return 0;
    } catch (const Exception& e) {
        {
            const Synchronized lock(m_recordMutex);
            m_errorMessage = query.get_error_message();
            m_errorNumber = query.get_error_number();
        }
        if ((*basepp_dbg_mask_ & TraceMask) == TraceMask) {
            basepp::dbg::debug(TraceFile, TraceLine, TraceFunction, 0, "%s", e.asString().c_str());
        }
        return -1;
    }
}

int KYDBDatabase::Query(Database::Query& query)
{
    return Query_real(query);
}

int KYDBDatabase::Query(const std::string& sql, Database::RowParser* parser)
{
    Database::Query query(m_connection, sql, parser, true);
    return Query_real(query);
}

int KYDBDatabase::get_error_number() const
{
    const Synchronized lock(m_recordMutex);
    return m_errorNumber;
}

std::string KYDBDatabase::get_error_message() const
{
    const Synchronized lock(m_recordMutex);
    return m_errorMessage;
}

KYDBTransaction::KYDBTransaction(KYDBDatabase& database)
    : m_lock(database.m_mutex), m_transaction(database.opened())
{}

KYDBTransaction::~KYDBTransaction() = default;

} // namespace Kestro
