#pragma once

#include <string_view>

namespace client {

/// Whether a name in front of "(" in a statement, in letters of either case, is that of a function
/// of the server that leaves nothing in the session, or a word of the language. Any other name may
/// be that of a stored function.
bool isBuiltIn(std::string_view name);

} // namespace client
