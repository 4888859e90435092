#pragma once

#include <string_view>

/// What the text of a statement tells without the server. The session is known here: "..." and
/// '...' are texts with \ escapes.
namespace client {

/// Whether the text has nothing but the characters that the server itself skips around a statement.
bool isBlank(std::string_view text);

/// Whether the text may leave something in the session that the server does not report: user
/// variables that are set inside a query, locks, a SET TRANSACTION, or whatever an EXECUTE runs.
/// What a stored function or a trigger does in this way is not seen.
bool leavesUnseen(std::string_view text);

/// Whether the text, once the server refused it, has left the session as it was: one statement of
/// an ordinary kind, not one that may have stopped half-way through what it sets.
bool leavesNothingIfRefused(std::string_view text);

/// Whether the text asks for what the statement before it left behind, as LAST_INSERT_ID() does.
bool asksAboutTheLast(std::string_view text);

} // namespace client
