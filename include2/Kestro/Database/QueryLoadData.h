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
/// loader's own: values separated by a tab, a row to a line, \N for NULL, and what db_escape_string
/// writes for the rest; it is read as UTF-8. Of two rows with one key the later remains.
///
/// The table is emptied first and that is not undone: a load that is refused leaves it empty.
/// docs/scripts-and-loads.md tells more.
class KESTRO_API QueryLoadData {
public:
    /// Selects the database by reopening the link, empties the table and loads the file, on the
    /// calling thread. The connection stays on the database, and what its session held, such as an
    /// open transaction, is gone. Table and file go into statements as they are, the table as a
    /// LIKE pattern too: never pass text from outside; a name that needs quoting cannot be loaded.
    ///
    /// Throws DatabaseException with int parameter 4, file "Query", and before anything was
    /// changed: line 168 and "database not exist" if the database cannot be selected, line 176 and
    /// "table not exist" if it has no such table; and what Query::execute() throws if the server
    /// refuses.
    QueryLoadData(Connection& connection, const std::string& database, const std::string& table,
                  const std::string& file);
    ~QueryLoadData();
};

} // namespace Kestro::Database
