#include "Escaped.h"

#include <db_client.h>

#include <cstddef>
#include <memory>

namespace Kestro::Database {

void appendEscaped(std::string& out, std::string_view text)
{
    constexpr std::size_t Short = 500; // is escaped on the stack
    if (text.empty()) {
        return;
    }
    char room[2 * Short + 1];
    std::unique_ptr<char[]> more;
    char* escaped = room;
    if (text.size() > Short) {
        more = std::make_unique_for_overwrite<char[]>(2 * text.size() + 1);
        escaped = more.get();
    }
    out.append(escaped, db_escape_string(nullptr, escaped, text.data(), text.size()));
}

} // namespace Kestro::Database
