#include <Kestro/TableMap/KYDBKeyVarMap.h>
#include <Kestro/TableMap/KYDBTable.h>
#include <Kestro/TableMap/KYVarRef.h>

#include "Escaped.h"
#include "SqlStream.h"

#include <db_client.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <locale>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>

namespace {

constexpr std::size_t ColumnInSql = 32; // a guess at its length; longer ones grow

// What failures report as their place, whatever the lines of this file.
constexpr char File[] = "KYTable";
constexpr unsigned NoVariableLine = 1;
constexpr unsigned MisfitLine = 2;
constexpr unsigned NoTextLine = 3;
constexpr char NoVariable[] = "no variable";
constexpr int UnknownError = 2000; // the client interface's number for a failure without another

} // namespace

std::string kydb_escape_string(const std::string& text)
{
    std::string escaped;
    Kestro::Database::appendEscaped(escaped, text);
    return escaped;
}

int string2list(std::list<std::string>& out, const std::string& text, char separator,
                bool skip_empty)
{
    if (text.empty()) {
        return 0;
    }
    for (std::size_t start = 0, end = 0; end != std::string::npos; start = end + 1) {
        end = text.find(separator, start);
        std::string piece = text.substr(start, end == std::string::npos ? end : end - start);
        if (!skip_empty || !piece.empty()) {
            out.push_back(std::move(piece));
        }
    }
    return static_cast<int>(out.size());
}

namespace Kestro {

namespace {

const std::string& noMark()
{
    static const std::string mark;
    return mark;
}

} // namespace

VarRefBase::~VarRefBase() = default;

std::ostream& VarRefBase::streamout(std::ostream& os) const
{
    return os;
}

const std::string& VarRefBase::quotation() const
{
    return noMark();
}

bool VarRefBase::empty() const
{
    return true;
}

void VarRefBase::append(std::string& text) const
{
    std::ostringstream stream;
    stream.imbue(Database::sqlLocale());
    streamout(stream);
    if (const char* refusal = Database::refusedNumber(stream)) {
        throw Exception(refusal, 4, File, NoTextLine);
    }
    text += stream.view();
}

void VarRefBase::assign(const char* text)
{
    if (text != nullptr) {
        assign(std::string(text));
    }
}

bool VarRefBase::isNull() const
{
    return false;
}

void VarRefBase::assignBytes(const char* value, std::size_t /*length*/)
{
    assign(value);
}

const std::string& VarRefBase::doubleQuote()
{
    static const std::string mark = "\"";
    return mark;
}

void VarRefBase::appendEscaped(std::string& text, std::string_view plain)
{
    Database::appendEscaped(text, plain);
}

void VarRefBase::refuse(const std::string& value)
{
    constexpr std::size_t Most = 100; // bytes of it that help
    throw Exception("the value \"" + value.substr(0, Most) + "\" does not fit its variable", 4,
                    File, MisfitLine);
}

template <class T> std::ostream& KYVarRefT<T>::streamout(std::ostream& os) const
{
    if constexpr (std::is_integral_v<T>) {
        return os << *m_var;
    } else {
        return os << kydb_escape_string(*m_var);
    }
}

template <class T> const std::string& KYVarRefT<T>::quotation() const
{
    return std::is_integral_v<T> ? VarRefBase::quotation() : doubleQuote();
}

template <class T> bool KYVarRefT<T>::empty() const
{
    if constexpr (std::is_integral_v<T>) {
        return VarRefBase::empty();
    } else {
        return m_var->empty();
    }
}

template <class T> void KYVarRefT<T>::assign(const std::string& text)
{
    if constexpr (std::is_integral_v<T>) {
        *m_var = static_cast<T>(std::strtol(text.c_str(), nullptr, 10));
    } else {
        *m_var = text;
    }
}

template <class T> VarRefBase* KYVarRefT<T>::dup() const
{
    return new KYVarRefT(*this);
}

template <class T> void KYVarRefT<T>::append(std::string& text) const
{
    if (typeid(*this) != typeid(KYVarRefT)) {
        VarRefBase::append(text); // a derived kind may write something else
    } else if constexpr (std::is_integral_v<T>) {
        char digits[std::numeric_limits<T>::digits10 + 2];
        text.append(digits, std::to_chars(std::begin(digits), std::end(digits), *m_var).ptr);
    } else {
        Database::appendEscaped(text, *m_var);
    }
}

template class KYVarRefT<int>;
template class KYVarRefT<long>;
template class KYVarRefT<std::string>;

std::ostream& KYVarRefT<char*>::streamout(std::ostream& os) const
{
    return os << kydb_escape_string(m_buf);
}

const std::string& KYVarRefT<char*>::quotation() const
{
    return doubleQuote();
}

bool KYVarRefT<char*>::empty() const
{
    return m_buf == nullptr || *m_buf == '\0';
}

void KYVarRefT<char*>::assign(const std::string& text)
{
    const std::string_view value = text.c_str(); // up to its first NUL, as a buffer holds it
    const std::size_t room = m_size > 0 ? static_cast<std::size_t>(m_size) - 1 : value.size();
    m_buf[value.copy(m_buf, room)] = '\0';
}

VarRefBase* KYVarRefT<char*>::dup() const
{
    return new KYVarRefT(*this);
}

void KYVarRefT<char*>::append(std::string& text) const
{
    if (typeid(*this) != typeid(KYVarRefT)) {
        VarRefBase::append(text);
    } else {
        Database::appendEscaped(text, m_buf);
    }
}

KYVarRef::KYVarRef(int& variable) : m_ref(new KYVarRefT<int>(variable))
{}

KYVarRef::KYVarRef(long& variable) : m_ref(new KYVarRefT<long>(variable))
{}

KYVarRef::KYVarRef(std::string& variable) : m_ref(new KYVarRefT<std::string>(variable))
{}

KYVarRef::KYVarRef(char* buffer, int size) : m_ref(new KYVarRefT<char*>(buffer, size))
{}

KYVarRef::KYVarRef(const KYVarRef& other)
    : m_ref(other.m_ref != nullptr ? other.m_ref->dup() : nullptr)
{}

KYVarRef& KYVarRef::operator=(const KYVarRef& other)
{
    if (this != &other) {
        KYVarRef copy(other);
        std::swap(m_ref, copy.m_ref);
    }
    return *this;
}

KYVarRef::~KYVarRef()
{
    release();
}

void KYVarRef::release()
{
    delete std::exchange(m_ref, nullptr);
}

namespace {

// Numbers in decimal for as long as this lives, whatever a program has set in the stream.
class DecimalNumbers {
public:
    explicit DecimalNumbers(std::ostream& os)
        : m_os(os), m_flags(os.flags()), m_locale(os.getloc()),
          m_isPlain(m_locale == std::locale::classic() || m_locale == Database::sqlLocale())
    {
        constexpr auto Kept = std::ios_base::adjustfield | std::ios_base::unitbuf;
        os.flags(std::ios_base::dec | (m_flags & Kept));
        if (!m_isPlain) {
            os.imbue(Database::sqlLocale());
        }
    }
    DecimalNumbers(const DecimalNumbers&) = delete;
    DecimalNumbers& operator=(const DecimalNumbers&) = delete;
    ~DecimalNumbers()
    {
        if (!m_isPlain) {
            m_os.imbue(m_locale);
        }
        m_os.flags(m_flags);
    }

private:
    std::ostream& m_os;
    std::ios_base::fmtflags m_flags;
    std::locale m_locale;
    bool m_isPlain;
};

} // namespace

std::ostream& operator<<(std::ostream& os, const KYVarRef& ref)
{
    const DecimalNumbers decimal(os);
    return ref->streamout(os);
}

std::ostream& operator<<(std::ostream& os, const DBSelectRange& range)
{
    if (range.limit > 0) {
        os << " LIMIT " << std::to_string(range.limit);
    }
    if (range.offset > 0) {
        os << " OFFSET " << std::to_string(range.offset);
    }
    return os;
}

namespace {

// Runs an action on a column; an exception out of it then names the column.
template <class Action> void naming(const std::string& column, const Action& action)
{
    try {
        action();
    } catch (Exception& e) {
        const std::string& reason = e.stringParameter();
        e.stringParameter("column " + column + ": " + (reason.empty() ? e.message() : reason));
        throw;
    }
}

} // namespace

KYDBKeyVarMap& KYDBKeyVarMap::push_back(const std::string& name, char* buffer, int size, int flags)
{
    return push_back(name, KYVarRef(buffer, size), flags);
}

KYDBKeyVarMap& KYDBKeyVarMap::push_back(const std::string& name, const KYVarRef& variable,
                                        int flags)
{
    for (Column& column : m_columns) {
        if (column.name == name) {
            column.flags = flags;
            column.variable = variable;
        }
    }
    m_columns.push_back({name, flags, variable});
    return *this;
}

const KYDBKeyVarMap::Column* KYDBKeyVarMap::find(const std::string& name) const
{
    const auto found = std::ranges::find(m_columns, name, &Column::name);
    return found != m_columns.end() ? &*found : nullptr;
}

const KYVarRef& KYDBKeyVarMap::operator[](const std::string& name) const
{
    const Column* column = find(name);
    if (column == nullptr) {
        throw std::out_of_range("no column is bound to the name " + name);
    }
    return column->variable;
}

void KYDBKeyVarMap::clear()
{
    m_columns.clear();
}

int KYDBKeyVarMap::assign(const std::string& name, const std::string& value)
{
    const Column* column = find(name);
    if (column == nullptr || column->variable.isNull()) {
        return -1;
    }
    naming(name, [&] { column->variable->assign(value); });
    return 0;
}

int KYDBKeyVarMap::parse(DBRowResult* row)
{
    if (row == nullptr) {
        return -1;
    }
    int index = 0;
    for (const Column& column : m_columns) {
        if (!column.variable.isNull()) {
            naming(column.name, [&] {
                column.variable->assignBytes(
                    db_result_get_value(row->connection, row->result, row->row, index),
                    db_result_field_length(row->result, index));
            });
        }
        ++index;
    }
    return index;
}

void KYDBKeyVarMap::dump(std::ostream& os) const
{
    int position = 0;
    for (const Column& column : m_columns) {
        os << std::to_string(position) << ':' << column.name << "::->";
        if (column.variable.isNull()) {
            os << NoVariable;
        } else {
            try {
                os << column.variable;
            } catch (const Exception& e) {
                os << e.message();
            }
        }
        os << std::endl;
        ++position;
    }
}

// Calls write(text, column), which appends, for each selected column, with separators between.
template <class Write> void KYDBKeyVarMap::appendSelected(std::string& text, int mask,
                                                          const std::string& separator,
                                                          const Write& write) const
{
    text.reserve(text.size() + m_columns.size() * ColumnInSql);
    bool first = true;
    for (const Column& column : m_columns) {
        if ((column.flags & mask) != 0) {
            if (!first) {
                text += separator;
            }
            naming(column.name, [&] { write(text, column); });
            first = false;
        }
    }
}

namespace {

void appendQuoted(std::string& text, const KYVarRef& variable)
{
    if (variable.isNull()) {
        throw Exception(NoVariable, 4, File, NoVariableLine);
    }
    if (variable->isNull()) {
        text += "NULL";
        return;
    }
    const std::string& mark = variable->quotation();
    text += mark;
    variable->append(text);
    text += mark;
}

std::ostream& write(std::ostream& os, const std::string& text)
{
    return os.write(text.data(), static_cast<std::streamsize>(text.size()));
}

} // namespace

std::string KYDBKeyVarMap::keys(const std::string& prefix, int mask) const
{
    std::string text;
    appendSelected(text, mask, ",", [&prefix](std::string& out, const Column& column) {
        if (!prefix.empty()) {
            out += prefix;
            out += '.';
        }
        out += column.name;
    });
    return text;
}

std::string KYDBKeyVarMap::values(int mask) const
{
    std::string text = "(";
    appendSelected(text, mask, ",", [](std::string& out, const Column& column) {
        appendQuoted(out, column.variable);
    });
    text += ')';
    return text;
}

void KYDBKeyVarMap::append(std::string& text, int mask, const std::string& separator) const
{
    appendSelected(text, mask, separator, [](std::string& out, const Column& column) {
        out += column.name;
        out += '=';
        appendQuoted(out, column.variable);
    });
}

std::string KYDBKeyVarMap::keyvalues(int mask, const std::string& separator) const
{
    std::string text;
    append(text, mask, separator);
    return text;
}

std::string KYDBKeyVarMap::keyupdate(int mask) const
{
    std::string updates;
    appendSelected(updates, mask, ",", [](std::string& out, const Column& column) {
        out += column.name + "=VALUES(" + column.name + ')';
    });
    return updates.empty() ? updates : " ON DUPLICATE KEY UPDATE " + updates;
}

std::string KYDBKeyVarMap::valuesforfile(int mask) const
{
    std::string text;
    appendSelected(text, mask, "\t", [](std::string& out, const Column& column) {
        if (column.variable.isNull() || column.variable->isNull()) {
            out += "\\N";
        } else {
            column.variable->append(out);
        }
    });
    text += '\n';
    return text;
}

void KYDBKeyVarMap::keys(std::ostream& os, const std::string& prefix, int mask) const
{
    write(os, keys(prefix, mask));
}

std::ostream& KYDBKeyVarMap::values(std::ostream& os, int mask) const
{
    return write(os, values(mask));
}

void KYDBKeyVarMap::keyvalues(std::ostream& os, int mask, const std::string& separator) const
{
    write(os, keyvalues(mask, separator));
}

void KYDBKeyVarMap::keyupdate(std::ostream& os, int mask) const
{
    write(os, keyupdate(mask));
}

std::ostream& KYDBKeyVarMap::valuesforfile(std::ostream& os, int mask) const
{
    return write(os, valuesforfile(mask));
}

namespace {

// Records and collections use their handle and their error record in the same way.
KYDBDatabase& attached(KYDBDatabase* handle, const char* what, const std::string& table)
{
    if (handle == nullptr) {
        throw std::runtime_error(std::string("Database (") + what + ") not set for table:" + table);
    }
    return *handle;
}

int executeThrough(KYDBDatabase* handle, Database::Query& query, const std::string& table,
                   std::string& message, int& number)
{
    const int status = attached(handle, "execute", table).Query(query);
    if (status != 0) {
        // The query's own, which the handle's are too until another thread fails.
        message = query.get_error_message();
        number = query.get_error_number();
    }
    return status;
}

} // namespace

KYDBTableBase::KYDBTableBase(const KYDBTableBase& other)
    : m_tableName(other.m_tableName), m_dbDatabase(other.m_dbDatabase)
{}

KYDBTableBase& KYDBTableBase::operator=(const KYDBTableBase& other)
{
    if (this != &other) {
        m_tableName = other.m_tableName;
        m_dbDatabase = other.m_dbDatabase;
    }
    return *this;
}

KYDBTableBase::~KYDBTableBase() = default;

int KYDBTableBase::parse(DBRowResult* row)
{
    try {
        return m_dbmap.parse(row);
    } catch (const Exception& e) {
        keep(e);
        m_failedInParse = true;
        throw;
    }
}

const std::string& KYDBTableBase::table_name()
{
    dbmap_init();
    return m_tableName;
}

void KYDBTableBase::table_name(const std::string& name)
{
    m_tableName = name;
}

void KYDBTableBase::DBDatabase(KYDBDatabase* handle)
{
    m_dbDatabase = handle;
}

Database::Connection& KYDBTableBase::DBConnection()
{
    dbmap_init();
    return attached(m_dbDatabase, "connection", m_tableName).DBConnection();
}

int KYDBTableBase::execute(Database::Query& query)
{
    std::string message;
    int number = 0;
    m_failedInParse = false;
    const int status = executeThrough(m_dbDatabase, query, m_tableName, message, number);
    if (status != 0 && !m_failedInParse) {
        m_errorMessage = std::move(message);
        m_errorNumber = number;
    }
    return status;
}

void KYDBTableBase::keep(const Exception& failure)
{
    m_errorMessage = failure.stringParameter();
    m_errorNumber = UnknownError;
}

bool KYDBTableBase::appendPairs(std::string& text, int mask, const std::string& separator)
{
    dbmap_init();
    try {
        m_dbmap.append(text, mask, separator);
        return true;
    } catch (const Exception& e) {
        keep(e);
        return false;
    }
}

void KYDBTableBase::sql_keys(std::ostream& os, int mask, const std::string& prefix)
{
    dbmap_init();
    m_dbmap.keys(os, prefix, mask);
}

std::string KYDBTableBase::sql_keys(int mask, const std::string& prefix)
{
    dbmap_init();
    return m_dbmap.keys(prefix, mask);
}

std::ostream& KYDBTableBase::sql_values(std::ostream& os, int mask)
{
    dbmap_init();
    return m_dbmap.values(os, mask);
}

std::string KYDBTableBase::sql_values(int mask)
{
    dbmap_init();
    return m_dbmap.values(mask);
}

void KYDBTableBase::sql_keyvalues(std::ostream& os, int mask, const std::string& separator)
{
    dbmap_init();
    m_dbmap.keyvalues(os, mask, separator);
}

std::string KYDBTableBase::sql_keyvalues(int mask, const std::string& separator)
{
    dbmap_init();
    return m_dbmap.keyvalues(mask, separator);
}

void KYDBTableBase::sql_keyupdate(std::ostream& os, int mask)
{
    dbmap_init();
    m_dbmap.keyupdate(os, mask);
}

std::string KYDBTableBase::sql_keyupdate(int mask)
{
    dbmap_init();
    return m_dbmap.keyupdate(mask);
}

std::ostream& KYDBTableBase::sql_valuesforfile(std::ostream& os, int mask)
{
    dbmap_init();
    return m_dbmap.valuesforfile(os, mask);
}

std::string KYDBTableBase::sql_valuesforfile(int mask)
{
    dbmap_init();
    return m_dbmap.valuesforfile(mask);
}

void KYDBTableBase::dump(std::ostream& os)
{
    dbmap_init();
    m_dbmap.dump(os);
}

int KYDBTableBase::assign(const std::string& name, const std::string& value)
{
    dbmap_init();
    try {
        return m_dbmap.assign(name, value);
    } catch (const Exception& e) {
        keep(e);
        return -1;
    }
}

int KYDBTableSimple::get(Database::RowParser* parser)
{
    Database::Connection& connection = DBConnection();
    std::string text =
        "SELECT " + sql_keys(KYDB_FLAG_ALL, "") + " FROM " + table_name() + " WHERE ";
    if (!appendPairs(text, KYDB_FLAG_KEY, " AND ")) {
        return -1;
    }
    text += ';';
    Database::Query query(connection, std::move(text), parser, true);
    return execute(query) == 0 ? 0 : -1;
}

int KYDBTableSimple::save(bool update)
{
    Database::Connection& connection = DBConnection();
    std::string text;
    text.reserve(2 * dbmap_size() * ColumnInSql + ColumnInSql);
    text.append("INSERT INTO ").append(table_name()).append(" SET ");
    const std::size_t begin = text.size();
    if (!appendPairs(text, KYDB_FLAG_SAVE, ",")) {
        return -1;
    }
    if (update) {
        const std::size_t length = text.size() - begin;
        text.append(" ON DUPLICATE KEY UPDATE ").append(text, begin, length);
    }
    text += ';';
    Database::Query query(connection, std::move(text), nullptr, true);
    try {
        return execute(query) == 0 ? 0 : -1;
    } catch (...) {
        return -1;
    }
}

int KYDBTableSimple::remove()
{
    Database::Connection& connection = DBConnection();
    std::string text = "DELETE FROM " + table_name() + " WHERE ";
    if (!appendPairs(text, KYDB_FLAG_KEY, " AND ")) {
        return -1;
    }
    Database::Query query(connection, std::move(text), nullptr, true);
    try {
        return execute(query) == 0 ? 0 : -1;
    } catch (...) {
        return -1;
    }
}

KYDBRecordParser::~KYDBRecordParser() = default;

void KYDBRecordParser::parse(void* connection, void* result)
{
    m_found = false;
    if (result == nullptr) {
        return;
    }
    DBRowResult row{connection, result, db_result_fetch_row(result, 0)};
    if (row.row != nullptr) {
        m_found = true;
        m_record->parse(&row);
    }
}

KYDBCollectionBase::~KYDBCollectionBase() = default;

void KYDBCollectionBase::table_name(const std::string& name)
{
    m_tableName = name;
}

void KYDBCollectionBase::DBDatabase(KYDBDatabase* handle)
{
    m_dbDatabase = handle;
}

Database::Connection& KYDBCollectionBase::DBConnection()
{
    collection_init();
    return attached(m_dbDatabase, "connection", m_tableName).DBConnection();
}

int KYDBCollectionBase::execute(Database::Query& query)
{
    return executeThrough(m_dbDatabase, query, m_tableName, m_errorMessage, m_errorNumber);
}

} // namespace Kestro
