#include <Kestro/Database/QueryDescribeTable.h>

#include <db_client.h>

#include <algorithm>

namespace Kestro::Database {

namespace {

constexpr char File[] = "QueryDescribeTable";
constexpr unsigned NoColumnsLine = 19;

} // namespace

FieldRow::~FieldRow() = default;

bool FieldRow::parse(void* connection, void* result, void* row)
{
    if (db_result_fields_num(connection, result) == 0) {
        throw Exception("FieldRow", 4, File, NoColumnsLine);
    }
    const auto text = [&](int column) {
        const char* value = db_result_get_value(connection, result, row, column);
        return std::string(value != nullptr ? value : "");
    };
    name = text(0);
    type = text(1);
    return true;
}

QueryDescribeTable::QueryDescribeTable(Connection& connection, const std::string& table)
{
    RowContainer container;
    KyRowParser<FieldRow> parser(container);
    connection.execute("desc " + table + ";", &parser);
    std::for_each(container.rows().begin(), container.rows().end(),
                  AdapterFieldRowToFieldContainer(m_fields));
}

QueryDescribeTable::~QueryDescribeTable() = default;

void AdapterFieldRowToFieldContainer::operator()(const Ref<RowImpl>& row) const
{
    const auto& field = static_cast<const FieldRow&>(*row);
    m_fields->push_back({field.name, field.type});
}

} // namespace Kestro::Database
