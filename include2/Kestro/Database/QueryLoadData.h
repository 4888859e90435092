#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/Connection.h>

#include <string>

namespace Kestro::Database {

/// Replaces all rows of a table with those of a data file, through the server's bulk loader.
///
///     QueryLoadData(connection, "shop", "article", "/var/lib/app/article.txt");
///
/// The server opens the file, not the program: it must be able to read it, the account needs the
/// FILE privilege, and the server's secure_file_priv must allow the place. The format is the
/// loader's own, in UTF-8: one row per line, values separated by tabs and escaped as
/// db_escape_string does it, \N for NULL. Of two rows with the same key the later one remains.
///
/// The table is emptied first. A load that fails does not undo this, so the table is empty then.
/// docs/scripts-and-loads.md says more.
class KESTRO_API QueryLoadData {
public:
    /// Selects the database by reopening the connection, empties the table and loads the file. The
    /// connection stays on the database; the session's state, such as an open transaction, is gone.
    /// The table and the file's path go into statements as they are, and the table into a LIKE
    /// pattern too, so never pass text from outside. A table whose name needs quoting cannot be
    /// loaded.
    ///
    /// Throws DatabaseException with int parameter 4 and file "Query", before anything is changed:
    /// line 168 and "database not exist" if the database cannot be selected, line 176 and "table
    /// not exist" if it has no such table. If a statement fails, throws what
    /// Query::execute() throws.
    QueryLoadData(Connection& connection, const std::string& database, const std::string& table,
                  const std::string& file);
    ~QueryLoadData();
};

} // namespace Kestro::Database
