#pragma once

#include <string>
#include <vector>

/// A column as `desc` describes it.
struct Column {
    std::string name;
    std::string type; ///< as the server spells it, such as "int(11)"
    bool nullable;
    bool key;       ///< of the primary key, or of the unique key that serves as one
    bool generated; ///< computed from other columns
    bool numbered;  ///< AUTO_INCREMENT
};

/// A table or a view.
struct Table {
    std::string name;
    bool view;
    std::vector<Column> columns;
};

/// Returns the text of a header with the record class of a table.
std::string recordClass(const Table& table, const std::string& name);
