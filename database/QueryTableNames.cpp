#include <Kestro/Database/QueryTableNames.h>

#include <db_client.h>

#include <algorithm>

namespace Kestro::Database {

namespace {

constexpr char File[] = "QueryTableNames";
constexpr unsigned NoColumnsLine = 19;
constexpr unsigned EmptyNameLine = 24;

} // namespace

TableNamesRow::~TableNamesRow() = default;

bool TableNamesRow::parse(void* connection, void* result, void* row)
{
    if (db_result_fields_num(connection, result) == 0) {
        throw Exception("TableNamesRow", 4, File, NoColumnsLine);
    }
    if (db_result_field_length(result, 0) == 0) {
        throw Exception("TableNamesRow", 4, File, EmptyNameLine);
    }
    const char* value = db_result_get_value(connection, result, row, 0);
    name = value != nullptr ? value : "";
    return true;
}

QueryTableNames::QueryTableNames(Connection& connection)
{
    RowContainer container;
    KyRowParser<TableNamesRow> parser(container);
    connection.execute("show tables;", &parser);
    std::for_each(container.rows().begin(), container.rows().end(),
                  AdapterTableRowToNameContainer(m_tableNames));
}

void AdapterTableRowToNameContainer::operator()(const Ref<RowImpl>& row) const
{
    m_names->insert(static_cast<const TableNamesRow&>(*row).name);
}

QueryTableExists::QueryTableExists(Connection& connection, const std::string& table)
{
    RowContainer container;
    KyRowParser<NoopRowImpl> parser(container);
    connection.execute("show tables like '" + table + "';", &parser);
    m_exists = !container.rows().empty();
}

QueryTableExists::~QueryTableExists() = default;

} // namespace Kestro::Database
