#pragma once

#include <Kestro/Api.h>

#include <chrono>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>

/// \file
/// How values of C++ types stand in SQL as texts. Literal.h, typed reading and the references to
/// variables (KYVarRef.h) all write and read values through ValueText.
namespace Kestro::Database {

/// The text of a T: how one is written into a statement or a data file, and read from what the
/// server sends. The general template is not defined: a type has texts if it has a specialisation,
/// and a program may give its own types one, with these members:
///
///     static constexpr bool Quoted;                           // in quotation marks in a statement
///     static void append(std::string& text, const T& value);  // neither quoted nor escaped
///     static bool parse(std::string_view text, T& value);     // false: not changed, no T's text
///
/// append() throws Exception for a value that SQL has no text for, and has appended nothing then.
/// parse() takes whole texts only: it fails if the value does not fit the type, or if anything
/// precedes or follows it.
///
/// Threads: any thread may call these.
template <class T> struct ValueText;

/// bool, and every integer and floating-point type but the characters and long double. signed char
/// and unsigned char, and so std::int8_t and std::uint8_t, are numbers.
template <class T>
concept Number = std::same_as<T, bool> || std::same_as<T, signed char> ||
    std::same_as<T, unsigned char> || std::same_as<T, short> || std::same_as<T, unsigned short> ||
    std::same_as<T, int> || std::same_as<T, unsigned> || std::same_as<T, long> ||
    std::same_as<T, unsigned long> || std::same_as<T, long long> ||
    std::same_as<T, unsigned long long> || std::same_as<T, float> || std::same_as<T, double>;

namespace detail {

// Of a Number. (The members of a constrained specialisation cannot be defined elsewhere: clang 14.)
template <class T> struct KESTRO_API NumberText {
    static void append(std::string& text, const T& value);
    static bool parse(std::string_view text, T& value);
};

} // namespace detail

/// Numbers, in decimal. A bool is 1 or 0; the single byte of a BIT(1) column is read as one too. A
/// float or double is written in the shortest form that reads back as the same value; append()
/// throws Exception for NaN and infinity.
template <Number T> struct ValueText<T> : detail::NumberText<T> {
    static constexpr bool Quoted = false;
};

/// Texts, any bytes.
template <> struct ValueText<std::string> {
    static constexpr bool Quoted = true;
    static void append(std::string& text, const std::string& value) { text += value; }
    static bool parse(std::string_view text, std::string& value)
    {
        value = text;
        return true;
    }
};

/// Texts that lie elsewhere: what is read lives as long as the text that it was read from.
template <> struct ValueText<std::string_view> {
    static constexpr bool Quoted = true;
    static void append(std::string& text, std::string_view value) { text += value; }
    static bool parse(std::string_view text, std::string_view& value)
    {
        value = text;
        return true;
    }
};

/// A date, `2026-01-31`. append() throws Exception for a date that no calendar has, or of a year
/// outside 0 to 9999; parse() fails for one, and for the server's zero date.
template <> struct KESTRO_API ValueText<std::chrono::year_month_day> {
    static constexpr bool Quoted = true;
    static void append(std::string& text, const std::chrono::year_month_day& value);
    static bool parse(std::string_view text, std::chrono::year_month_day& value);
};

namespace detail {

// Microseconds are the finest that the server keeps.
using Microseconds = std::chrono::duration<std::int64_t, std::micro>;

KESTRO_API void appendDay(std::string& text, std::chrono::sys_days value);
KESTRO_API void appendMoment(std::string& text, std::chrono::sys_time<Microseconds> value);
KESTRO_API bool parseMoment(std::string_view text, std::chrono::sys_time<Microseconds>& value);
KESTRO_API void appendTime(std::string& text, Microseconds value);
KESTRO_API bool parseTime(std::string_view text, Microseconds& value);

using Exact = std::chrono::duration<long double, std::micro>;

// Whether microseconds can hold the duration, as they cannot the greatest number of seconds or NaN.
inline bool isHeld(Exact value)
{
    return value > Exact(Microseconds::min()) && value < Exact(Microseconds::max());
}

// Whether the duration is the same in the program's units; those may be too coarse or too narrow.
template <class Duration> bool convert(Microseconds from, Duration& to)
{
    if (Exact(from) < Exact(Duration::min()) || Exact(from) > Exact(Duration::max())) {
        return false;
    }
    const auto converted = std::chrono::duration_cast<Duration>(from);
    if (std::chrono::duration_cast<Microseconds>(converted) != from) {
        return false;
    }
    to = converted;
    return true;
}

} // namespace detail

/// A moment as DATETIME and TIMESTAMP columns have it, `2026-01-31 23:59:59.000001`; of whole days,
/// a date. It is written and read as it is, in UTC: for TIMESTAMP columns the session's time zone
/// is to be UTC too. Digits behind the microseconds are cut off. Otherwise as for a date.
template <class Duration> struct ValueText<std::chrono::sys_time<Duration>> {
    static constexpr bool Quoted = true;
    static void append(std::string& text, const std::chrono::sys_time<Duration>& value)
    {
        if constexpr (std::same_as<Duration, std::chrono::days>) {
            detail::appendDay(text, value);
        } else {
            using Moment = std::chrono::sys_time<detail::Microseconds>;
            detail::appendMoment(text, detail::isHeld(value.time_since_epoch())
                                           ? std::chrono::floor<detail::Microseconds>(value)
                                           : Moment::max());
        }
    }
    static bool parse(std::string_view text, std::chrono::sys_time<Duration>& value)
    {
        std::chrono::sys_time<detail::Microseconds> read;
        Duration converted;
        if (!detail::parseMoment(text, read) ||
            !detail::convert(read.time_since_epoch(), converted)) {
            return false;
        }
        value = std::chrono::sys_time<Duration>(converted);
        return true;
    }
};

/// A length of time as TIME columns have it, `-838:59:59.000001`: hours may be more than a day's.
/// Digits behind the microseconds are cut off. append() throws Exception for a time of 839 hours or
/// more.
template <class Rep, class Period> struct ValueText<std::chrono::duration<Rep, Period>> {
    static constexpr bool Quoted = true;
    static void append(std::string& text, const std::chrono::duration<Rep, Period>& value)
    {
        detail::appendTime(text, detail::isHeld(value)
                                     ? std::chrono::duration_cast<detail::Microseconds>(value)
                                     : detail::Microseconds::max());
    }
    static bool parse(std::string_view text, std::chrono::duration<Rep, Period>& value)
    {
        detail::Microseconds read;
        return detail::parseTime(text, read) && detail::convert(read, value);
    }
};

/// A type whose values have texts: one with a specialisation of ValueText.
template <class T>
concept HasValueText = requires(std::string& text, const T& value)
{
    ValueText<T>::append(text, value);
};

} // namespace Kestro::Database
