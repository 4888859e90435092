#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/Connection.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace Kestro::Database {

/// Cuts a script, as the server's command-line client runs them, into its statements.
///
///     ScriptReader reader("schema.sql");
///     for (std::string text; reader.next(text); text.clear()) {
///         std::cout << reader.file() << ':' << reader.line() << ": " << text << '\n';
///     }
///
/// A statement ends at the delimiter, at `\g` or `\G`, or at the end of its file. The delimiter is
/// ";" until a line `DELIMITER x` changes it. A delimiter does not count inside '...' and "..."
/// (with escapes), `...`, a comment (`# ...`, `-- ...`, or between slash-star and star-slash) or a
/// comment that the server executes (slash-star-! or slash-star-M!). Where a statement may begin,
/// these are commands: `DELIMITER x`, `source file` and `\. file`, whose file is found from the
/// directory of the file that names it, and `use name`, which needs no delimiter at a line's end.
///
/// Comments before a statement and empty statements are left out, comments inside one stay. A CR
/// before a line feed is left out everywhere, as the client does, and so is a UTF-8 byte-order
/// mark. The other commands of the client stay in the text, so the server fails them. Changes
/// that statements make to the session are not followed: in a script that sets ANSI_QUOTES,
/// NO_BACKSLASH_ESCAPES, or a character set whose characters may hold a backslash, quotation marks
/// mean what they meant before.
///
/// A file is read in blocks of 64 KiB. Threads: distinct objects may be used by distinct threads;
/// one object belongs to one thread at a time, but for stop().
class KESTRO_API ScriptReader {
public:
    /// The length of the longest statement, bytes, unless the caller sets another: the most that
    /// the server takes in one packet.
    static constexpr std::size_t MaxStatement = 1'073'741'824;

    /// Opens the file; "-" is standard input. Throws DatabaseException, as next() does, if it
    /// cannot be read or is no ordinary file; a pipe can only be standard input.
    explicit ScriptReader(const std::string& path);
    ScriptReader(const ScriptReader&) = delete;
    ScriptReader& operator=(const ScriptReader&) = delete;
    ~ScriptReader();

    /// Appends the next statement, without its delimiter, to the text. Returns false after the last
    /// one, and after stop().
    ///
    /// Throws DatabaseException if there is no statement to give: int parameter 4, the script's
    /// file and line in fileName() and lineNumber(), the reason as string parameter. The reasons
    /// are text in quotation marks, a comment or a statement without an end, DELIMITER without a
    /// delimiter, a file that cannot be read or is being read already, and a statement longer than
    /// maxStatement(). The text is then as it was, and the next call goes on after what was wrong.
    bool next(std::string& text);

    /// Where the last statement begins: the file as it was named, or joined to the directory of the
    /// file that names it, and the line, counted from 1. Before the first one: the file and 0.
    const std::string& file() const { return *m_file; }
    std::uint64_t line() const { return m_line; }
    /// Whether a ";" stands in the last statement, outside of quotation marks and comments: the
    /// server may take it for several statements.
    bool compound() const { return m_compound; }

    /// Where the next statement is looked for, as "file:line".
    std::string position() const;
    /// Bytes read so far, and bytes in all files opened so far; 0 if one is no ordinary file.
    std::uint64_t bytes() const;
    std::uint64_t size() const { return m_unknownSize ? 0 : m_size; }

    /// The length that a statement may have, bytes.
    std::size_t maxStatement() const { return m_maxStatement; }
    void maxStatement(std::size_t bytes) { m_maxStatement = bytes; }

    /// Ends the script: next() returns false from now on, also one that a signal has interrupted
    /// while it waits for standard input. May be called by any thread, and by a signal handler.
    void stop() noexcept;
    bool stopped() const noexcept;

private:
    friend class Script;
    struct Source;
    struct State;

    void open(const std::string& path);
    bool skipToStatement();
    bool runCommand();
    void setDelimiter(const std::string& delimiter);
    bool atDelimiter();
    std::string restOfLine(bool upToDelimiter);
    void skipComment();
    void cut(std::string& text);
    void leave();
    void checkLength(bool tooLong) const;
    [[noreturn]] void unterminated(std::uint64_t line, const std::string& what) const;
    [[noreturn]] void fail(std::uint64_t line, const std::string& reason) const;

    std::unique_ptr<State> m_state;
    std::shared_ptr<const std::string> m_file;
    std::uint64_t m_line = 0;
    std::uint64_t m_size = 0;
    std::size_t m_maxStatement = MaxStatement;
    bool m_compound = false;
    bool m_unknownSize = false;
};

} // namespace Kestro::Database
