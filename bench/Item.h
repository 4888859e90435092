#pragma once

#include <cstdint>
#include <string>

namespace bench {

/// A row that is written: 6 columns, texts of about 20 characters with what must be escaped.
struct Item {
    int id = 0;
    std::string a = "twenty characters \"a";
    std::string b = "it's a tab\t, and a \\";
    std::string c;
    long d = 0;
    std::string e = "nothing to be escaped";

    /// Becomes the item of this number, whose id is one of so many.
    void turn(int number, int ids)
    {
        id = number % ids;
        c = "the text of item " + std::to_string(number);
        d = number * 1'000'003L;
    }
};

/// How many ids the upserts use: most of them find a row to update.
constexpr int UpsertIds = 1'000;

/// Makes the table "item" anew, without rows.
void makeItems(const std::string& engine);
/// A checksum of all that is in it.
std::uint64_t sumOfItems();

} // namespace bench
