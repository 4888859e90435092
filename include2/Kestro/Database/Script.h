#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/Connection.h>

#include <cstdint>
#include <memory>
#include <string>

namespace Kestro::Database {

/// Runs a script as the server's command-line client does, with DELIMITER and source. For how it is
/// cut into statements, see ScriptReader.h.
///
///     Connection connection("shop");
///     Script("schema.sql", connection).execute();
///
/// Statements are joined into strings of up to 64 KiB, and of about a tenth of a second's work, so
/// that most of them cost no round trip; a longer one is sent alone. Whatever their number, a
/// failure is that of one statement, whose place is known, and no statement is sent twice. Results
/// are read and dropped. The file is read as it is sent: memory holds one string and the longest
/// statement.
///
/// Give a script a connection of its own. It allows several statements per query there and leaves
/// what the script leaves in the session: its database, variables, an open transaction. A script
/// that makes escaped values unsafe (db_client.h) ends with 1231 at its next statement. LOAD DATA
/// LOCAL gets no file.
///
/// Threads: one Script, and its connection, belong to one thread at a time, but for stop().
class KESTRO_API Script {
public:
    /// Opens the file, "-" for standard input, and sends nothing. The connection must outlive the
    /// object. Throws what ScriptReader's constructor throws, and DatabaseException with int
    /// parameter 4 and file "Script" if the connection does not allow several statements.
    Script(const std::string& path, Connection& connection);
    Script(const Script&) = delete;
    Script& operator=(const Script&) = delete;
    ~Script();

    /// Runs all that is left of the script: calls step() until it returns false.
    void execute();

    /// Sends the next string and returns true; returns false at the end of the script.
    ///
    /// If a statement fails, throws DatabaseException: int parameter 4, the script's file and the
    /// statement's line in fileName() and lineNumber(), the server's number in errorNumber(), and
    /// as string parameter the server's text, " : " and the first 200 characters of the statement.
    /// A "line" in the server's text is counted from the statement's first. An error in the
    /// script itself, such as an unterminated comment, is thrown as by ScriptReader::next(), after
    /// everything before it has run.
    ///
    /// All statements before the one that failed have run, and none after it. Called again, step()
    /// goes on with the next one; but if the connection or what its session held is lost,
    /// the script has ended. A statement that the loss interrupted may have run, and so may those
    /// sent with it, which the string parameter then says.
    bool step();

    /// Number and text of the last failure, 0 and "" before one. The number is 0 if it was the
    /// script's.
    int get_error_number() const;
    const std::string& get_error_message() const;

    /// Statements that have run.
    std::uint64_t statements() const;
    /// Where the first statement stands that was not sent, as "file:line".
    std::string position() const;
    /// Bytes of the script read so far, and bytes of all its files so far; 0 if that is not known.
    std::uint64_t bytes() const;
    std::uint64_t size() const;

    /// Ends the script before its next string: step() returns false from now on. May be called by
    /// any thread, and by a signal handler.
    void stop() noexcept;
    bool stopped() const noexcept;

private:
    struct State;

    void read();
    void failed(std::size_t last);

    Connection& m_connection;
    std::unique_ptr<State> m_state;
};

} // namespace Kestro::Database
