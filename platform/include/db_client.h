#pragma once

#include <cstdint>

/// \file
/// The client interface: plain functions between the library and the server.
///
/// Handles are opaque. A connection handle comes from db_connect_unix and ends with db_disconnect;
/// a result handle comes from db_query or db_use_query and ends with db_free_result; a row handle
/// comes from db_result_fetch_row and ends with its result, or, while rows are streamed, with the
/// next fetch. Every function takes a null handle, result or row and then does nothing or fails
/// as told here.
///
/// Distinct connection handles may be used by distinct threads; one handle and its results belong
/// to one thread at a time. Only db_result_fetch_row throws, and any function std::bad_alloc.
///
/// A program that defines these functions itself and exports them (-rdynamic) replaces the client.
#pragma GCC visibility push(default)
extern "C" {

/// Opens a link to the local server, with the named database selected ("" selects none), and
/// returns its handle; the caller owns it. Returns null on failure: db_error_number(null) and
/// db_error_message(null) then tell this thread the reason.
///
/// The socket is the one that the environment variable MYSQL_UNIX_PORT names at this moment, else
/// /var/run/mysql.sock if it exists, else the Connector's own default. The account is the login
/// name of the process's effective user. The handle keeps both: when its link is opened again, it
/// is to the same socket and account. A link with TLS or compression fails (2000). No option files
/// are read. A server that does not answer within 5 seconds fails the call; once the link is open,
/// statements may take any time.
///
/// Every link begins with the same session, whatever the server's global settings: character set
/// utf8mb4, data files read as utf8mb4, and a sql_mode in which "..." is a text, \ escapes, and ""
/// is not NULL; the server's other modes stay.
void* db_connect_unix(const char* database);

/// Closes the link and frees the handle. In a child process after fork it leaves the parent's link
/// alone. A result that is still being streamed ends here, without waiting for its other rows: its
/// next fetch throws.
void db_disconnect(void* handle);

/// Number and text of the last failure on the link, 0 and "" before the first; a success does not
/// clear them. With a null handle: of this thread's last failed connect or last statement on a null
/// handle. The text lives until the next failure. Never null.
int db_error_number(void* handle);
const char* db_error_message(void* handle);

/// Escapes length bytes for a quoted SQL literal or a data file and returns the escaped length.
/// The target has room for 2 * length + 1 bytes and is NUL-terminated. NUL, line feed, carriage
/// return, tab, Ctrl-Z, ", ' and \ become \0 \n \r \t \Z \" \' \\, every other byte stays, with
/// or without a handle.
unsigned long db_escape_string(void* handle, char* target, const char* source,
                               unsigned long length);

/// Lets one text carry several statements, on this handle alone and for as long as it lives: when
/// its link is lost, the link that takes its place allows them too. Returns 0, or another value on
/// failure.
int db_enable_multiple_statements_per_query(void* handle);

/// Runs a NUL-terminated text. Returns 0, or another value on failure; db_error_number and
/// db_error_message then tell the reason.
///
/// With a result address, *result becomes the first result set of the text, or null if no
/// statement made one, and null on failure; the caller frees it. Every other result is read and
/// dropped. With a null address all are. A failure in any statement of the text is the failure of
/// the call, with that statement's number and text; those before it have run, those after it have
/// not. The link stays usable unless it was lost.
///
/// db_query transfers the whole result before it returns. db_use_query leaves that open: if the
/// first thing asked of the result is db_result_row_num, the rows are transferred then; if it is
/// db_result_fetch_row, they are streamed, one row in memory at a time, and until the result is
/// freed the link takes no other statement (2014). When the text makes more than one result,
/// db_use_query transfers the first one as db_query does, since the others come behind it.
///
/// A text of blanks and semicolons succeeds: nothing is sent. These are refused without being sent,
/// and the link lives: a text longer than the server's max_allowed_packet (1153), and any text
/// after the session was changed so that escaped values may not be safe any more (1231): by
/// sql_mode, by the character set, or by switching off the server's reports of such changes. The
/// replies themselves report them; the layer asks the server only where a reply cannot tell, such
/// as that of a procedure or of a statement that failed half-way, and no later statement can see
/// that it did. A null handle fails with 2006, and so does, in a child process after fork, a link
/// of the parent's.
///
/// A link that the server has closed is opened again before the text is sent, with the database and
/// the permission for several statements that it had, if nothing of its session can be missed.
/// Otherwise one statement fails with 2006, unsent, and the next one opens the link; nothing but a
/// statement uses that failure up. If opening fails it is 2006 too, with the reason in its text.
///
/// A lost session is replaced in silence only if every text that it ran is known to leave nothing
/// behind, and the server's replies agree: ordinary SELECT, INSERT, UPDATE, DELETE, REPLACE, SHOW,
/// LOAD DATA and definitions (CREATE, ALTER, DROP and the like) without TEMPORARY, transactions
/// that have ended, with built-in functions only. Reading an @@variable and DROP TEMPORARY TABLE
/// leave nothing. Whatever is not known leaves something: CALL, EXECUTE, a function that is not
/// built in, a user variable, a comment that only some server versions execute, an unknown first
/// word. The text to be sent next must neither ask for what an earlier one left (LAST_INSERT_ID(),
/// ROW_COUNT(), PREVIOUS VALUE FOR, SHOW WARNINGS and the like) nor run what its words do not show.
/// What a trigger, or a stored function that a view calls, does out of sight is not seen: a
/// GET_LOCK() there, a variable that it sets by SELECT ... INTO, a LAST_INSERT_ID() that it reads.
///
/// A text that was sent and not answered fails with 2013, with 1927 if the link was killed, or 1053
/// if the server shuts down; it may have run, is never sent again, and the next statement has a
/// fresh session. An answer that is not understood closes the link and fails with 2027. If the
/// server asks for a file of the program's, it does not get it, and the statement fails with 4166.
int db_query(void* handle, const char* text, void** result);
int db_use_query(void* handle, const char* text, void** result);

/// The number of answers that the last text has had: one for each of its statements that succeeded,
/// and for CALL, EXECUTE and the like one for each of their results besides. In a text of other
/// statements it is the 0-based number of the statement that failed. 0 if the text was not sent.
/// A client may lack this function: libkestrodb then sends a script's statements one by one.
int db_answer_count(void* handle);

/// Frees the result; rows of a stream that were not fetched are read and dropped.
void db_free_result(void* result);

/// Rows changed by the last statement that succeeded, or rows delivered if it made a result set.
/// INSERT ... ON DUPLICATE KEY UPDATE counts 1 for a new row, 2 for a changed one, 0 for an equal
/// one.
std::uint64_t db_affected_rows(void* handle);

/// The id that the most recent statement to generate one generated on this link; statements that
/// generate none leave it. 0 before the first.
std::uint64_t db_lastid(void* handle);

/// The number of rows; transfers the result first if it comes from db_use_query. Once rows are
/// streamed it is the number fetched so far. If the transfer fails it is 1, and fetching that row
/// throws, so that a lost link never looks like an empty result.
int db_result_row_num(void* handle, void* result);

/// The number of columns.
int db_result_fields_num(void* handle, void* result);

/// The row at a 0-based index, or null past the last one. Constant time for rows in sequence. A
/// streamed row that has gone by is null; streamed rows ahead of the index are skipped.
///
/// Throws Kestro::Exception("db_result_fetch_row", 4) with the server's text as string parameter
/// if the link was lost, or the server gave up, before the last row.
void* db_result_fetch_row(void* result, int index);

/// The NUL-terminated text of one value of the row, or null for SQL NULL and for a column that the
/// result does not have. It lives as long as the row handle. The handle is not looked at.
const char* db_result_get_value(void* handle, void* result, void* row, int column);

/// The length in bytes of the value in the row fetched last; 0 for NULL, for a column that the
/// result does not have, and before the first fetch.
unsigned long db_result_field_length(void* result, int column);
}
#pragma GCC visibility pop
