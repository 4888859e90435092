#pragma once

#include <string_view>

/// What can be said about an SQL text without asking the server. The session state is taken to be
/// as Session::Setup makes it: "..." and '...' are literals with \ escapes.
namespace client {

/// Whether the text consists of characters that the server skips around a statement: blanks and
/// semicolons.
bool isBlank(std::string_view text);

/// What a text may leave in its session, apart from an open transaction.
enum class Leaves {
    Nothing,   ///< nothing, as far as its words show
    Less,      ///< less than there was: it drops temporary tables
    Something, ///< what its words name: variables, temporary tables, locks, another database
    Unknown    ///< anything: its words do not show what it runs
};

/// What the text may leave. Only ordinary statements with built-in functions leave nothing. What a
/// trigger does, or a view that calls stored functions, cannot be seen. A text that may stop the
/// server's reports of changes counts as Unknown. So does a text of several statements of which two
/// or more leave something.
Leaves leaves(std::string_view text);

/// Whether the text asks for what an earlier statement left, as LAST_INSERT_ID() does.
bool asksAboutEarlier(std::string_view text);

/// Whether the text has a quotation mark or a backslash, and so may hold escaped values.
bool hasLiterals(std::string_view text);

} // namespace client
