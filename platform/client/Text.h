#pragma once

#include <string_view>

/// What the text of a statement tells without the server. The session is known here: "..." and
/// '...' are literals with \ escapes.
namespace client {

/// Whether the text has nothing but the characters that the server itself skips around a statement.
bool isBlank(std::string_view text);

/// What a text may leave in the session that runs it, apart from an open transaction.
enum class Leaves {
    Nothing,   ///< nothing, as far as its words tell
    Less,      ///< no more than there was: it drops temporary tables
    Something, ///< what its words name: variables, temporary tables, locks, another database
    Unknown    ///< anything: it runs what its words do not show, or nobody knows
};

/// What the text may leave. Only ordinary statements with built-in functions leave nothing; what a
/// trigger or a view does with stored functions of its own is not seen. A text that may stop the
/// server's reports of changes counts as Unknown, and so does one of several statements that leaves
/// something.
Leaves leaves(std::string_view text);

/// Whether the text asks for what an earlier statement left, as LAST_INSERT_ID() does.
bool asksAboutEarlier(std::string_view text);

/// Whether the text has anything that quotation marks or backslashes delimit: it may hold escaped
/// values.
bool hasLiterals(std::string_view text);

} // namespace client
