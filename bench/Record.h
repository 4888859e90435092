#pragma once

#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

namespace bench {

/// A row of the table that is read: two numbers, two texts and a fraction.
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

/// Cheap, so that it does not hide what is measured; a row lost, doubled or out of place changes
/// it.
void add(std::uint64_t& checksum, const Record& record);

/// Makes a table of this many rows unless it is there, their ids being 1 and so on.
void makeRecords(int rows);
/// The statement that reads all of it.
std::string selectRecords(int rows);
/// The beginning of the one that reads one row: its id comes behind.
std::string selectRecord(int rows);

} // namespace bench
