#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/Connection.h>
#include <Kestro/SocketAddress.h>
#include <Kestro/Threads.h>
#include <KestroRefcounted>

#include <cstdint>
#include <list>
#include <optional>
#include <string>

namespace Kestro::Database {

class ConnectionPool;

/// One connection of a pool, held through RefConnection. Only the holder of its loan may use it.
class KESTRO_API _Connection : public RefImpl {
public:
    /// Opens the connection; throws what Connection throws.
    _Connection(const std::string& database, const std::string& param2, const std::string& param3,
                const SocketAddress& address, int id);
    ~_Connection() override;

    /// The connection itself. It lives as long as a handle to this object.
    Connection& connection() { return m_connection; }
    /// Its number, unique within its pool and never reused there.
    std::int32_t id() const { return m_id; }

private:
    friend class ConnectionPool;

    Connection m_connection;
    Semaphore m_semaphore; // 1: free, 0: on loan
    std::int32_t m_id;
};

/// Handle to a connection of a pool, or empty. It is no loan: see ConnectionPool::Lock.
class KESTRO_API RefConnection : public Ref<_Connection> {
public:
    /// An empty handle.
    RefConnection() = default;
    /// Makes a new connection and owns it; throws what Connection throws.
    RefConnection(const std::string& database, const std::string& param2, const std::string& param3,
                  const SocketAddress& address, int id);
};

/// A small set of open connections to one database, lent to one holder at a time.
///
///     ConnectionPool pool("shop", "", "", Connection::defaultAddress(), 4);
///     ...
///     ConnectionPool::Lock lock = pool.getConnection(true);
///     if (lock) {
///         Query(lock.connection()) ...
///     } // and back it goes
///
/// The pool opens its connections when it is constructed. It has no lock of its own; a semaphore of
/// each connection says whether it is free. A connection that the server has dropped is opened
/// again by its next statement (Connection::state()); reset() is for one whose session can no
/// longer be trusted.
///
/// Threads: any number of threads may call getConnection() and end their loans at the same time.
/// While one constructs or destroys the pool, or calls growPool() or reset(), no other may use it.
/// The pool must outlive its loans.
class KESTRO_API ConnectionPool {
public:
    /// The loan of one connection, or an empty one. Its destructor gives the connection back.
    ///
    /// Threads: one Lock belongs to one thread at a time.
    class KESTRO_API Lock {
    public:
        /// An empty loan, to which another can be assigned. With checkPool it accepts only a
        /// connection of a pool that is equal to this one.
        Lock(ConnectionPool& pool, bool checkPool);
        /// The loan of a connection that reset() returned. It must be a connection of this pool.
        Lock(RefConnection& connection, ConnectionPool& pool, bool checkPool);
        Lock(const Lock&) = delete;
        /// Takes over the other's loan, unless the pools are checked and unequal. The other is
        /// empty afterwards in both cases. A loan that is overwritten, or not taken, is not given
        /// back: its connection stays on loan until reset() replaces it. So assign to empty loans
        /// only, and never a loan to itself.
        Lock& operator=(const Lock& other);
        /// Gives the connection back.
        ~Lock();

        /// Whether a connection is on loan.
        explicit operator bool() const { return static_cast<bool>(m_connection); }
        /// The connection, not to be used after the loan's end. Throws Exception("operator->", 1)
        /// if the loan is empty; the string parameter says whether the pool had no connection to
        /// lend, and how long getConnection() waited for one.
        Connection& connection() const;
        /// The handle to it, empty if the loan is. Pass a copy to reset().
        const RefConnection& ref() const { return m_connection; }

    private:
        friend class ConnectionPool;

        // An empty loan, after a wait of so many microseconds.
        Lock(unsigned waited, ConnectionPool& pool);

        mutable RefConnection m_connection; // an assignment empties its source
        ConnectionPool* m_pool;
        bool m_checkPool;
        std::optional<unsigned> m_waited; // microseconds, if the pool had nothing to lend
    };

    /// Opens this many connections on the database, 25 at most; 0 opens none. Their ids are 1, 2, 3
    /// and so on. The other arguments are those of Connection. If one cannot be opened, throws
    /// Exception("Database::ConnectionPool", 4), file "ConnectionPool", line 93, with Connection's
    /// exception as cause, and the others are closed.
    ConnectionPool(const std::string& database, const std::string& param2,
                   const std::string& param3, const SocketAddress& address, unsigned size);
    ConnectionPool(const ConnectionPool&) = delete;
    ConnectionPool& operator=(const ConnectionPool&) = delete;
    /// Closes every connection to which nobody else has a handle.
    ~ConnectionPool();

    /// Lends the free connection that is first in the pool's order. If none is free, returns an
    /// empty loan. With wait it tries 20 times, pausing 0.1 s after each try, before it does so.
    /// Threads that wait are not served in their order.
    ///
    /// The pool does not look at what the last holder left in the session. A transaction that a
    /// statement began and nobody ended is still open: the next holder's statements would run in
    /// it. A Transaction ends with its scope, and throws when it is begun in such a session.
    /// Variables, temporary tables and locks stay too; reset() replaces a connection that has some.
    Lock getConnection(bool wait);

    /// Marks the lock's connection as free; the lock's destructor calls it. Does nothing if the
    /// lock is empty or its connection is no longer in the pool.
    void returnConnection(Lock& lock);

    /// Replaces the pool's connection of the same id by a new one, which has a new id and comes
    /// last in the pool's order. Returns the new one, on loan to the caller, who makes a Lock of
    /// it. The old connection is closed when its last handle goes; the argument stays as it is. The
    /// new one allows several statements per query if the old one did. If the pool has no
    /// connection of that id, nothing changes and the handle that is returned is empty.
    ///
    /// Throws Exception("operator->", 1) if the handle is empty and the pool is not. If no new
    /// connection can be opened, throws what Connection throws, and the pool is one smaller.
    RefConnection reset(RefConnection& connection);

    /// Opens one more connection, without limit, and lends it. Throws what Connection throws.
    Lock growPool();

    /// The number of connections, free and on loan.
    unsigned size() const;

    /// Whether both have the same database and the same IP address.
    bool operator==(const ConnectionPool& other) const;

private:
    RefConnection open();
    RefConnection openLent();

    std::int32_t m_lastId = 0;
    std::string m_database;
    std::string m_param2;
    std::string m_param3;
    SocketAddress m_address;
    std::list<RefConnection> m_connections;
    RefConnection m_nullConnection;
};

} // namespace Kestro::Database
