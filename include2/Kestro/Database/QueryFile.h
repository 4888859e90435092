#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/Connection.h>

#include <list>
#include <string>
#include <utility>

namespace Kestro::Database {

/// Runs a file of SQL statements, a script, in batches of about 1 MiB.
///
///     QueryFile(connection, "/usr/share/app/schema.sql").executeInOwnSession();
///
/// The SQL is not parsed. The file is cut after ";" and a line feed, nowhere else, and each batch
/// is sent as one string of several statements. So a file whose lines end in CR LF is one batch,
/// however large, and a ";" at the end of a line inside a string or a procedure's body may be cut
/// at too. DELIMITER is a command of the command-line client, not SQL, so it fails here; Script
/// (Script.h) knows it. docs/scripts-and-loads.md says more.
///
/// Threads: one QueryFile, and its connection, belong to one thread at a time.
class KESTRO_API QueryFile {
public:
    /// Reads the whole file into memory and sends nothing. A file that cannot be opened gives no
    /// batches and no error. The connection must outlive the object.
    QueryFile(Connection& connection, const std::string& path);

    /// Sends every batch in turn, each time it is called. It stops at the first that fails and
    /// throws what Query::execute() throws. The batches before it have run then, and its own
    /// statements up to the failing one; nothing after that has. A batch ends at its first NUL.
    ///
    /// The connection must allow several statements in one string. Its session is afterwards what
    /// the script made of it: another database, autocommit switched off so that what follows is
    /// lost, checks of keys switched off.
    void execute();

    /// The same in a session of its own, on the database that the connection is on now, and with
    /// several statements in one string allowed. The connection's own session stays as it is; its
    /// temporary tables, variables and open transaction are not there for the script, and the
    /// script waits for what that transaction has locked. Changes that the script leaves
    /// uncommitted are rolled back at its end. Throws also what Connection throws.
    void executeInOwnSession();

    /// The batches. Joined, they are the file, byte for byte. There are none for an empty file and
    /// for one that could not be opened; to tell which it is, look at the file.
    const std::list<std::string>& batches() const& { return m_statements; }
    /// By value, so that a loop over the batches of a temporary is safe.
    std::list<std::string> batches() && { return std::move(m_statements); }

private:
    void execute(Connection& connection) const;

    Connection& m_connection;
    std::list<std::string> m_statements;
};

} // namespace Kestro::Database
