#pragma once

#include "Measure.h"

#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

namespace bench {

/// A row of the table that is read: two integers, two texts and a floating-point number.
struct Record {
    int id = 0;
    int amount = 0;
    std::string name;
    std::string text;
    double value = 0;

    /// column(index) is the text in that column.
    template <class Column> void read(const Column& column)
    {
        assign(id, column(0));
        assign(amount, column(1));
        name = column(2);
        text = column(3);
        assign(value, column(4));
    }

private:
    template <class Number> static void assign(Number& number, std::string_view text)
    {
        std::from_chars(text.data(), text.data() + text.size(), number);
    }
};

/// Adds a record to a checksum. It is cheap, so that it does not hide what is measured. A row that
/// is lost, doubled or out of place changes the checksum.
void add(std::uint64_t& checksum, const Record& record);

/// Creates a table of this many rows, with ids from 1 on, unless it exists.
void makeRecords(int rows);
/// The statement that reads the whole table.
std::string selectRecords(int rows);
/// The statement that reads one row, without the row's id at its end.
std::string selectRecord(int rows);

/// Each row becomes an object; all are kept in a list.
inline constexpr Scenario KeptRows{"kept_rows", 1'000'000, makeRecords};
/// The rows pass through one object as they arrive.
inline constexpr Scenario StreamedRows{"streamed_rows", 1'000'000, makeRecords};
/// One row is read by its key.
inline constexpr Scenario PointSelects{"point_selects", 100'000, makeRecords};

} // namespace bench
