#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/Connection.h>
#include <Kestro/Database/RowContainer.h>

#include <concepts>
#include <optional>
#include <string>
#include <string_view>

namespace Kestro::Database {

namespace detail {

// The first column of the first row.
class KESTRO_API ScalarRow : public RowImpl {
public:
    explicit ScalarRow(Connection& connection, const std::string& statement);
    ~ScalarRow() override;
    bool parse(void* connection, void* result, void* row) override;

    std::optional<std::string_view> value() const { return m_value; }

private:
    std::optional<std::string> m_value;
    bool m_found = false;
};

} // namespace detail

/// Runs a statement and returns the value in the first column of its first row:
///
///     const auto count = scalar<std::int64_t>(connection, "SELECT COUNT(*) FROM t");
///     const auto last = scalar<std::optional<std::string>>(connection, "SELECT MAX(name) FROM t");
///
/// T is a type that ValueText.h lists, or a std::optional of one, which is empty for NULL. Further
/// columns and rows are not looked at. Throws what Query::execute() throws, and DatabaseException
/// if there is no row, the value is NULL and T is no std::optional, or the value is no T's: out of
/// its range, say.
///
/// Threads: the connection belongs to one thread at a time.
template <class T> T scalar(Connection& connection, const std::string& statement)
{
    static_assert(!std::same_as<T, std::string_view>,
                  "the text would not live: take a std::string");
    return detail::ColumnValue<T>::of(detail::ScalarRow(connection, statement).value(), 0);
}

} // namespace Kestro::Database
