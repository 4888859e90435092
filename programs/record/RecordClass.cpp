#include "RecordClass.h"

#include "Identifier.h"

#include <Kestro/Database/Literal.h>

#include <algorithm>
#include <string_view>

namespace {

constexpr std::size_t LineWidth = 100;
constexpr std::string_view Indent = "    ";

/// The variable for a column's values.
struct Kind {
    std::string type = "std::string";
    std::string_view start = {}; ///< its value in a new record, if it does not make one itself
    std::string_view exact = {}; ///< after the column's name, makes the server send every digit
};

Kind kindOf(std::string_view type)
{
    const std::string_view word = type.substr(0, type.find_first_of("( "));
    const std::string sign = type.find(" unsigned") != std::string_view::npos ? "unsigned" : "";

    if (word == "tinyint" || word == "smallint" || word == "mediumint" || word == "year") {
        return {"int", " = 0"};
    }
    if (word == "int") {
        return {sign.empty() ? "int" : sign, " = 0"};
    }
    if (word == "bigint") {
        return {sign.empty() ? "long" : sign + " long", " = 0"};
    }
    if (word == "double") {
        return {"double", " = 0"};
    }
    if (word == "float") {
        return {"float", " = 0", "+0e0"};
    }
    if (type == "bit(1)") {
        return {"bool", " = false"};
    }
    if (word == "bit") {
        return {"std::bitset<" + std::string(type.substr(4, type.find(')') - 4)) + '>'};
    }
    return {};
}

struct Variable {
    Column column;
    Kind kind;
    std::string name;

    std::string declaration() const
    {
        return column.nullable ? "std::optional<" + kind.type + "> " + name + ';'
                               : (kind.type + ' ' + name).append(kind.start) + ';';
    }
    // All the bytes of a text, with NULs among them.
    std::string reference() const
    {
        return declaration().starts_with("std::string ") ? "KYVarRef::exact(" + name + ')' : name;
    }
    std::string flags() const
    {
        const bool saved = !column.generated && !column.numbered;
        if (column.key) {
            return saved ? "KYDB_FLAG_KEY | KYDB_FLAG_SAVE" : "KYDB_FLAG_KEY";
        }
        return saved ? "KYDB_FLAG_SAVE" : "Fetched";
    }
};

std::string declarations(const std::vector<Variable>& variables)
{
    std::size_t longest = 0;
    for (const Variable& variable : variables) {
        longest = std::max(longest, width(variable.declaration()));
    }
    std::string text;
    for (const Variable& variable : variables) {
        std::string line = std::string(Indent) + variable.declaration();
        line.append(Indent.size() + longest - width(line), ' ');
        text += line + " // " +
                shortened(escaped(variable.column.type), LineWidth - width(line) - 4) + '\n';
    }
    return text;
}

// A call as clang-format breaks it.
std::string call(const std::string& function, const std::vector<std::string>& arguments)
{
    std::string text;
    std::string line = std::string(3 * Indent.size(), ' ') + function + '(';
    const std::string aligned(width(line), ' ');
    for (const std::string& argument : arguments) {
        const bool last = &argument == &arguments.back();
        const std::string piece = argument + (last ? ");" : ",");
        const bool first = line.ends_with('(');
        if (!first && width(line) + 1 + width(piece) > LineWidth) {
            text += line + '\n';
            line = aligned + piece;
        } else {
            line += (first ? "" : " ") + piece;
        }
    }
    return text + line + '\n';
}

std::string quoted(const std::string& name, std::string_view behind = "")
{
    return '"' + escaped(Kestro::Database::identifier(name).append(behind)) + '"';
}

std::string bindings(const Variable& variable)
{
    const std::string& name = variable.column.name;
    std::string text =
        call("m_dbmap.push_back", {quoted(name), variable.reference(), variable.flags()});
    if (!variable.kind.exact.empty()) {
        text = "            // Fetched twice: the second value has every digit.\n" + text +
               call("m_dbmap.push_back",
                    {quoted(name, variable.kind.exact), variable.reference(), "Fetched"});
    }
    return text;
}

} // namespace

std::string recordClass(const Table& table, const std::string& name)
{
    std::vector<Variable> variables;
    VariableNames names(name);
    for (const Column& column : table.columns) {
        variables.push_back({column, kindOf(column.type), names.add(column.name)});
    }
    const auto any = [&variables](const auto& is) { return std::ranges::any_of(variables, is); };
    const bool nullable = any([](const Variable& v) { return v.column.nullable; });

    std::string text = "#pragma once\n\n#include <KestroTableMap>\n";
    if (any([](const Variable& v) { return v.kind.type.starts_with("std::bitset"); })) {
        text += "#include <bitset>\n";
    }
    text += nullable ? "#include <optional>\n#include <string>\n\n" : "#include <string>\n\n";
    text += std::string("/// Written by kestro-record: a row of the ") +
            (table.view ? "view" : "table") + " \"" + escaped(table.name) + "\".\n";
    if (nullable) {
        text += "///\n/// An empty std::optional is NULL. As a key, NULL finds nothing.\n";
    }
    if (any([](const Variable& v) { return v.column.numbered; })) {
        text += R"(///
/// The server makes the AUTO_INCREMENT number. save() neither sends nor sets it: each save() adds a
/// row, unless another unique key is taken.
)";
    }
    if (table.view) {
        text += R"(///
/// A view has no key: fetchAll() works, but get() and remove() fail until columns that find one row
/// have KYDB_FLAG_KEY. save() and remove() also need a view that the server can update.
)";
    } else if (!any([](const Variable& v) { return v.column.key; })) {
        text += R"(///
/// The table has no key: get() and remove() fail until columns that find one row have KYDB_FLAG_KEY.
)";
    }
    text += "struct " + name + " : Kestro::KYDBTableSimple {\n" +
            "    Kestro::KYDBDatabase& database;\n" + declarations(variables) + "\n    explicit " +
            name + R"((Kestro::KYDBDatabase& handle) : database(handle) {}

protected:
    void dbmap_init() override
    {
        using namespace Kestro;
)";
    if (any([](const Variable& v) { return bindings(v).find("Fetched)") != std::string::npos; })) {
        text += "        constexpr int Fetched = 1; // neither key nor saved\n";
    }
    text += "        if (dbmap_size() == 0) {\n" + call("table_name", {quoted(table.name)}) +
            call("DBDatabase", {"&database"});
    for (const Variable& variable : variables) {
        text += bindings(variable);
    }
    return text + "        }\n    }\n};\n";
}
