#pragma once

#include <cstdint>

/// \file
/// The client interface: plain functions between the library and the server.
///
/// Handles are opaque. A connection handle comes from db_connect_unix and ends with db_disconnect;
/// a result handle comes from db_query or db_use_query and ends with db_free_result; a row handle
/// comes from db_result_fetch_row and ends with its result or, while rows are streamed, with the
/// next fetch. Every function accepts a null handle, result or row; it then does nothing, or fails
/// as its comment says.
///
/// Distinct connection handles may be used by distinct threads; one handle and its results belong
/// to one thread at a time. db_result_fetch_row throws Kestro::Exception. Any function may throw
/// std::bad_alloc; no function throws anything else.
///
/// A program that defines these functions itself and exports them (-rdynamic) replaces the client.
#pragma GCC visibility push(default)
extern "C" {

/// Connects to the local server, selects the named database ("" selects none), and returns a
/// connection handle, which the caller owns. Returns null on failure; db_error_number(null) and
/// db_error_message(null) then return the reason on the same thread.
///
/// The socket is the one that the environment variable MYSQL_UNIX_PORT names during the call, else
/// /var/run/mysql.sock if it exists, else the Connector's own default. The account is the login
/// name of the process's effective user. The handle keeps both: when its connection is opened
/// again, it goes to the same socket and account. A connection with TLS or compression fails
/// (2000). No option files are read. Connecting fails if the server does not answer within 5
/// seconds; the time of a statement is not limited.
///
/// Every connection begins with the same session state, whatever the server's global settings: the
/// character set is utf8mb4, data files are read as utf8mb4, and sql_mode is such that "..." is a
/// string literal, \ escapes, and "" is not NULL. The server's other modes stay.
void* db_connect_unix(const char* database);

/// Closes the connection and frees the handle. In a child process after fork it leaves the parent's
/// connection open. A result that is still being streamed ends here, without waiting for its other
/// rows: its next fetch throws.
void db_disconnect(void* handle);

/// Number and message of the connection's last failure, 0 and "" before the first; a success does
/// not clear them. With a null handle: those of this thread's last failed connect, or of its last
/// statement on a null handle. The message lives until the next failure. Never null.
int db_error_number(void* handle);
const char* db_error_message(void* handle);

/// Escapes length bytes for a quoted SQL literal or a data file and returns the escaped length.
/// The target must have room for 2 * length + 1 bytes; the result is NUL-terminated. NUL, line
/// feed, carriage return, tab, Ctrl-Z, ", ' and \ become \0 \n \r \t \Z \" \' \\; every other
/// byte stays. The handle makes no difference and may be null.
unsigned long db_escape_string(void* handle, char* target, const char* source,
                               unsigned long length);

/// Allows several statements in one SQL text, on this handle and until it is closed: a connection
/// that replaces a lost one allows them too. Returns 0, or another value on failure.
int db_enable_multiple_statements_per_query(void* handle);

/// Runs a NUL-terminated SQL text. Returns 0, or another value on failure; db_error_number and
/// db_error_message then return the reason.
///
/// With a result address, *result becomes the text's first result set. It becomes null if no
/// statement made one, and on failure. The caller frees it. All other results are read and dropped,
/// and with a null address every result is. If any statement of the text fails, the call fails with
/// that statement's number and message; the statements before it have run, those after it have not.
/// The connection stays usable unless it was lost.
///
/// db_query transfers the whole result before it returns. db_use_query leaves that open. If
/// db_result_row_num is the first call on the result, it transfers the rows. If db_result_fetch_row
/// is, the rows are streamed: one row is in memory at a time, and until the result is freed the
/// connection accepts no other statement (2014). When the text makes several results, db_use_query
/// transfers the first one as db_query does, because the others follow it on the connection.
///
/// A text of blanks and semicolons succeeds, and nothing is sent.
///
/// Three failures leave the connection usable and send nothing:
/// - 1153: the text is longer than the server's max_allowed_packet.
/// - 1231: the session state was changed so that escaping may not be safe any more. This concerns
///   sql_mode, the character set, and the variables that make the server report such changes. The
///   replies report the changes. The layer asks the server only where a reply cannot report them:
///   after a procedure, or after a statement that failed half-way. No later statement can notice
///   that it asked.
/// - 2014: rows are being streamed on the connection.
///
/// A null handle fails with 2006. So does a handle that the parent process opened, in a child
/// after fork.
///
/// If the server has closed the connection, a new one is opened before the text is sent, provided
/// that nothing in the old session can be missed; it selects the same database and allows several
/// statements if the old one did. Otherwise one statement fails with 2006, unsent, and the next
/// statement opens the connection; no other call takes the place of that failure. If opening fails,
/// the number is 2006 too, and the message has the reason.
///
/// A lost session is replaced in silence only if every text that it ran is known to leave nothing
/// behind, and the server's replies agree. Known to leave nothing: ordinary SELECT, INSERT, UPDATE,
/// DELETE, REPLACE, SHOW, LOAD DATA and definitions (CREATE, ALTER, DROP and the like) without
/// TEMPORARY, and transactions that have ended, if they call built-in functions only; reading an
/// @@variable; DROP TEMPORARY TABLE. Everything else counts as leaving something: CALL, EXECUTE, a
/// function that is not built in, a user variable, a comment that only some server versions
/// execute, an unknown first word. The text to be sent next must neither ask for what an earlier
/// one left (LAST_INSERT_ID(), ROW_COUNT(), PREVIOUS VALUE FOR, SHOW WARNINGS and the like) nor run
/// what its words do not show. What a trigger does, or a stored function that a view calls, cannot
/// be seen: a GET_LOCK() in it, a variable that it sets by SELECT ... INTO, a LAST_INSERT_ID() that
/// it reads.
///
/// A text that was sent and not answered fails with 2013, with 1927 if the connection was killed,
/// or with 1053 if the server shuts down. It may have run and is never sent again; the next
/// statement has a fresh session. An answer that is not understood closes the connection and fails
/// with 2027. If the server asks for a local file, it does not get it, and the statement fails with
/// 4166.
int db_query(void* handle, const char* text, void** result);
int db_use_query(void* handle, const char* text, void** result);

/// The number of answers that the last text has had: one for each of its statements that succeeded,
/// and for CALL, EXECUTE and the like one more for each of their results. In a text of other
/// statements it is the 0-based number of the statement that failed. 0 if the text was not sent. A
/// client may lack this function: libkestrodb then sends a script's statements one by one.
int db_answer_count(void* handle);

/// Frees the result. Streamed rows that were not fetched are read and dropped. If the statement
/// fails meanwhile and a transaction is open, the next statement fails with 2006, unsent, as the
/// server may have rolled the transaction back.
void db_free_result(void* result);

/// Rows changed by the last statement that succeeded, or rows delivered if it made a result set.
/// INSERT ... ON DUPLICATE KEY UPDATE counts 1 for a new row, 2 for a changed row, and 0 for a row
/// that had these values already.
std::uint64_t db_affected_rows(void* handle);

/// The last id that a statement generated on this handle. Statements that generate none leave it. 0
/// before the first.
std::uint64_t db_lastid(void* handle);

/// The number of rows. Transfers the rows first if the result comes from db_use_query and nothing
/// was fetched; once rows are streamed, returns the number fetched so far. If the transfer fails,
/// returns 1, and fetching that row throws, so that a lost connection never looks like an empty
/// result.
int db_result_row_num(void* handle, void* result);

/// The number of columns.
int db_result_fields_num(void* handle, void* result);

/// The row at a 0-based index, or null if there is none. Takes constant time for rows in
/// sequence. For a streamed result, rows before the index are skipped, and a row that was skipped
/// or replaced by a later one is null.
///
/// Throws Kestro::Exception("db_result_fetch_row", 4) with the server's message as string parameter
/// if the connection was lost, or the statement failed, before the last row.
void* db_result_fetch_row(void* result, int index);

/// The bytes of one value of the row, NUL-terminated, or null for SQL NULL and for a column that
/// the result does not have. They live as long as the row handle. The connection handle makes no
/// difference.
const char* db_result_get_value(void* handle, void* result, void* row, int column);

/// The length in bytes of a value of the row that was fetched last; 0 for NULL, for a column that
/// the result does not have, and before the first fetch.
unsigned long db_result_field_length(void* result, int column);
}
#pragma GCC visibility pop
