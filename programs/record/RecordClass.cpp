#include "RecordClass.h"

#include "Identifier.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace {

constexpr std::size_t LineWidth = 100;
constexpr std::string_view Indent = "    ";

/// How a column's values live in a variable.
struct Kind {
    std::string variable;
    std::string_view start = {}; ///< its value in a new record, if it does not make one itself
    bool bytes = false;          ///< with NULs among them
    std::string_view exact = {}; ///< behind the name, makes the server send the whole value
};

constexpr std::string_view Bytes[] = {
    "binary",       "varbinary",
    "tinyblob",     "blob",
    "mediumblob",   "longblob",
    "geometry",     "point",
    "linestring",   "polygon",
    "multipoint",   "multilinestring",
    "multipolygon", "geometrycollection",
};

Kind kindOf(std::string_view type)
{
    const std::string_view word = type.substr(0, type.find_first_of("( "));
    const auto among = [word](const auto& words) { return std::ranges::count(words, word) > 0; };
    const bool isUnsigned = type.find(" unsigned") != std::string_view::npos;

    if (among(std::to_array<std::string_view>({"tinyint", "smallint", "mediumint", "year"}))) {
        return {.variable = "int", .start = " = 0"};
    }
    if (word == "int") {
        return {.variable = isUnsigned ? "unsigned" : "int", .start = " = 0"};
    }
    if (word == "bigint") {
        return {.variable = isUnsigned ? "unsigned long" : "long", .start = " = 0"};
    }
    if (word == "double") {
        return {.variable = "double", .start = " = 0"};
    }
    if (word == "float") {
        return {.variable = "float", .start = " = 0", .exact = "+0e0"};
    }
    if (type == "bit(1)") {
        return {.variable = "bool", .start = " = false"};
    }
    if (word == "bit") {
        return {.variable = "std::bitset<" + std::string(type.substr(4, type.find(')') - 4)) + '>'};
    }
    return {.variable = "std::string", .bytes = among(Bytes)};
}

struct Variable {
    Column column;
    Kind kind;
    std::string name;

    bool saved() const { return !column.generated && !column.numbered; }
};

std::string declaration(const Variable& variable)
{
    const Kind& kind = variable.kind;
    if (variable.column.nullable) {
        return "std::optional<" + kind.variable + "> " + variable.name + ';';
    }
    return (kind.variable + ' ' + variable.name).append(kind.start) + ';';
}

std::string declarations(const std::vector<Variable>& variables)
{
    std::size_t longest = 0;
    for (const Variable& variable : variables) {
        longest = std::max(longest, width(declaration(variable)));
    }
    std::string text;
    for (const Variable& variable : variables) {
        std::string line = std::string(Indent) + declaration(variable);
        line.append(Indent.size() + longest - width(line), ' ');
        text += line + " // " +
                shortened(literal(variable.column.type), LineWidth - width(line) - 4) + '\n';
    }
    return text;
}

// A call as .clang-format breaks it.
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

std::string reference(const Variable& variable)
{
    const bool fits = !variable.kind.bytes || variable.column.nullable;
    return fits ? variable.name : "KYVarRef::exact(" + variable.name + ')';
}

std::string flags(const Variable& variable)
{
    if (variable.column.key) {
        return variable.saved() ? "KYDB_FLAG_KEY | KYDB_FLAG_SAVE" : "KYDB_FLAG_KEY";
    }
    return variable.saved() ? "KYDB_FLAG_SAVE" : "Fetched";
}

std::string binding(const Variable& variable)
{
    const auto bind = [&](std::string_view exact, const std::string& flag) {
        const std::string expression = quoted(variable.column.name).append(exact);
        return call("m_dbmap.push_back",
                    {'"' + literal(expression) + '"', reference(variable), flag});
    };
    std::string text = bind("", flags(variable));
    if (!variable.kind.exact.empty()) {
        text += bind(variable.kind.exact, "Fetched");
    }
    return text;
}

/// What the variables of a table ask of the class around them.
struct Needs {
    bool key = false;
    bool numbered = false;
    bool nullable = false;
    bool bits = false;
    bool fetched = false;

    explicit Needs(const std::vector<Variable>& variables)
    {
        for (const Variable& variable : variables) {
            key |= variable.column.key;
            numbered |= variable.column.numbered;
            nullable |= variable.column.nullable;
            bits |= variable.kind.variable.starts_with("std::bitset");
            fetched |= flags(variable) == "Fetched" || !variable.kind.exact.empty();
        }
    }
};

std::string includes(const Needs& needs)
{
    return std::string("#include <KestroTableMap>\n") + (needs.bits ? "#include <bitset>\n" : "") +
           (needs.nullable ? "#include <optional>\n" : "") + "#include <string>\n";
}

std::string classComment(const std::string& table, const Needs& needs)
{
    std::string text =
        "/// Written by kestro-record: a row of the table \"" + literal(table) + "\".\n";
    if (needs.nullable) {
        text += R"(///
/// A column that may be NULL is a std::optional, which is empty for NULL. As a key NULL finds
/// nothing.
)";
    }
    if (needs.numbered) {
        text += R"(///
/// The server makes the AUTO_INCREMENT number: save() leaves it out, so every save() is a new row
/// unless another unique key is taken, and does not set the variable.
)";
    }
    if (!needs.key) {
        text += R"(///
/// The table has no key: the server refuses get() and remove() until columns that find one row have
/// KYDB_FLAG_KEY.
)";
    }
    return text;
}

} // namespace

std::string quoted(const std::string& name)
{
    std::string text = "`";
    for (const char c : name) {
        text.append(c == '`' ? 2 : 1, c);
    }
    return text + '`';
}

std::string recordClass(const std::string& table, const std::string& name,
                        const std::vector<Column>& columns)
{
    std::vector<Variable> variables;
    VariableNames names(name);
    for (const Column& column : columns) {
        variables.push_back({column, kindOf(column.type), names.add(column.name)});
    }
    const Needs needs(variables);

    std::string text = "#pragma once\n\n" + includes(needs) + '\n' + classComment(table, needs);
    text += "struct " + name + " : Kestro::KYDBTableSimple {\n" +
            "    Kestro::KYDBDatabase& database;\n" + declarations(variables) + "\n    explicit " +
            name + "(Kestro::KYDBDatabase& handle) : database(handle) {}\n";
    text += R"(
protected:
    void dbmap_init() override
    {
        using namespace Kestro;
)";
    if (needs.fetched) {
        text += "        constexpr int Fetched = 1; // neither key nor saved\n";
    }
    text += "        if (dbmap_size() == 0) {\n" +
            call("table_name", {'"' + literal(quoted(table)) + '"'}) +
            call("DBDatabase", {"&database"});
    for (const Variable& variable : variables) {
        if (!variable.kind.exact.empty()) {
            text += "            // What is fetched into the same variable behind it is the exact "
                    "number.\n";
        }
        text += binding(variable);
    }
    text += "        }\n    }\n";
    return text + "};\n";
}
