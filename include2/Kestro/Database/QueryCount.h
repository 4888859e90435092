#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/Connection.h>
#include <Kestro/Database/RowContainer.h>

#include <cstdint>
#include <string>

namespace Kestro::Database {

/// The row of a count: its first column as a number, as strtol reads it in base 10, of which the
/// low 32 bits are kept. A text without digits, and NULL, read as 0. parse() throws
/// Exception("CountRow", 4) at QueryCount:19 if there are no columns.
class KESTRO_API CountRow : public RowImpl {
public:
    std::int32_t count = 0; ///< the number; 0 before the first row

    ~CountRow() override;
    bool parse(void* connection, void* result, void* row) override;
};

/// Runs a statement and keeps the number in the first column of its first row.
///
///     const auto open = QueryCount(connection, "SELECT COUNT(*) FROM ticket WHERE open").count();
///
/// The number has 32 bits, and what is no number counts as 0: scalar<T>() in Scalar.h has neither
/// limit. The constructor does all the work; the object keeps nothing but the number.
class KESTRO_API QueryCount {
public:
    /// The statement is sent exactly as it is. Throws what Query::execute() throws.
    QueryCount(Connection& connection, const std::string& statement);

    /// 0 also if the statement gave no row, or no result at all.
    std::int32_t count() const { return m_count; }

private:
    std::int32_t m_count = 0;
};

} // namespace Kestro::Database
