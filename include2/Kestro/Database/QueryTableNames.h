#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/Connection.h>
#include <Kestro/Database/RowContainer.h>

#include <set>
#include <string>
#include <utility>

namespace Kestro::Database {

/// The row of a table's name: the first column, up to its first NUL. parse() throws
/// Exception("TableNamesRow", 4), at QueryTableNames:19 if there are no columns and at
/// QueryTableNames:24 if the first one is empty or NULL.
class KESTRO_API TableNamesRow : public RowImpl {
public:
    std::string name; ///< the table's name

    ~TableNamesRow() override;
    bool parse(void* connection, void* result, void* row) override;
};

/// The names of the tables, and views, of the connection's database, in byte-wise order.
///
/// The constructor does all the work; the object keeps nothing but the names.
class KESTRO_API QueryTableNames {
public:
    /// Sends "show tables;". Throws what Query::execute() throws.
    explicit QueryTableNames(Connection& connection);

    /// The names. The reference lives as long as this object.
    const std::set<std::string>& names() const& { return m_tableNames; }
    /// By value, so that a loop over the names of a temporary is safe.
    std::set<std::string> names() && { return std::move(m_tableNames); }

private:
    std::set<std::string> m_tableNames;
};

/// Inserts the name that a TableNamesRow holds into a set, which must outlive it.
class KESTRO_API AdapterTableRowToNameContainer {
public:
    /// Inserts into this set.
    explicit AdapterTableRowToNameContainer(std::set<std::string>& names) : m_names(&names) {}
    /// The row must be a TableNamesRow.
    void operator()(const Ref<RowImpl>& row) const;

private:
    std::set<std::string>* m_names;
};

/// Whether the connection's database has a table whose name matches a pattern.
///
/// The name is a LIKE pattern: "_" in it stands for any one character and "%" for any number of
/// them, so "my_table" finds a table my1table too. For an exact answer look into
/// QueryTableNames::names(), or write the two characters as "\_" and "\%".
class KESTRO_API QueryTableExists {
public:
    /// Sends "show tables like '", the name and "';". The name goes into the statement as it is: a
    /// quote in it ends the pattern, so never pass text from outside. Throws what Query::execute()
    /// throws.
    QueryTableExists(Connection& connection, const std::string& table);
    virtual ~QueryTableExists();

    /// Whether at least one table matched.
    bool exists() const { return m_exists; }

private:
    bool m_exists = false;
};

} // namespace Kestro::Database
