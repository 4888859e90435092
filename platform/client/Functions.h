#pragma once

#include <string_view>

namespace client {

/// Whether a name before "(" in a statement is harmless: a function of the server's own that leaves
/// nothing in the session, or a keyword of SQL. Any other name may be a stored function's. Letter
/// case does not matter.
bool isBuiltIn(std::string_view name);

} // namespace client
