#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/Query.h>
#include <Kestro/TableMap/KYDBKeyVarMap.h>
#include <Kestro/TableMap/KYDatabase.h>

#include <iosfwd>
#include <string>

namespace Kestro {

/// A row of a table as an object. A derived class has the variables and a hook, dbmap_init(), that
/// says what they are:
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
/// columns, so many times: it must not bind a column twice. It may use dbmap_size(), dbmap_clear()
/// and the setters.
///
/// Threads: a record belongs to one thread at a time; the database handle may be shared.
class KESTRO_API KYDBTableBase {
public:
    KYDBTableBase() = default;
    /// Takes the table's name and the database; the map starts empty, for the copy's own variables,
    /// and the error record clean.
    KYDBTableBase(const KYDBTableBase& other);
    /// Takes the table's name and the database only.
    KYDBTableBase& operator=(const KYDBTableBase& other);
    virtual ~KYDBTableBase();

    /// Fills the variables from a row whose columns are in the order of binding, as sql_keys() with
    /// KYDB_FLAG_ALL lists them. Does not run the hook. Returns the number of columns, -1 for null.
    /// What KYDBKeyVarMap::parse() throws passes through, and the error record keeps it.
    virtual int parse(DBRowResult* row);

    /// The name as it stands in statements.
    const std::string& table_name();
    void table_name(const std::string& name);
    /// The database handle to use, which must outlive the record's use of it; the caller owns it.
    void DBDatabase(KYDBDatabase* handle);
    /// The handle's connection. Throws std::runtime_error if there is no handle.
    Database::Connection& DBConnection();
    /// Runs a query through the handle and returns 0, or keeps number and message of its failure
    /// and returns -1. Does not run the hook. Throws std::runtime_error if there is no handle.
    [[nodiscard]] int execute(Database::Query& query);

    /// Number and message of the record's own last failure, 0 and "" before it; a success does not
    /// clear them. The number is the server's, or 2000 for a value that does not fit its variable
    /// or has no text in SQL: the message names the column.
    int get_error_number() const { return m_errorNumber; }
    std::string get_error_message() const { return m_errorMessage; }

    /// The number of bound columns; 0 before the hook ran first.
    std::size_t dbmap_size() const { return m_dbmap.size(); }
    /// Forgets all bindings; a hook that binds when there are none binds anew.
    void dbmap_clear() { m_dbmap.clear(); }

    /// The fragments of KYDBKeyVarMap, into a stream or as a text. They throw what it throws.
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
    /// text does not fit, which the error record keeps.
    [[nodiscard]] int assign(const std::string& name, const std::string& value);

protected:
    /// The hook: sets the table's name and the database and binds the columns. Runs in front of
    /// every operation that needs them, so it binds only while dbmap_size() is 0.
    virtual void dbmap_init() = 0;

private:
    std::string m_errorMessage;
    int m_errorNumber = 0;

protected:
    KYDBKeyVarMap m_dbmap; ///< the bindings, in the order in which the hook made them

private:
    friend class KYDBTableSimple;

    void keep(const Exception& failure);
    bool writePairs(std::string& text, int mask, const std::string& separator);

    std::string m_tableName;
    KYDBDatabase* m_dbDatabase = nullptr;
    bool m_failedInParse = false; // so that execute() leaves what parse() kept
};

/// A record that fetches, saves and removes itself.
///
/// Each returns 0 if the server accepted the statement, whether or not there was such a row, and -1
/// if not, or if a value does not go into SQL or into its variable: get_error_number() and
/// get_error_message() then say why. Each throws std::runtime_error if the record has no database.
class KESTRO_API KYDBTableSimple : public KYDBTableBase {
public:
    /// Fetches by the columns with KYDB_FLAG_KEY; the parser, such as a KYDBRecordParser, fills the
    /// record. What a parser throws other than a Kestro::Exception passes through.
    [[nodiscard]] int get(Database::RowParser* parser);
    /// Inserts the columns with KYDB_FLAG_SAVE. With update a row that has one of their unique keys
    /// is updated instead of refused.
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

/// Base of objects that work on a whole table rather than on one row: a table name, a database
/// handle and an error record, with the meaning that they have in a KYDBTableBase. The derived
/// class sets the first two in its hook, which DBConnection() runs, or beforehand.
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
    /// The database handle to use, which must outlive this object's use of it; the caller owns it.
    void DBDatabase(KYDBDatabase* handle);
    /// Runs the hook and returns the handle's connection. Throws std::runtime_error if there is no
    /// handle.
    Database::Connection& DBConnection();
    /// Runs a query through the handle and returns 0, or keeps number and message of its failure
    /// and returns -1. Does not run the hook. Throws std::runtime_error if there is no handle.
    [[nodiscard]] int execute(Database::Query& query);

    /// Number and message of this object's own last failure, 0 and "" before it; a success does not
    /// clear them.
    int get_error_number() const { return m_errorNumber; }
    std::string get_error_message() const { return m_errorMessage; }

private:
    std::string m_tableName;
    KYDBDatabase* m_dbDatabase = nullptr;
    std::string m_errorMessage;
    int m_errorNumber = 0;
};

} // namespace Kestro
