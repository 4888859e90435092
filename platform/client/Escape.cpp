#include <db_client.h>

#include <array>
#include <bit>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace {

// What is escaped, and the character that then follows the backslash. The Connector's own escapers
// leave TAB, which ends a field in a data file, and treat ' alone in some sessions; these eight are
// right in a "..." literal and in a data file alike.
constexpr std::string_view Special("\0\t\n\r\x1a\"'\\", 8);
constexpr std::string_view Letters = "0tnrZ\"'\\";

// For every byte that character, or 0 if the byte stays.
constexpr auto Escapes = [] {
    std::array<char, UCHAR_MAX + 1> table{};
    for (std::size_t i = 0; i < Special.size(); ++i) {
        table[static_cast<unsigned char>(Special[i])] = Letters[i];
    }
    return table;
}();

// Bytes that are compared at once.
using Block [[gnu::vector_size(16)]] = unsigned char;
constexpr std::ptrdiff_t BlockSize = sizeof(Block);

// How many bytes of a block need no escape, counted up to the first that may. All five special
// bytes that do not print are below a blank: one comparison finds them, and a few that stay.
std::ptrdiff_t cleanBytes(const char* text)
{
    Block bytes;
    std::memcpy(&bytes, text, sizeof bytes);
    const Block found = (bytes < ' ') | (bytes == '"') | (bytes == '\'') | (bytes == '\\');
    std::array<std::uint64_t, 2> halves;
    std::memcpy(&halves, &found, sizeof halves);
    const int bits =
        halves[0] != 0 ? std::countr_zero(halves[0]) : 64 + std::countr_zero(halves[1]);
    return bits / CHAR_BIT;
}

} // namespace

unsigned long db_escape_string(void* /*handle*/, char* target, const char* source,
                               unsigned long length)
{
    char* out = target;
    const char* in = source;
    const char* const end = source + length;
    const auto copyByte = [&out, &in] {
        if (const char escape = Escapes[static_cast<unsigned char>(*in)]) {
            *out++ = '\\';
            *out++ = escape;
        } else {
            *out++ = *in;
        }
        ++in;
    };
    while (end - in >= BlockSize) {
        const std::ptrdiff_t clean = cleanBytes(in);
        std::memcpy(out, in, BlockSize); // what is too much is written over
        in += clean;
        out += clean;
        if (clean != BlockSize) {
            copyByte();
        }
    }
    // If the last block is clean, what was copied of it lies right in front of `out`.
    if (length >= BlockSize && cleanBytes(end - BlockSize) == BlockSize) {
        out += end - in;
        std::memcpy(out - BlockSize, end - BlockSize, BlockSize);
    } else {
        while (in != end) {
            copyByte();
        }
    }
    *out = '\0';
    return static_cast<unsigned long>(out - target);
}
