#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/Connection.h>
#include <Kestro/Database/RowContainer.h>

#include <list>
#include <string>
#include <utility>

namespace Kestro::Database {

/// The row of a column's description: the first two columns, each up to its first NUL. NULL and a
/// missing second column read as empty text. parse() throws Exception("FieldRow", 4) at
/// QueryDescribeTable:19 if there are no columns.
class KESTRO_API FieldRow : public RowImpl {
public:
    std::string name; ///< the first column
    std::string type; ///< the second column

    ~FieldRow() override;
    bool parse(void* connection, void* result, void* row) override;
};

/// The columns of a table, in the table's order.
///
/// The constructor does all the work; the object keeps nothing but the list.
class KESTRO_API QueryDescribeTable {
public:
    /// One column.
    struct Field {
        std::string name; ///< as the table has it
        std::string type; ///< as the server spells it, such as "int(11)"
    };

    /// Sends "desc ", the table and ";". The table goes into the statement as it is: pass
    /// identifier(name) for a name that needs quoting or comes from outside. Throws what
    /// Query::execute() throws, also for a table that does not exist.
    QueryDescribeTable(Connection& connection, const std::string& table);
    virtual ~QueryDescribeTable();

    /// The columns. The reference lives as long as this object.
    const std::list<Field>& fields() const& { return m_fields; }
    /// By value, so that a loop over the fields of a temporary is safe.
    std::list<Field> fields() && { return std::move(m_fields); }

private:
    std::list<Field> m_fields;
};

/// Appends the Field that a FieldRow holds to a list, which must outlive it.
class KESTRO_API AdapterFieldRowToFieldContainer {
public:
    /// Appends to this list.
    explicit AdapterFieldRowToFieldContainer(std::list<QueryDescribeTable::Field>& fields)
        : m_fields(&fields)
    {}
    /// The row must be a FieldRow.
    void operator()(const Ref<RowImpl>& row) const;

private:
    std::list<QueryDescribeTable::Field>* m_fields;
};

} // namespace Kestro::Database
