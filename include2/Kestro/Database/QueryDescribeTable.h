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
/// All happens in the constructor, on the calling thread; the object keeps nothing but the list.
class KESTRO_API QueryDescribeTable {
public:
    /// One column.
    struct Field {
        std::string name; ///< as it was given when the table was made
        std::string type; ///< as the server spells it, such as "int(11)"
    };

    /// Sends "desc ", the table and ";". The table goes into the statement as it is: quote it where
    /// it needs quoting (`...`), and never pass text from outside. Throws what Query::execute()
    /// throws, for a table that does not exist too.
    QueryDescribeTable(Connection& connection, const std::string& table);
    virtual ~QueryDescribeTable();

    /// The columns. The reference lives as long as this object.
    const std::list<Field>& fields() const& { return m_fields; }
    /// By value, so that a loop may run over the fields of a temporary.
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
