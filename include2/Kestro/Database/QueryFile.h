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
/// The SQL is not read: the file is cut only behind ";" and a line feed, and each batch is sent as
/// one text of several statements. A file whose lines end in CR LF, or without any such end of a
/// statement, is one batch, however large; a ";" at the end of a line inside a text or a
/// procedure's body may be a cut like any other. DELIMITER is a word of the command-line client and
/// no SQL: the server refuses it. docs/scripts-and-loads.md tells more.
///
/// Threads: one QueryFile, and its connection, belong to one thread at a time.
class KESTRO_API QueryFile {
public:
    /// Reads the whole file into memory and sends nothing. A file that cannot be opened gives no
    /// batches and no error. The connection must outlive the object.
    QueryFile(Connection& connection, const std::string& path);

    /// Sends every batch in turn, as often as it is called. The first that is refused ends it with
    /// what Query::execute() throws: the batches before it have run, of its own statements those
    /// before the failing one, and nothing behind. A batch ends at its first NUL, if it has one.
    ///
    /// The connection must allow several statements in one text. Its session is afterwards what the
    /// script made of it: another database, autocommit switched off so that what follows is lost,
    /// checks of keys switched off.
    void execute();

    /// The same in a session of its own, on the database that the connection is on now, and with
    /// several statements in one text allowed. The connection's own session stays as it is; its
    /// temporary tables, variables and open transaction are not there for the script, and the
    /// script waits for what that transaction has locked. Changes that the script leaves
    /// uncommitted are rolled back at its end. Throws also what Connection throws.
    void executeInOwnSession();

    /// The batches: joined, they are the file, byte for byte. Empty for an empty file and for one
    /// that could not be opened: only a look at the file itself tells which.
    const std::list<std::string>& batches() const& { return m_statements; }
    /// By value, so that a loop may run over the batches of a temporary.
    std::list<std::string> batches() && { return std::move(m_statements); }

private:
    void execute(Connection& connection) const;

    Connection& m_connection;
    std::list<std::string> m_statements;
};

} // namespace Kestro::Database
