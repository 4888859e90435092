#pragma once

#include <Kestro/Database/ValueText.h>

#include <bitset>
#include <cstddef>
#include <string>
#include <string_view>

namespace Kestro::Database {

/// Bits of a BIT column. They are written as a number, and read from the bytes that the server
/// sends for the column, the highest first. Reading fails if the value has more bits than the
/// bitset. Not for data files: there the server takes the text of a BIT column for its bytes.
template <std::size_t Count>
requires(Count <= 64) struct ValueText<std::bitset<Count>> {
    static constexpr bool Quoted = false;
    static void append(std::string& text, const std::bitset<Count>& value)
    {
        ValueText<unsigned long long>::append(text, value.to_ullong());
    }
    static bool parse(std::string_view text, std::bitset<Count>& value)
    {
        std::bitset<64> read;
        for (const char byte : text) {
            read = read << 8 | std::bitset<64>(static_cast<unsigned char>(byte));
        }
        if (text.empty() || text.size() > 8 || (Count < 64 && (read >> Count).any())) {
            return false;
        }
        value = std::bitset<Count>(read.to_ullong());
        return true;
    }
};

} // namespace Kestro::Database
