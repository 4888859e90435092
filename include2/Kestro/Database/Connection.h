#pragma once

#include <Kestro/Api.h>
#include <Kestro/Exception.h>
#include <Kestro/SocketAddress.h>
#include <KestroRefcounted>

#include <cstdint>
#include <memory>
#include <string>

namespace Kestro::Database {

class RowParser;

/// The library's own exception: its message is always "DatabaseException", and its string parameter
/// has the server's text.
class KESTRO_API DatabaseException : public Exception {
public:
    /// intParameter(), fileName() and lineNumber() return what is given here.
    explicit DatabaseException(int intParameter = 0, const std::string& fileName = "",
                               unsigned lineNumber = 0);
    /// stringParameter() and errorNumber() return the last two.
    DatabaseException(int intParameter, const std::string& fileName, unsigned lineNumber,
                      std::string&& stringParameter, int errorNumber);
    DatabaseException(const DatabaseException&) = default;
    DatabaseException& operator=(const DatabaseException&) = default;
    ~DatabaseException() override;

    /// The server's error number, such as 1062 for a duplicate key, or the client interface's, from
    /// 2000 on; 0 if the failure has none.
    int errorNumber() const { return m_errorNumber; }

    /// The text of asString() with the error number in it, if there is one. A long text, that is a
    /// long statement, is cut here; the string parameter has all of it. What is changed after the
    /// construction is in asString() only.
    const char* what() const noexcept override;

private:
    int m_errorNumber = 0;
    std::shared_ptr<const std::string> m_what; // copies share it
};

/// One connection to the local server, on one database.
///
/// A Connection is opened when it is constructed and closed when it is destroyed. It can be
/// reopened on another database at any time. Statements run on it through Query.
///
/// It uses the server's Unix socket, and the account is the login name of the process.
/// db_client.h says how the socket is found and how a session begins.
///
/// Threads: distinct objects may be used by distinct threads; one object belongs to one thread at a
/// time. If opening fails, DatabaseException is thrown: its int parameter is 0 and its string
/// parameter is the reason that the client interface or the server gives.
class KESTRO_API Connection : public RefImpl {
public:
    /// The values of state().
    enum State : std::int32_t { Disconnected = 0, Connected = 2 };

    /// The usual path of the server's Unix socket, for callers that want it.
    static constexpr char SocketName[] = "/var/run/mysql.sock";

    /// The address of connections that are constructed without one: 127.0.0.1, port 3306. Set it
    /// before threads use it.
    static SocketAddress s_defaultAddress;
    static SocketAddress defaultAddress();
    static void defaultAddress(const SocketAddress& address);

    /// Returns true as soon as the local server accepts a connection to its database "mysql", and
    /// false once this many seconds have passed. It tries at once and pauses for 3 seconds after
    /// each failure. So it may return false 3 seconds late, and 5 more if the server does not
    /// answer. With 0 seconds it does not try. An account without any right in "mysql" cannot
    /// connect to it and gets false. The address is ignored. Any thread may call it.
    static bool waitUntilServerReady(const SocketAddress& address, unsigned seconds);

    /// Opens the connection on the database; "" selects none. The second and third string are kept
    /// but not used: they are no login, since the account is always that of the process. Nor is the
    /// address used. Throws as said above; nothing is left open then.
    Connection(const std::string& database, const std::string& param2, const std::string& param3,
               const SocketAddress& address);
    Connection(const SocketAddress& address, const std::string& database);
    explicit Connection(const std::string& database);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() override;

    /// Opens it on the current database. Call it on a disconnected connection only: one that is
    /// still open is not closed first, and leaks. Throws as said above, and leaves the
    /// connection disconnected then.
    void connect();
    /// Closes the connection if it is open.
    void disconnect();
    /// Connected or Disconnected. If the server has closed the connection it still counts as
    /// connected, since the next statement reopens it. If the lost session held a transaction,
    /// temporary tables, variables or locks, that statement is not sent but fails with 2006, and
    /// the one after it runs in a fresh session. A statement that is interrupted by the loss fails
    /// with 2013: it may have run, and is never sent again.
    std::int32_t state() const { return m_handle != nullptr ? m_state : Disconnected; }

    /// Lets one query send several statements, for as long as this object lives and however often
    /// it is reopened. Returns 0, or another value on failure. On a disconnected
    /// connection it takes effect when the connection is opened.
    int enableMultipleStatementsPerQuery();

    /// Number and message of the connection's last failure, 0 and "" if there was none. A success
    /// does not clear them. While disconnected they are those of this thread's last failed connect
    /// or unsent statement, whichever object it was made through.
    int errorNumber() const;
    std::string errorMessage() const;

    /// The text escaped for use inside a quoted SQL literal, "..." or '...'; any bytes may be in
    /// it.
    std::string escapeString(const std::string& text) const;

    /// Runs a statement and returns the number of rows that it changed or delivered, as
    /// Query::affectedRows() does. The statement is sent as it is, and a result goes to the parser
    /// if there is one. Throws what Query::execute() throws.
    std::uint32_t execute(const std::string& statement, RowParser* parser = nullptr);

    /// Creates or drops a database. The name goes into the statement as it is: pass
    /// identifier(name) for a name that needs quoting or comes from outside. dbCreate throws what
    /// Query throws; dbDelete throws Exception("dbDelete", 4) with the server's text, and with what
    /// Query threw as its cause.
    void dbCreate(const std::string& name);
    void dbDelete(const std::string& name);

    /// Closes the connection and opens it on another database. The session's state (a transaction,
    /// temporary tables, variables, locks) is gone. If it throws, the connection is disconnected
    /// and has the new name, so that connect() tries again.
    void dbSelect(const std::string& name);
    /// Like dbSelect(), and returns true. If that fails, for whatever reason, it opens the previous
    /// database again and returns false; the reason is not kept. If that fails as well, it throws
    /// and leaves the connection disconnected, with the previous name.
    bool dbSelectIfExists(const std::string& name);

private:
    friend class Query;
    friend class QueryFile;
    friend class ConnectionPool;
    friend class Script;
    friend class Transaction;

    /// Of the Transaction that is open on this connection.
    enum class TransactionState { None, Open, Lost };
    void failed(int errorNumber); // a statement or a connect: the transaction may be lost

    void* m_handle = nullptr;
    std::string m_database;
    std::string m_param2;
    std::string m_param3;
    SocketAddress m_address;
    std::int32_t m_state = Disconnected;
    bool m_multipleStatements = false; // to be allowed whenever it is opened
    TransactionState m_transaction = TransactionState::None;
    int m_lostBy = 0; // the number of the error that it was lost by
};

} // namespace Kestro::Database
