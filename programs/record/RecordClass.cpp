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
    std::string_view variable;
    bool own = false;            ///< of a type that the library has no reference for
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
        return {.variable = "int"};
    }
    if (word == "int") {
        return {.variable = isUnsigned ? "long" : "int"};
    }
    if (word == "bigint") {
        return {.variable = isUnsigned ? "unsigned long" : "long", .own = isUnsigned};
    }
    if (word == "double") {
        return {.variable = "double", .own = true};
    }
    if (word == "float") {
        return {.variable = "float", .own = true, .exact = "+0e0"};
    }
    if (word == "bit") {
        return {.variable = "unsigned long", .own = true, .exact = "+0"};
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
    const std::string type(variable.kind.variable);
    if (variable.column.nullable) {
        return "std::optional<" + type + "> " + variable.name + ';';
    }
    return type + ' ' + variable.name + (type == "std::string" ? ";" : " = 0;");
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
    if (variable.column.nullable) {
        return (variable.kind.own ? "nullable<Number>(" : "nullable(") + variable.name + ')';
    }
    return variable.kind.own ? "KYVarRef(new Number(" + variable.name + "))" : variable.name;
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
    bool number = false;
    bool bytes = false;
    bool fetched = false;

    explicit Needs(const std::vector<Variable>& variables)
    {
        for (const Variable& variable : variables) {
            key |= variable.column.key;
            numbered |= variable.column.numbered;
            nullable |= variable.column.nullable;
            number |= variable.kind.own;
            bytes |= variable.kind.bytes;
            fetched |= flags(variable) == "Fetched" || !variable.kind.exact.empty();
        }
    }
};

std::string includes(const Needs& needs)
{
    std::string text = "#include <KestroTableMap>\n";
    if (needs.number) {
        text += "#include <charconv>\n";
    }
    if (needs.bytes) {
        text += "#include <db_client.h>\n";
    }
    if (needs.nullable) {
        text += "#include <optional>\n";
    }
    if (needs.nullable || needs.number) {
        text += "#include <ostream>\n";
    }
    text += "#include <string>\n";
    if (needs.number) {
        text += "#include <type_traits>\n";
    }
    return text;
}

std::string classComment(const std::string& table, const Needs& needs)
{
    std::string text =
        "/// Written by kestro-record: a row of the table \"" + literal(table) + "\".\n";
    if (needs.nullable) {
        text += R"(///
/// A column that may be NULL is a std::optional: get() empties it for NULL, and what is empty is
/// saved as NULL, which statements and data files spell \N. As a key NULL finds nothing.
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

// What reads the bytes behind a NUL: those of the map's columns that have them, by their position.
std::string bytesReader(const std::vector<Variable>& variables)
{
    std::string text = R"(
    /// The library's texts end at their first NUL: binary columns are read again, whole, by their
    /// positions in dbmap_init().
    int parse(Kestro::DBRowResult* row) override
    {
        const int bound = KYDBTableSimple::parse(row);
        if (row != nullptr) {
)";
    int position = 0;
    for (const Variable& variable : variables) {
        if (variable.kind.bytes) {
            text += call("readBytes", {"*row", std::to_string(position), variable.name});
        }
        position += variable.kind.exact.empty() ? 1 : 2;
    }
    return text + R"(        }
        return bound;
    }
)";
}

constexpr std::string_view ReadBytes = R"(
    template <class T>
    static void readBytes(const Kestro::DBRowResult& row, int column, T& variable)
    {
        const char* value = db_result_get_value(row.connection, row.result, row.row, column);
        if (value != nullptr) {
            variable = std::string(value, db_result_field_length(row.result, column));
        }
    }
)";

constexpr std::string_view Number = R"(
    /// The reference to a number of a type that the library has none for.
    template <class T> class Number : public Kestro::VarRefBase {
    public:
        explicit Number(T& variable) : m_variable(&variable) {}

        std::ostream& streamout(std::ostream& toStream) const override
        {
            char valueText[32];
            char* valueEnd = valueText + sizeof valueText;
            if constexpr (std::is_integral_v<T>) {
                valueEnd = std::to_chars(valueText, valueEnd, *m_variable).ptr;
            } else {
                // Every digit that a double has, and an exponent: without one it is a DECIMAL.
                const double asDouble = *m_variable;
                valueEnd =
                    std::to_chars(valueText, valueEnd, asDouble, std::chars_format::scientific).ptr;
            }
            return toStream.write(valueText, valueEnd - valueText);
        }
        bool empty() const override { return false; }
        using VarRefBase::assign;
        void assign(const std::string& valueText) override
        {
            *m_variable = 0;
            std::from_chars(valueText.data(), valueText.data() + valueText.size(), *m_variable);
        }
        VarRefBase* dup() const override { return new Number(*this); }

    private:
        T* m_variable;
    };
)";

constexpr std::string_view Nullable = R"(
    /// The reference to a variable that may be NULL; Plain refers to one that may not.
    template <class T, class Plain> class Nullable : public Kestro::VarRefBase {
    public:
        explicit Nullable(std::optional<T>& variable) : m_variable(&variable) {}

        std::ostream& streamout(std::ostream& toStream) const override
        {
            return *m_variable ? Plain(**m_variable).streamout(toStream) : toStream << "\\N";
        }
        const std::string& quotation() const override
        {
            return *m_variable ? Plain(**m_variable).quotation() : VarRefBase::quotation();
        }
        bool empty() const override { return !*m_variable || Plain(**m_variable).empty(); }
        void assign(const char* valueText) override
        {
            if (valueText != nullptr) {
                assign(std::string(valueText));
            } else {
                m_variable->reset();
            }
        }
        void assign(const std::string& valueText) override
        {
            Plain(m_variable->emplace()).assign(valueText);
        }
        VarRefBase* dup() const override { return new Nullable(*this); }

    private:
        std::optional<T>* m_variable;
    };

    template <template <class> class Plain = Kestro::KYVarRefT, class T>
    static Kestro::KYVarRef nullable(std::optional<T>& variable)
    {
        return Kestro::KYVarRef(new Nullable<T, Plain<T>>(variable));
    }
)";

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
    if (needs.bytes) {
        text += bytesReader(variables);
    }
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
    std::string members;
    if (needs.bytes) {
        members += ReadBytes;
    }
    if (needs.number) {
        members += Number;
    }
    if (needs.nullable) {
        members += Nullable;
    }
    if (!members.empty()) {
        text += "\nprivate:" + members;
    }
    return text + "};\n";
}
