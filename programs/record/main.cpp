#include "Identifier.h"
#include "Program.h"
#include "RecordClass.h"

#include <Kestro/Database/Connection.h>
#include <Kestro/Database/Query.h>
#include <Kestro/Database/RowContainer.h>

#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

using namespace Kestro::Database;

namespace {

constexpr programs::Program Self = {"kestro-record",
                                    R"(Usage: kestro-record DATABASE TABLE [CLASS]
  or:  kestro-record --help | --version

Writes a C++ header with a record class for the table to standard output. The
class is named CLASS, or else after the table: HelpTopic for help_topic. The
server is the local one, or the one whose socket MYSQL_UNIX_PORT names.

Options:
  --help     print this text
  --version  print the version

Exit status:
  0  the class was written
  1  no class could be written
  2  wrong usage
)"};

struct ColumnRow : RowImpl {
    Column found;

    bool parse(void* connection, void* result, void* row) override
    {
        enum { Name, Type, Null, Key, Default, Extra };
        const auto text = [&](int index) {
            return std::string(column(connection, result, row, index).value_or(""));
        };
        found.name = text(Name);
        found.type = text(Type);
        found.nullable = text(Null) == "YES";
        found.generated = text(Extra).find("GENERATED") != std::string::npos;
        // The end of a versioned row counts as one, of a key that has only the present rows.
        found.key = text(Key) == "PRI" && !found.generated;
        found.numbered = text(Extra).find("auto_increment") != std::string::npos;
        return true;
    }
};

std::vector<Column> columnsOf(Connection& connection, const std::string& table)
{
    RowContainer rows;
    KyRowParser<ColumnRow> parser(rows);
    Query query(connection, &parser);
    query << "desc " << quoted(table);
    try {
        query.execute();
    } catch (const DatabaseException&) {
        throw std::runtime_error(query.get_error_message());
    }
    std::vector<Column> columns;
    for (const Kestro::Ref<RowImpl>& row : rows.rows()) {
        columns.push_back(static_cast<const ColumnRow&>(*row).found);
    }
    return columns;
}

} // namespace

int main(int argc, char** argv)
try {
    if (Self.answers(argc, argv)) {
        return programs::Success;
    }
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (!arguments.empty() && arguments[0].starts_with("--")) {
        return Self.misused("unknown option " + arguments[0]);
    }
    if (arguments.size() < 2 || arguments.size() > 3) {
        return Self.misused("a database and a table are wanted, and perhaps a class");
    }
    const std::string& database = arguments[0];
    const std::string& table = arguments[1];
    if (arguments.size() == 3 && !isClassName(arguments[2])) {
        return Self.misused("no name for a record's class: " + arguments[2]);
    }
    std::optional<Connection> connection;
    try {
        connection.emplace(database);
    } catch (const DatabaseException& e) {
        return Self.failToConnect(e.stringParameter());
    }
    std::cout << recordClass(table, arguments.size() == 3 ? arguments[2] : className(table),
                             columnsOf(*connection, table))
              << std::flush;
    return std::cout ? programs::Success : Self.fail("the class was not written completely");
} catch (const Kestro::Exception& e) {
    return Self.fail(e.stringParameter());
} catch (const std::exception& e) {
    return Self.fail(e.what());
}
