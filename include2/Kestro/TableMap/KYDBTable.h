#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/Query.h>
#include <Kestro/TableMap/KYDBKeyVarMap.h>
#include <Kestro/TableMap/KYDatabase.h>

#include <iosfwd>
#include <string>

namespace Kestro {

/// A row of a table as an object. A derived class owns the variables and has a hook, dbmap_init(),
/// that binds them to columns:
///
///     class User : public KYDBTableSimple {
///     public:
///         int id = 0;
///         std::string name;
///
///     protected:
///         void dbmap_init() override
///         {
///             if (dbmap_size() == 0) {
///                 table_name("users");
///                 DBDatabase(&database);
///                 m_dbmap.push_back("id", id, KYDB_FLAG_KEY | KYDB_FLAG_SAVE)
///                     .push_back("name", name, KYDB_FLAG_SAVE);
///             }
///         }
///     };
///
/// The hook runs at the start of every operation that needs the table's name, the database or the
/// columns, so it runs many times and must not bind a column twice. It may use dbmap_size(),
/// dbmap_clear() and the setters.
///
/// Threads: a record belongs to one thread at a time; the database handle may be shared.
class KESTRO_API KYDBTableBase {
public:
    KYDBTableBase() = default;
    /// Copies the table's name and the database. The map starts empty, so that the copy's hook
    /// binds the copy's variables; the error record starts at 0 and "".
    KYDBTableBase(const KYDBTableBase& other);
    /// Copies the table's name and the database only.
    KYDBTableBase& operator=(const KYDBTableBase& other);
    virtual ~KYDBTableBase();

    /// Fills the variables from a row whose columns are in the order of binding, as sql_keys() with
    /// KYDB_FLAG_ALL lists them. Does not run the hook. Returns the number of columns, or -1 for
    /// null. Throws what KYDBKeyVarMap::parse() throws, and keeps it in the error record.
    virtual int parse(DBRowResult* row);

    /// The table's name, as it is written into statements. The second form sets it.
    const std::string& table_name();
    void table_name(const std::string& name);
    /// Sets the database handle. The caller owns it; it must outlive its use by the record.
    void DBDatabase(KYDBDatabase* handle);
    /// The handle's connection. Throws std::runtime_error if there is no handle.
    Database::Connection& DBConnection();
    /// Runs a query through the handle and returns 0; if it fails, keeps number and message and
    /// returns -1. Does not run the hook. Throws std::runtime_error if there is no handle.
    [[nodiscard]] int execute(Database::Query& query);

    /// Number and message of the record's own last failure, or 0 and "". A success does not clear
    /// them. The number is the server's, or 2000, with a message that names the column, for a value
    /// that does not fit its variable or that SQL does not have.
    int get_error_number() const { return m_errorNumber; }
    std::string get_error_message() const { return m_errorMessage; }

    /// The number of bound columns; 0 before the hook has run.
    std::size_t dbmap_size() const { return m_dbmap.size(); }
    /// Removes all bindings. A hook that binds while there are none binds them again.
    void dbmap_clear() { m_dbmap.clear(); }

    /// The fragments of KYDBKeyVarMap, written to a stream or returned. They throw what it throws.
    void sql_keys(std::ostream& os, int mask, const std::string& prefix);
    std::string sql_keys(int mask, const std::string& prefix);
    std::ostream& sql_values(std::ostream& os, int mask);
    std::string sql_values(int mask);
    void sql_keyvalues(std::ostream& os, int mask, const std::string& separator);
    std::string sql_keyvalues(int mask, const std::string& separator);
    void sql_keyupdate(std::ostream& os, int mask);
    std::string sql_keyupdate(int mask);
    std::ostream& sql_valuesforfile(std::ostream& os, int mask);
    std::string sql_valuesforfile(int mask);
    void dump(std::ostream& os);
    /// Stores a text in a column's variable and returns 0; -1 if the name is not bound, or if the
    /// text does not fit. The error record keeps the latter.
    [[nodiscard]] int assign(const std::string& name, const std::string& value);

protected:
    /// The hook: sets the table's name and the database and binds the columns. Every operation that
    /// needs them runs it first, so it must bind only while dbmap_size() is 0.
    virtual void dbmap_init() = 0;

private:
    std::string m_errorMessage;
    int m_errorNumber = 0;

protected:
    KYDBKeyVarMap m_dbmap; ///< the bindings, which the hook makes

private:
    friend class KYDBTableSimple;

    void keep(const Exception& failure);
    bool appendPairs(std::string& text, int mask, const std::string& separator);

    std::string m_tableName;
    KYDBDatabase* m_dbDatabase = nullptr;
    bool m_failedInParse = false; // so that execute() leaves what parse() kept
};

/// A record that fetches, saves and removes itself.
///
/// Each returns 0 if the statement succeeded, whether or not there is such a row, and -1 if it
/// failed, if SQL does not have a value, or if a fetched one does not fit its variable;
/// get_error_number() and get_error_message() then report why. Each throws std::runtime_error if
/// the record has no database.
class KESTRO_API KYDBTableSimple : public KYDBTableBase {
public:
    /// Fetches the row that matches the columns with KYDB_FLAG_KEY. The parser, such as a
    /// KYDBRecordParser, fills the record. If it throws anything but a Kestro::Exception, so does
    /// get().
    [[nodiscard]] int get(Database::RowParser* parser);
    /// Inserts a row with the columns that have KYDB_FLAG_SAVE. If a row has one of their unique
    /// keys already, it is updated if `update` is true, and otherwise the insert fails.
    [[nodiscard]] int save(bool update);
    /// Deletes the rows that match the columns with KYDB_FLAG_KEY.
    [[nodiscard]] int remove();
};

/// The row parser that fills a record from the first row of a result:
///
///     KYDBRecordParser parser(user);
///     if (user.get(&parser) == 0 && parser.found()) { ... }
class KESTRO_API KYDBRecordParser : public Database::RowParser {
public:
    /// The record must outlive the parser's use.
    explicit KYDBRecordParser(KYDBTableBase& record) : m_record(&record) {}
    ~KYDBRecordParser() override;

    void parse(void* connection, void* result) override;
    /// Whether the last result had a row.
    bool found() const { return m_found; }

private:
    KYDBTableBase* m_record;
    bool m_found = false;
};

/// Base of objects that work on a whole table rather than on one row. It has a table name, a
/// database handle and an error record, as KYDBTableBase has. The derived class sets the first two
/// in its hook, which DBConnection() runs, or earlier.
///
/// Threads: as for a record.
class KESTRO_API KYDBCollectionBase {
protected:
    /// The hook: sets the table's name and the database. DBConnection() runs it.
    virtual void collection_init() = 0;

public:
    KYDBCollectionBase() = default;
    virtual ~KYDBCollectionBase();

    /// Sets the table's name.
    void table_name(const std::string& name);
    /// Sets the database handle. The caller owns it; it must outlive its use by this object.
    void DBDatabase(KYDBDatabase* handle);
    /// Runs the hook and returns the handle's connection. Throws std::runtime_error if there is no
    /// handle.
    Database::Connection& DBConnection();
    /// Runs a query through the handle and returns 0; if it fails, keeps number and message and
    /// returns -1. Does not run the hook. Throws std::runtime_error if there is no handle.
    [[nodiscard]] int execute(Database::Query& query);

    /// Number and message of this object's own last failure, or 0 and "". A success does not clear
    /// them.
    int get_error_number() const { return m_errorNumber; }
    std::string get_error_message() const { return m_errorMessage; }

private:
    std::string m_tableName;
    KYDBDatabase* m_dbDatabase = nullptr;
    std::string m_errorMessage;
    int m_errorNumber = 0;
};

} // namespace Kestro
