#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/Query.h>
#include <Kestro/Database/ValueText.h>
#include <Kestro/Storage.h>
#include <KestroRefcounted>
#include <db_client.h>

#include <list>
#include <optional>
#include <string_view>

/// \file
/// How the rows of a result reach a program: a parser walks the rows, and a row object reads the
/// columns it wants from each.
///
///     struct City : RowImpl {
///         std::string name;
///         std::optional<std::int64_t> people;
///         bool parse(void* connection, void* result, void* row) override
///         {
///             name = column<std::string>(connection, result, row, 0);
///             people = column<std::optional<std::int64_t>>(connection, result, row, 1);
///             return true;
///         }
///     };
///
///     RowContainer cities;
///     KyRowParser<City> parser(cities);
///     Query query(connection, &parser);
///     query << "SELECT name, people FROM city";
///     query.execute();
///     for (const City& city : rows<City>(cities)) { // TypedRows.h
///         std::cout << city.name << '\n';
///     }
///
/// Threads: rows and containers may be released on any thread. A container and its copies are read
/// and filled by one thread at a time.
namespace Kestro::Database {

namespace detail {

[[noreturn]] KESTRO_API void refuseValue(std::optional<std::string_view> value, int column);

// What a column's value is for column<T>() and scalar<T>().
template <class T> struct ColumnValue {
    static T of(std::optional<std::string_view> value, int column)
    {
        T read{};
        if (!value || !ValueText<T>::parse(*value, read)) {
            refuseValue(value, column);
        }
        return read;
    }
};

template <class T> struct ColumnValue<std::optional<T>> {
    static std::optional<T> of(std::optional<std::string_view> value, int column)
    {
        return value ? std::optional<T>(ColumnValue<T>::of(value, column)) : std::nullopt;
    }
};

} // namespace detail

/// A row object: reads one row into its own members.
class KESTRO_API RowImpl : public virtual RefImpl, public Storage, private NonCopyable {
public:
    RowImpl() = default;
    ~RowImpl() override;

    /// Called once per row with the handles of the client interface. Returns true to ask for the
    /// next row, false to stop; KyRowParser ignores it. May throw.
    virtual bool parse(void* connection, void* result, void* row) = 0;

protected:
    /// The value in a column (counted from 0) of the row that parse() was called with: all its
    /// bytes, NULs included, or nothing for SQL NULL and for a column that the result does not
    /// have. The bytes live until parse() returns.
    static std::optional<std::string_view> column(void* connection, void* result, void* row,
                                                  int index)
    {
        const char* value = db_result_get_value(connection, result, row, index);
        if (value == nullptr) {
            return std::nullopt;
        }
        return std::string_view(value, db_result_field_length(result, index));
    }

    /// The same as a T: a type that ValueText.h lists, or a std::optional of one, which is empty
    /// for NULL. Throws DatabaseException, which names column and value, if the value is NULL and T
    /// is no std::optional, if it is no T's (out of its range, say), and if there is no such
    /// column.
    template <class T> static T column(void* connection, void* result, void* row, int index)
    {
        const std::optional<std::string_view> value = column(connection, result, row, index);
        if (!value) {
            requireColumn(connection, result, index);
        }
        return detail::ColumnValue<T>::of(value, index);
    }

private:
    static void requireColumn(void* connection, void* result, int index);
};

/// A row object that reads nothing, for results whose number of rows is all that matters.
class KESTRO_API NoopRowImpl : public RowImpl {
public:
    ~NoopRowImpl() override;
    /// True.
    bool parse(void* connection, void* result, void* row) override;
};

/// The rows that the copies of one RowContainer share.
class KESTRO_API RowContainerImpl : public virtual RefImpl {
public:
    ~RowContainerImpl() override;

private:
    friend class RowContainer;
    std::list<Ref<RowImpl>> m_rows;
};

/// Rows in the order in which they were added. Copies share the rows: what is added through one is
/// seen through all. A row lives as long as a container or a handle holds it.
class KESTRO_API RowContainer {
public:
    /// Empty, and shared with no other.
    RowContainer();
    RowContainer(const RowContainer& other);
    RowContainer& operator=(const RowContainer& other);
    virtual ~RowContainer();

    /// The reference is valid as long as a container shares these rows.
    const std::list<Ref<RowImpl>>& rows() const;
    /// Appends a handle to the same row object. The second form takes the handle over.
    void add(const Ref<RowImpl>& row);
    void add(Ref<RowImpl>&& row);

private:
    RefCounted<RowContainerImpl>* m_counted = nullptr;
};

/// Base of parsers that take every row of a result.
class KESTRO_API AllRowParser : public RowParser {
public:
    ~AllRowParser() override;

protected:
    /// Adds an object to the container for every row of the result; `make` creates it with new. If
    /// a row throws, those before it stay in the container.
    static void addRows(void* connection, void* result, RowContainer& container,
                        RowImpl* (*make)());
};

/// Makes a T for every row of the result and adds it to a container, in result order. T derives
/// from RowImpl and has a default constructor. May be used for several queries; the container,
/// which must outlive it, keeps growing.
template <class T> class KESTRO_API KyRowParser : public AllRowParser {
public:
    /// Fills this container.
    explicit KyRowParser(RowContainer& container) : m_container(&container) {}
    ~KyRowParser() override = default;

    void parse(void* connection, void* result) override
    {
        addRows(connection, result, *m_container, []() -> RowImpl* { return new T(); });
    }

private:
    RowContainer* m_container;
};

/// Feeds the rows of a result, in turn, to one row object of the caller's, which must outlive it,
/// until the rows end or the object's parse() returns false.
class KESTRO_API OneRowParser : public RowParser {
public:
    /// Feeds this row object.
    explicit OneRowParser(RowImpl& row) : m_row(&row) {}
    ~OneRowParser() override;

    void parse(void* connection, void* result) override;

private:
    RowImpl* m_row;
};

} // namespace Kestro::Database
