#include <db_client.h>

#include <algorithm>
#include <array>
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

// Whether none of the bytes is to be escaped, as far as a few comparisons tell: all five that are
// no printing characters are below a blank.
bool isClean(const char* text)
{
    Block bytes;
    std::memcpy(&bytes, text, sizeof bytes);
    const Block found = (bytes < ' ') | (bytes == '"') | (bytes == '\'') | (bytes == '\\');
    std::array<std::uint64_t, 2> any;
    std::memcpy(&any, &found, sizeof any);
    return (any[0] | any[1]) == 0;
}

} // namespace

unsigned long db_escape_string(void* /*handle*/, char* target, const char* source,
                               unsigned long length)
{
    char* out = target;
    const char* in = source;
    const char* const end = source + length;
    while (in != end) {
        // Most texts have little to escape.
        while (end - in >= BlockSize && isClean(in)) {
            std::memcpy(out, in, BlockSize);
            in += BlockSize;
            out += BlockSize;
        }
        for (const char* const stop = in + std::min(end - in, BlockSize); in != stop; ++in) {
            if (const char escape = Escapes[static_cast<unsigned char>(*in)]) {
                *out++ = '\\';
                *out++ = escape;
            } else {
                *out++ = *in;
            }
        }
    }
    *out = '\0';
    return static_cast<unsigned long>(out - target);
}
