#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/Connection.h>
#include <Kestro/Database/Query.h>
#include <Kestro/SocketAddress.h>
#include <Kestro/Threads.h>

#include <cstdint>
#include <string>

namespace Kestro {

/// The database handle that records share: one connection, guarded by a mutex. Most operations
/// return status codes instead of throwing.
///
/// Threads: one object may be used by several threads. It runs one statement at a time, including
/// the work of its row parser; the parser may run statements through the same handle. If other
/// threads use the handle, run a query that is built on DBConnection() through Query() or execute()
/// of the handle, never by the query's own execute().
class KESTRO_API KYDBDatabase {
public:
    /// Connects to the database "mysql", where the account needs some right. Throws
    /// DatabaseException if that fails. The address is kept and not used.
    KYDBDatabase();
    explicit KYDBDatabase(const SocketAddress& address);
    KYDBDatabase(const KYDBDatabase&) = delete;
    KYDBDatabase& operator=(const KYDBDatabase&) = delete;

    /// The handle's own connection. No lock is taken.
    Database::Connection& DBConnection() { return m_connection; }

    /// Selects the database. If it cannot be opened, creates it and stays on the present one: call
    /// selectDB() again to work on the new one. From now on one text may carry several statements.
    /// Throws what Connection::dbSelectIfExists() and dbCreate() throw, and leaves the error record
    /// unchanged.
    void selectDB(const std::string& database);

    /// Runs the query, after reopening a connection that was closed. Returns 0, or -1 if a
    /// Kestro::Exception came out of it: the error record then has the query's number and message,
    /// which are 0 and "" if the reopening failed or the parser threw, and a trace line is written
    /// if the debug mask has both bits of 0x80008. Exceptions of other types, from a parser, pass
    /// through.
    [[nodiscard]] int Query_real(Database::Query& query);
    /// The same.
    [[nodiscard]] int Query(Database::Query& query);
    /// The same for a text, which is sent unchanged, and a parser, which may be null.
    [[nodiscard]] int Query(const std::string& sql, Database::RowParser* parser);

    /// As Query(), but throws: what Connection::connect() and Database::Query::execute() throw. The
    /// error record stays unchanged. The second form returns the number of rows that were changed
    /// or delivered.
    void execute(Database::Query& query);
    std::uint32_t execute(const std::string& sql, Database::RowParser* parser = nullptr);

    /// Number and message of the last failure of any thread, or 0 and "". A success does not clear
    /// them. Both return at once, also while a statement runs. Between the two calls another thread
    /// may fail: a query and a record report their own failure.
    int get_error_number() const;
    std::string get_error_message() const;

private:
    friend class KYDBTransaction;
    Database::Connection& opened();

    Database::Connection m_connection;
    Mutex m_mutex; // guards the connection
    std::string m_errorMessage;
    std::int32_t m_errorNumber = 0;
    mutable Mutex m_recordMutex; // guards the error record
};

} // namespace Kestro
