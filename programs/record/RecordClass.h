#pragma once

#include <string>
#include <vector>

/// A column as `desc` describes it.
struct Column {
    std::string name;
    std::string type; ///< as the server spells it, such as "int(11)"
    bool nullable;
    bool key;       ///< of the primary key, or of a unique key in its place
    bool generated; ///< computed from other columns
    bool numbered;  ///< AUTO_INCREMENT
};

/// The text of a header with the record class of a table.
std::string recordClass(const std::string& table, const std::string& name,
                        const std::vector<Column>& columns);

/// The name as it stands in statements: between backquotes.
std::string quoted(const std::string& name);
