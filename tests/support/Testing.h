#pragma once

#include <Kestro/Exception.h>

#include <cstdlib>
#include <gtest/gtest.h>
#include <locale>
#include <string>
#include <tuple>
#include <vector>

/// The rows of a table of cases.
template <class... Columns> using Table = std::vector<std::tuple<Columns...>>;

/// All that the exception of a call tells, or "" if the call throws none.
template <class Call> std::string failureOf(const Call& call)
{
    try {
        call();
    } catch (const Kestro::Exception& e) {
        return e.asString();
    }
    return "";
}

/// A variable of the environment; "" if it is not set.
inline std::string environment(const char* name)
{
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

/// Expects the two texts of each row to be equal.
inline void expectEqual(const Table<std::string, std::string>& rows)
{
    for (const auto& [actual, expected] : rows) {
        EXPECT_EQ(actual, expected);
    }
}

/// Groups digits by threes, as many locales do.
struct Grouping : std::numpunct<char> {
    std::string do_grouping() const override { return "\3"; }
};
