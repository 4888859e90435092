#pragma once

#include <Kestro/Api.h>
#include <Kestro/TableMap/KYVarRef.h>

#include <cstddef>
#include <iosfwd>
#include <list>
#include <string>
#include <vector>

/// \file
/// Columns bound to variables, and SQL from them.

/// Appends the pieces of the text between separators to the list, empty ones too unless they are to
/// be skipped, and returns how many elements the list then has. An empty text returns 0 and leaves
/// the list as it is. Any thread may call it.
KESTRO_API int string2list(std::list<std::string>& out, const std::string& text, char separator,
                           bool skip_empty);

namespace Kestro {

/// Column flags: bits that a record gives its columns and that select columns for a fragment. The
/// library looks at these; the others are the application's.
constexpr int KYDB_FLAG_KEY = 2;     ///< the columns that a record is found by
constexpr int KYDB_FLAG_SAVE = 8;    ///< the columns that are written
constexpr int KYDB_FLAG_ALL = 65535; ///< every column with one of the low 16 bits

/// One fetched row: the client interface's handles, as a row object's parse() receives them. Owns
/// nothing.
struct DBRowResult {
    void* connection; ///< of the link that the result came over
    void* result;     ///< of the result that the row is in
    void* row;        ///< of the row
};

/// The tail of a SELECT; values of 0 or below are not wanted.
struct DBSelectRange {
    int offset; ///< rows to skip
    int limit;  ///< rows to return
};

/// Writes " LIMIT " and the limit, then " OFFSET " and the offset, each if it is wanted.
KESTRO_API std::ostream& operator<<(std::ostream& os, const DBSelectRange& range);

/// The columns of a record, bound to its variables in an order that everything keeps, and the
/// pieces of SQL that are written from them.
///
/// Every writer takes a mask and writes the columns whose flags share a bit with it, as a text or
/// into a stream, unformatted. Values are escaped and in the quotation marks of their kind; names
/// and prefixes are written as they are. A writer throws Exception, whose string parameter names
/// the column, and has written nothing, if a value has no text in SQL or values() and keyvalues()
/// meet a null handle.
///
/// Threads: a map belongs to one thread at a time, with the variables that it binds.
class KESTRO_API KYDBKeyVarMap {
public:
    /// Binds a name to a buffer of `size` bytes (see KYVarRefT<char*>), or to an int, a long, a
    /// std::string or a reference of one's own. The variable must outlive the binding. A name that
    /// is bound again stands twice in the order, both times with what was bound last.
    KYDBKeyVarMap& push_back(const std::string& name, char* buffer, int size, int flags);
    KYDBKeyVarMap& push_back(const std::string& name, const KYVarRef& variable, int flags);

    /// Throws std::out_of_range, which names it, for a name that is not bound.
    const KYVarRef& operator[](const std::string& name) const;
    /// A name that is bound twice counts twice.
    std::size_t size() const { return m_columns.size(); }
    /// Removes every binding.
    void clear();

    /// Stores a text in the name's variable and returns 0; -1 if the name is not bound, or bound to
    /// a null handle. Throws Exception, whose string parameter names column and value, if an exact
    /// reference does not take the text.
    [[nodiscard]] int assign(const std::string& name, const std::string& value);
    /// Fills the variables from the columns of a row, by position, and returns size(); -1 for null.
    /// NULL, and a column that the row does not have, empties a std::optional and leaves every
    /// other variable as it is; the column of a null handle is skipped. Throws Exception as
    /// assign() does: the columns before that one are filled. If there are exact references, the
    /// row must be the one fetched last.
    int parse(DBRowResult* row);
    /// Writes a line for each name, for people: position, name and value, numbers in decimal.
    void dump(std::ostream& os) const;

    /// `id,name`, or `t.id,t.name` with prefix "t".
    std::string keys(const std::string& prefix, int mask) const;
    void keys(std::ostream& os, const std::string& prefix, int mask) const;
    /// `("42","Ann")`; `()` if no column is selected.
    std::string values(int mask) const;
    std::ostream& values(std::ostream& os, int mask) const;
    /// `id="42",name="Ann"`, with the separator between them.
    std::string keyvalues(int mask, const std::string& separator) const;
    void keyvalues(std::ostream& os, int mask, const std::string& separator) const;
    /// ` ON DUPLICATE KEY UPDATE id=VALUES(id),name=VALUES(name)`; nothing if no column is
    /// selected.
    std::string keyupdate(int mask) const;
    void keyupdate(std::ostream& os, int mask) const;
    /// One line of a data file for QueryLoadData: values between tabs, and a line feed. A null
    /// handle is written as \N; an empty text is an empty field.
    std::string valuesforfile(int mask) const;
    std::ostream& valuesforfile(std::ostream& os, int mask) const;

private:
    struct Column {
        std::string name;
        int flags;
        KYVarRef variable;
    };

    const Column* find(const std::string& name) const;
    template <class Write>
    std::string ofSelected(int mask, const std::string& separator, const Write& write) const;

    std::vector<Column> m_columns; // in the order of binding
};

} // namespace Kestro
