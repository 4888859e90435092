#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/ValueText.h>

#include <concepts>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// \file
/// Values and names as they stand in a statement, whatever is in them:
///
///     query << "UPDATE " << identifier(table) << " SET text=" << literal(text)
///           << ", price=" << literal(price) << " WHERE id=" << literal(id);
///
/// Both give a text, for a Query as for every other text of SQL.
///
/// Threads: any thread may call these.
namespace Kestro::Database {

/// A text in double quotes and escaped, whatever bytes it has.
KESTRO_API std::string literal(std::string_view text);
/// The same; a null pointer is NULL.
KESTRO_API std::string literal(const char* text);
/// NULL.
KESTRO_API std::string literal(std::nullptr_t);

/// A value of every type that ValueText.h lists, or that a program has added there: numbers as they
/// are, texts and dates in double quotes. Throws Exception for what SQL has no literal for: NaN,
/// infinity, a date that no calendar has, a time of 839 hours.
template <HasValueText T> std::string literal(const T& value)
{
    if constexpr (std::convertible_to<const T&, std::string_view>) {
        return literal(std::string_view(value));
    } else {
        std::string text;
        ValueText<T>::append(text, value);
        return ValueText<T>::Quoted ? literal(std::string_view(text)) : text;
    }
}

/// The value, or NULL if there is none.
template <class T> std::string literal(const std::optional<T>& value)
{
    return value ? literal(*value) : literal(nullptr);
}

/// The name of a database, table, column or the like in backticks; `identifier("shop") + "." +
/// identifier("order")` names a table of a database. Throws Exception for an empty name and for one
/// with a NUL in it, which the server has no way to write.
KESTRO_API std::string identifier(std::string_view name);

} // namespace Kestro::Database
