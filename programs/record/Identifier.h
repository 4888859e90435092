#pragma once

#include <set>
#include <string>
#include <string_view>

/// Names of a database as names and texts of C++.

/// The name of a class for a table: `help_topic` is HelpTopic.
std::string className(std::string_view table);

/// Whether a class may have the name: an identifier, and none that a record's class itself uses.
bool isClassName(const std::string& name);

/// Gives the variables of one class their names.
class VariableNames {
public:
    /// The variables' class, whose name none of them may have.
    explicit VariableNames(const std::string& ofClass) : m_used({ofClass}) {}

    /// The column's own name where C++ takes it. Letters and digits stay and all else becomes `_`;
    /// a name in capitals, as macros have, is written small; a first digit, keywords and names that
    /// a record has already get a `_`, and names that come out alike a number.
    std::string add(std::string_view column);

private:
    std::set<std::string> m_used;
};

/// What stands between the quotation marks of a literal, on one line; fit for a comment too.
std::string literal(std::string_view text);

/// How many characters a UTF-8 text has.
std::size_t width(std::string_view text);

/// The text, or its beginning and "..." if it has more characters than that.
std::string shortened(std::string_view text, std::size_t most);
