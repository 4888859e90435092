#pragma once

#include <string>
#include <string_view>

namespace Kestro::Database {

/// Appends the text as it stands inside a quoted literal or a data file: what db_escape_string
/// writes without a connection. An empty text does not call it.
void appendEscaped(std::string& out, std::string_view text);

} // namespace Kestro::Database
