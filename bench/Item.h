#pragma once

#include "Measure.h"

#include <cstdint>
#include <string>

namespace bench {

/// A row to be written: 6 columns, some of them texts of about 20 characters that must be escaped.
struct Item {
    int id = 0;
    std::string a = "twenty characters \"a";
    std::string b = "it's a tab\t, and a \\";
    std::string c;
    long d = 0;
    std::string e = "nothing to be escaped";

    /// Becomes the item of this number. Its id is below `ids`.
    void turn(int number, int ids)
    {
        id = number % ids;
        c = "the text of item " + std::to_string(number);
        d = number * 1'000'003L;
    }
};

/// The number of ids that the upserts use; it is small, so that most upserts update a row.
constexpr int UpsertIds = 1'000;

/// Creates the table "item" without rows, replacing an earlier one.
void makeItems(const std::string& engine);
/// A checksum of all its rows.
std::uint64_t sumOfItems();

/// Each item is inserted, or updates the row with its id. MEMORY keeps the server's own work small.
inline constexpr Scenario Upserts{"upserts", 50'000, [](int /*size*/) { makeItems("MEMORY"); },
                                  sumOfItems};

} // namespace bench
