#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/Connection.h>
#include <KestroRefcounted>

#include <cstdint>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>

namespace Kestro::Database {

/// Receives the result of a Query. RowContainer.h has ready parsers; a program rarely needs one of
/// its own.
class KESTRO_API RowParser {
public:
    virtual ~RowParser();

    /// Called by Query::execute() at most once per execution, on the same thread, after the server
    /// accepted the statement. The handles are those of the client interface (db_client.h): the
    /// connection and the result, which is null if the statement made none. Query owns the result
    /// and frees it afterwards, even if this throws, so neither the result nor a row of it may be
    /// kept. What this throws comes out of execute() unchanged.
    virtual void parse(void* connection, void* result) = 0;
};

/// One SQL statement: an output stream into which its text is written, and execute(), which sends
/// it and hands the result to a parser.
///
///     Query query(connection);
///     query << "INSERT INTO note (text) VALUES (" << literal(text) << ")"; // Literal.h
///     query.execute();
///
/// The text is sent exactly as written, in one call: nothing is escaped, quoted or terminated on
/// the way. A Query refers to its connection and parser and owns neither; both must outlive it. It
/// is meant for one statement: execute() leaves the text and the write position as they are, so
/// what is written afterwards is appended, and the next execute() sends all of it again.
///
/// Numbers are written as the classic locale writes them, and floating-point ones in the shortest
/// form that reads back as the same value, unless another format is set in the stream (std::fixed,
/// or a precision other than 6). A float is written as the double of the same value. SQL has
/// neither NaN nor infinity: execute() does not send a text into which one was written. To a
/// stream, signed char and unsigned char, and so std::int8_t and std::uint8_t, are characters;
/// literal() writes them as numbers.
///
/// The buffer, rdbuf(), is a std::stringbuf for reading and writing: seekp() lets a program
/// overwrite a part of the text, and a std::istream on the buffer reads it. Do not give it memory
/// of your own by pubsetbuf().
///
/// Threads: one Query, and the connection it runs on, belong to one thread at a time.
class KESTRO_API Query : public std::basic_ostream<char>, public virtual RefImpl {
public:
    /// Binds the query and sends nothing. Without a parser, results are read and dropped.
    ///
    /// With storeResult the whole result is in memory before the parser sees it. Without it, a
    /// parser that asks for one row after the other, as OneRowParser does, gets each as the server
    /// sends it, so that memory does not grow with their number. One that asks for the number of
    /// rows first, as KyRowParser does, has the whole result transferred all the same.
    explicit Query(Connection& connection, RowParser* parser = nullptr, bool storeResult = true);
    /// The same with a text that counts as written: further text is appended to it.
    Query(Connection& connection, std::string text, RowParser* parser = nullptr,
          bool storeResult = true);
    Query(const Query&) = delete;
    Query& operator=(const Query&) = delete;
    ~Query() override;

    /// A copy of all the text, NULs included, wherever the next write goes.
    std::string sql() const;

    /// Sends the text and hands its result to the parser. An empty text sends nothing.
    ///
    /// The statement ends at the first NUL in the text, if there is one. A text may hold several
    /// statements where the connection allows it (enableMultipleStatementsPerQuery()); the parser
    /// then gets the first result, and a failure of any of them is the failure of the call.
    ///
    /// If the statement fails, throws DatabaseException: int parameter 4, file "Query", line
    /// 75 with a parser and 88 without, and as string parameter the server's message, " : " and
    /// the statement. The same exception, before anything is sent, if a write into the stream had
    /// failed and the text is incomplete; a number that SQL does not have is named. What the parser
    /// throws passes through, and so does Exception("db_result_fetch_row", 4), with the server's
    /// message, if the connection is lost while rows are streamed.
    void execute();

    /// Number and message of this query's last failed execute(), 0 and "" before. A success does
    /// not clear them, and an exception of the parser does not set them.
    int get_error_number() const { return m_errorNumber; }
    std::string get_error_message() const { return m_errorMessage; }

    /// The id that the most recent insert on the connection generated, whichever query ran it; 0 if
    /// none did. Statements that generate none leave it, an INSERT IGNORE that inserted nothing
    /// too, so look at affectedRows() first. Of several rows that one statement inserted it is the
    /// first one's.
    std::uint64_t get_lastid() const;

    /// The number of rows that the last successful execute() changed or delivered, its low 32 bits;
    /// 0 before.
    std::uint32_t affectedRows() const { return m_affectedRows; }

private:
    friend class QueryFile;
    friend class Script;

    void send(std::string_view statement);
    [[noreturn]] void refuse(std::string_view statement) const;

    Connection& m_connection;
    std::stringbuf m_buffer;
    RowParser* m_parser;
    std::string m_errorMessage;
    std::int32_t m_errorNumber = 0;
    bool m_storeResult;
    std::uint32_t m_affectedRows = 0;
};

} // namespace Kestro::Database
