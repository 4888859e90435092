#include <Kestro/Database/ConnectionPool.h>

#include <algorithm>
#include <string>

namespace Kestro::Database {

namespace {

// What a failed construction reports as its place, whatever the lines of this file.
constexpr char File[] = "ConnectionPool";
constexpr unsigned ConstructorLine = 93;

constexpr unsigned MostAtFirst = 25;
constexpr int Passes = 20;
constexpr unsigned Pause = 100'000; // microseconds

} // namespace

_Connection::_Connection(const std::string& database, const std::string& param2,
                         const std::string& param3, const SocketAddress& address, int id)
    : m_connection(database, param2, param3, address), m_semaphore(1), m_id(id)
{}

_Connection::~_Connection() = default;

RefConnection::RefConnection(const std::string& database, const std::string& param2,
                             const std::string& param3, const SocketAddress& address, int id)
    : Ref<_Connection>(new _Connection(database, param2, param3, address, id))
{}

ConnectionPool::Lock::Lock(ConnectionPool& pool, bool checkPool)
    : m_pool(&pool), m_checkPool(checkPool)
{}

ConnectionPool::Lock::Lock(unsigned waited, ConnectionPool& pool)
    : m_pool(&pool), m_checkPool(false), m_waited(waited)
{}

ConnectionPool::Lock::Lock(RefConnection& connection, ConnectionPool& pool, bool checkPool)
    : m_connection(connection), m_pool(&pool), m_checkPool(checkPool)
{}

ConnectionPool::Lock& ConnectionPool::Lock::operator=(const Lock& other)
{
    if (!m_checkPool || *m_pool == *other.m_pool) {
        m_connection = other.m_connection;
        m_waited = other.m_waited;
    }
    other.m_connection = other.m_pool->m_nullConnection;
    return *this;
}

Connection& ConnectionPool::Lock::connection() const
try {
    return m_connection->connection();
} catch (Exception& empty) {
    std::string text = "this loan has no connection";
    if (m_waited) {
        text = "the pool had no connection to lend, waited for " +
               std::to_string(*m_waited / 1000) + " ms";
    }
    empty.stringParameter(text);
    throw;
}

ConnectionPool::Lock::~Lock()
{
    if (m_connection) {
        m_pool->returnConnection(*this);
    }
}

ConnectionPool::ConnectionPool(const std::string& database, const std::string& param2,
                               const std::string& param3, const SocketAddress& address,
                               unsigned size)
    : m_database(database), m_param2(param2), m_param3(param3), m_address(address)
{
    try {
        for (unsigned i = 0; i < std::min(size, MostAtFirst); ++i) {
            m_connections.push_back(open());
        }
    } catch (const Exception& caught) {
        Exception refused("Database::ConnectionPool", 4, File, ConstructorLine);
        refused.cause(caught);
        throw refused;
    }
}

ConnectionPool::~ConnectionPool() = default;

ConnectionPool::Lock ConnectionPool::getConnection(bool wait)
{
    unsigned waited = 0;
    for (int pass = 0; pass < Passes; ++pass) {
        for (RefConnection& connection : m_connections) {
            if (connection->m_semaphore.trywait()) {
                return {connection, *this, false};
            }
        }
        if (!wait) {
            break;
        }
        ks_usleep(Pause, 0);
        waited += Pause;
    }
    return {waited, *this};
}

void ConnectionPool::returnConnection(Lock& lock)
{
    if (!lock.m_connection) {
        return;
    }
    const std::int32_t id = lock.m_connection->m_id;
    for (const RefConnection& connection : m_connections) {
        if (connection->m_id == id) {
            ++connection->m_semaphore;
            return;
        }
    }
}

RefConnection ConnectionPool::reset(RefConnection& connection)
{
    const auto replaced = std::ranges::find_if(
        m_connections, [&](const RefConnection& entry) { return entry->m_id == connection->m_id; });
    if (replaced == m_connections.end()) {
        return m_nullConnection;
    }
    const bool multipleStatements = (*replaced)->m_connection.m_multipleStatements;
    m_connections.erase(replaced);
    RefConnection opened = openLent();
    if (multipleStatements) {
        opened->m_connection.enableMultipleStatementsPerQuery();
    }
    return opened;
}

ConnectionPool::Lock ConnectionPool::growPool()
{
    RefConnection grown = openLent();
    return {grown, *this, false};
}

unsigned ConnectionPool::size() const
{
    return static_cast<unsigned>(m_connections.size());
}

bool ConnectionPool::operator==(const ConnectionPool& other) const
{
    return m_database == other.m_database &&
           m_address.asINET().address == other.m_address.asINET().address;
}

RefConnection ConnectionPool::open()
{
    const std::int32_t id = ++m_lastId;
    return {m_database, m_param2, m_param3, m_address, id};
}

RefConnection ConnectionPool::openLent()
{
    RefConnection opened = open();
    opened->m_semaphore.wait();
    m_connections.push_back(opened);
    return opened;
}

} // namespace Kestro::Database
