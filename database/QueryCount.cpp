#include <Kestro/Database/QueryCount.h>

#include <db_client.h>

#include <cstdlib>

namespace Kestro::Database {

namespace {

constexpr char File[] = "QueryCount";
constexpr unsigned NoColumnsLine = 19;

} // namespace

CountRow::~CountRow() = default;

bool CountRow::parse(void* connection, void* result, void* row)
{
    if (db_result_fields_num(connection, result) == 0) {
        throw Exception("CountRow", 4, File, NoColumnsLine);
    }
    const char* value = db_result_get_value(connection, result, row, 0);
    count = value != nullptr ? static_cast<std::int32_t>(std::strtol(value, nullptr, 10)) : 0;
    return true;
}

QueryCount::QueryCount(Connection& connection, const std::string& statement)
{
    RowContainer container;
    KyRowParser<CountRow> parser(container);
    connection.execute(statement, &parser);
    if (!container.rows().empty()) {
        m_count = static_cast<const CountRow&>(*container.rows().front()).count;
    }
}

} // namespace Kestro::Database
