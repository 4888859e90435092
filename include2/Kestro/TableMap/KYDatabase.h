#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/Connection.h>
#include <Kestro/Database/Query.h>
#include <Kestro/SocketAddress.h>
#include <Kestro/Threads.h>

#include <cstdint>
#include <string>

namespace Kestro {

/// The database handle that records share: one connection, a mutex around it, and status codes in
/// the place of exceptions.
///
/// Threads: one object may be used by several threads. A statement runs alone, its row parser's
/// work included; the parser may itself run statements through the same handle. Statements built on
/// DBConnection() are run through Query(), never by their own execute(), if other threads use the
/// handle.
class KESTRO_API KYDBDatabase {
public:
    /// Connects to the database "mysql", where the account needs some right. Throws
    /// DatabaseException if that fails. The address is kept and not used.
    KYDBDatabase();
    explicit KYDBDatabase(const SocketAddress& address);
    KYDBDatabase(const KYDBDatabase&) = delete;
    KYDBDatabase& operator=(const KYDBDatabase&) = delete;

    /// The handle's own connection, without a lock.
    Database::Connection& DBConnection() { return m_connection; }

    /// Works on the database from now on, or creates it if it cannot be opened and stays where it
    /// was: call it again to work there. One text may then carry several statements. Throws what
    /// Connection::dbSelectIfExists() and dbCreate() throw; the error record stays.
    void selectDB(const std::string& database);

    /// Runs the query, after reopening a connection that was closed. Returns 0, or -1 if a
    /// Kestro::Exception came out of it: the error record then has the query's number and message,
    /// which are 0 and "" if the reopening failed or the parser threw, and a trace line is written
    /// if the debug mask has both bits of 0x80008. Exceptions of other types, from a parser, pass
    /// through.
    [[nodiscard]] int Query_real(Database::Query& query);
    /// The same.
    [[nodiscard]] int Query(Database::Query& query);
    /// The same for a text, sent as it is, and a parser or null.
    [[nodiscard]] int Query(const std::string& sql, Database::RowParser* parser);

    /// As Query(), for programs that work with exceptions: throws what Connection::connect() and
    /// Database::Query::execute() throw, and the error record stays. The second form returns the
    /// number of rows that were changed or delivered.
    void execute(Database::Query& query);
    std::uint32_t execute(const std::string& sql, Database::RowParser* parser = nullptr);

    /// Number and message of the last failure, of whichever thread; 0 and "" before it. A success
    /// does not clear them, and neither waits for a statement. Each query and record keeps its own
    /// failure: between two calls here another thread may have failed.
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
