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

/// Splits the text at each separator, appends the pieces to the list, without the empty ones if
/// skip_empty is true, and returns the number of elements that the list then has. For an empty text
/// it returns 0 and leaves the list unchanged. Any thread may call it.
KESTRO_API int string2list(std::list<std::string>& out, const std::string& text, char separator,
                           bool skip_empty);

namespace Kestro {

/// Column flags. A record gives its columns these bits, and a mask of bits selects the columns of a
/// fragment. The library uses these; applications may use the others.
constexpr int KYDB_FLAG_KEY = 2;     ///< the columns that a record is found by
constexpr int KYDB_FLAG_SAVE = 8;    ///< the columns that are written
constexpr int KYDB_FLAG_ALL = 65535; ///< every column with one of the low 16 bits

/// One fetched row: the three handles of the client interface that a row object's parse() receives.
/// Owns nothing.
struct DBRowResult {
    void* connection; ///< the connection's handle
    void* result;     ///< the result's handle
    void* row;        ///< the row's handle
};

/// The LIMIT and OFFSET of a SELECT. A value of 0 or below stands for none.
struct DBSelectRange {
    int offset; ///< rows to skip
    int limit;  ///< rows to return
};

/// Writes " LIMIT " and the limit if it is above 0, then " OFFSET " and the offset if it is, both
/// in decimal whatever the stream's locale and flags.
KESTRO_API std::ostream& operator<<(std::ostream& os, const DBSelectRange& range);

/// The columns of a record, each bound to a variable, in the order of binding. Writes pieces of SQL
/// from them.
///
/// Every writer takes a mask and writes the columns whose flags share a bit with it, and returns
/// the text or writes it to a stream, unformatted. Values are escaped and stand in their quotation
/// marks; names and prefixes are written unchanged. A writer throws Exception, whose string
/// parameter names the column, if SQL does not have the value, or if values() or keyvalues() comes
/// to a null handle. It has written nothing then.
///
/// Threads: a map and the variables that it binds belong to one thread at a time.
class KESTRO_API KYDBKeyVarMap {
public:
    /// Binds a name to a buffer of `size` bytes (see KYVarRefT<char*>), or to any variable that
    /// KYVarRef takes. The variable must outlive the binding. A name that is bound again is in the
    /// order twice, both times with the flags and the variable of the last binding.
    KYDBKeyVarMap& push_back(const std::string& name, char* buffer, int size, int flags);
    KYDBKeyVarMap& push_back(const std::string& name, const KYVarRef& variable, int flags);

    /// The name's reference. Throws std::out_of_range, which names it, if the name is not bound.
    const KYVarRef& operator[](const std::string& name) const;
    /// The number of bindings: a name that is bound twice counts twice.
    std::size_t size() const { return m_columns.size(); }
    /// Removes every binding.
    void clear();

    /// Stores a text in the name's variable and returns 0; -1 if the name is not bound, or bound to
    /// a null handle. Throws Exception, whose string parameter names column and value, if the text
    /// does not fit a variable with an exact reference.
    [[nodiscard]] int assign(const std::string& name, const std::string& value);
    /// Fills the variables from the columns of a row, by position, and returns size(), or -1 for
    /// null. NULL, and a column that the row does not have, empties a std::optional and leaves
    /// every other variable unchanged. The column of a null handle is skipped. Throws Exception as
    /// assign() does; the columns before that one are filled then. With exact references, the row
    /// must be the one fetched last.
    int parse(DBRowResult* row);
    /// Writes position, name and value of each binding, one per line, for people to read.
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
    /// One line of a data file for QueryLoadData: the values, separated by tabs, and a line feed. A
    /// null handle and NULL are written as \N; an empty text is an empty field.
    std::string valuesforfile(int mask) const;
    std::ostream& valuesforfile(std::ostream& os, int mask) const;

private:
    friend class KYDBTableBase;

    struct Column {
        std::string name;
        int flags;
        KYVarRef variable;
    };

    const Column* find(const std::string& name) const;
    template <class Write> void appendSelected(std::string& text, int mask,
                                               const std::string& separator,
                                               const Write& write) const;
    void append(std::string& text, int mask, const std::string& separator) const;

    std::vector<Column> m_columns; // in the order of binding
};

} // namespace Kestro
