#include <Kestro/Database/Scalar.h>

namespace Kestro::Database::detail {

namespace {

constexpr char File[] = "Scalar";
constexpr unsigned NoRowLine = 1;

} // namespace

ScalarRow::ScalarRow(Connection& connection, const std::string& statement)
{
    OneRowParser parser(*this);
    connection.execute(statement, &parser);
    if (!m_found) {
        throw DatabaseException(4, File, NoRowLine, "there is no row : " + statement, 0);
    }
}

ScalarRow::~ScalarRow() = default;

bool ScalarRow::parse(void* connection, void* result, void* row)
{
    m_found = true;
    m_value = column(connection, result, row, 0);
    return false;
}

} // namespace Kestro::Database::detail
