#pragma once

#include <set>
#include <string>
#include <string_view>

/// Names of a database in C++.

/// Returns the name of a class for a table: HelpTopic for `help_topic`.
std::string className(std::string_view table);

/// Whether a class may have the name: an identifier that a record's class does not use itself.
bool isClassName(const std::string& name);

/// Gives the variables of one class their names.
class VariableNames {
public:
    /// No variable gets the name of the class.
    explicit VariableNames(const std::string& ofClass) : m_used({ofClass}) {}

    /// Returns the column's own name if C++ takes it, else one like it. Only letters and digits
    /// stay, with `_` for what was between them. Names in capitals are written small, as they may
    /// be macros. A first digit, keywords and a record's own names get a `_`. If two names come out
    /// alike, the second gets a number.
    std::string add(std::string_view column);

private:
    std::set<std::string> m_used;
};

/// Returns the text as it stands between the quotation marks of a C++ literal, on one line. It is
/// fit for a comment too.
std::string escaped(std::string_view text);

/// Returns the number of characters of a UTF-8 text.
std::size_t width(std::string_view text);

/// Returns the text, or its beginning and "..." if it has more than `most` characters.
std::string shortened(std::string_view text, std::size_t most);
