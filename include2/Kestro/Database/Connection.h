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
    /// The first three are told by the operations of the same names.
    explicit DatabaseException(int intParameter = 0, const std::string& fileName = "",
                               unsigned lineNumber = 0);
    /// Sets the string parameter and the error number too.
    DatabaseException(int intParameter, const std::string& fileName, unsigned lineNumber,
                      std::string&& stringParameter, int errorNumber);
    DatabaseException(const DatabaseException&) = default;
    DatabaseException& operator=(const DatabaseException&) = default;
    ~DatabaseException() override;

    /// The server's error number, such as 1062 for a duplicate key, or the client interface's, from
    /// 2000 on; 0 if the failure has none.
    int errorNumber() const { return m_errorNumber; }

    /// The text of asString() with the error number in it, if there is one. A long text, that is a
    /// long statement, is cut here; the string parameter has all of it.
    const char* what() const noexcept override;

private:
    int m_errorNumber = 0;
    std::shared_ptr<const std::string> m_what; // copies share it
};

/// One open link to the local server, on one database.
///
/// A Connection opens its link when it is constructed and closes it when it is destroyed. It can be
/// reopened on another database at any time. Statements run on it through Query.
///
/// The link goes over the server's Unix socket, under the login name of the process: see
/// db_client.h for how the socket is found and what each session begins with.
///
/// Threads: distinct objects may be used by distinct threads; one object belongs to one thread at a
/// time. Every failure to open the link is a DatabaseException with int parameter 0 and the reason,
/// as the client interface or the server tells it, as string parameter.
class KESTRO_API Connection : public RefImpl {
public:
    /// What state() tells.
    enum State : std::int32_t { Disconnected = 0, Connected = 2 };

    /// The path of the server's Unix socket, for callers that want it.
    static constexpr char SocketName[] = "/var/run/mysql.sock";

    /// The address of connections that are constructed without one: 127.0.0.1, port 3306. To be
    /// changed before threads use it.
    static SocketAddress s_defaultAddress;
    static SocketAddress defaultAddress();
    static void defaultAddress(const SocketAddress& address);

    /// Waits until the local server accepts a connection to its database "mysql" and returns true,
    /// or returns false when this many seconds are over. It tries at once and then pauses for 3
    /// seconds after each failure, so false may come up to 3 seconds late, and 5 more with a server
    /// that does not answer; 0 seconds try nothing. An account without any right in "mysql" is
    /// refused there and gets false. The address is not consulted. Any thread may call it.
    static bool waitUntilServerReady(const SocketAddress& address, unsigned seconds);

    /// Opens the link on the database; "" selects none. The second and third string are kept and
    /// passed to nobody: they are no login, the account is always that of the process. The address
    /// is not used either. Throws as told above, and then nothing is left open.
    Connection(const std::string& database, const std::string& param2, const std::string& param3,
               const SocketAddress& address);
    Connection(const SocketAddress& address, const std::string& database);
    explicit Connection(const std::string& database);
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;
    ~Connection() override;

    /// Opens the link on the current database. Meant for a connection that is disconnected: a link
    /// that is still open is not closed first, and leaks. Throws as told above, and then the
    /// connection is disconnected.
    void connect();
    /// Closes the link if one is open.
    void disconnect();
    /// Connected or Disconnected. A link that the server has dropped still counts as connected: the
    /// next statement opens it again. If the session held nothing that could be missed, that is
    /// all; if it held a transaction, temporary tables, variables or locks, that statement fails
    /// with 2006, unsent, and the one after it finds a fresh session. A statement that the loss
    /// interrupts fails with 2013: it may have run, and is never sent again.
    std::int32_t state() const { return m_handle != nullptr ? m_state : Disconnected; }

    /// Lets one query text carry several statements, from now on for as long as this object lives,
    /// however often it is opened again. Returns 0, or another value on failure: while disconnected
    /// it takes effect when the connection is opened.
    int enableMultipleStatementsPerQuery();

    /// Number and text of the last failure on the link, 0 and "" if there was none; a success does
    /// not clear them. While disconnected: of this thread's last failed connect, or statement
    /// without a link, whichever object it was made through.
    int errorNumber() const;
    std::string errorMessage() const;

    /// The text escaped for use inside a quoted SQL literal, "..." or '...'; any bytes may be in
    /// it.
    std::string escapeString(const std::string& text) const;

    /// Runs a statement and returns the number of rows that it changed or delivered, as
    /// Query::affectedRows() tells it. The text is sent as it is, and a result goes to the parser if
    /// there is one. Throws what Query::execute() throws.
    std::uint32_t execute(const std::string& statement, RowParser* parser = nullptr);

    /// Creates or drops a database. The name goes into the statement as it is: quote it where it
    /// needs quoting (`...`), and never pass text from outside. dbCreate throws what Query throws;
    /// dbDelete throws Exception("dbDelete", 4) with the server's text and, as cause, what Query
    /// threw.
    void dbCreate(const std::string& name);
    void dbDelete(const std::string& name);

    /// Reopens the link on another database; what its session held (a transaction, temporary
    /// tables, variables, locks) is gone. If that throws, the connection is left disconnected, with
    /// the new name: connect() tries it again.
    void dbSelect(const std::string& name);
    /// Reopens the link on another database and returns true; if that fails, for whatever reason,
    /// which is not kept, returns to the previous database and returns false. Throws if the way
    /// back fails too; the connection is then disconnected, with the previous name.
    bool dbSelectIfExists(const std::string& name);

private:
    friend class Query;
    friend class QueryFile;
    friend class ConnectionPool;
    friend class Transaction;

    /// Of the Transaction that is open on this connection.
    enum class TransactionState { None, Open, Lost };
    void lose(int errorNumber);

    void* m_handle = nullptr;
    std::string m_database;
    std::string m_param2;
    std::string m_param3;
    SocketAddress m_address;
    std::int32_t m_state = Disconnected;
    bool m_multipleStatements = false; // to be allowed on every link
    TransactionState m_transaction = TransactionState::None;
    int m_lostBy = 0; // the number of the error that it was lost by
};

} // namespace Kestro::Database
