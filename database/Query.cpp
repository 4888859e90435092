#include <Kestro/Database/Query.h>

#include "SqlStream.h"

#include <Kestro/Database/QueryFile.h>
#include <Kestro/Database/QueryLoadData.h>
#include <Kestro/Database/QueryTableNames.h>
#include <Kestro/Database/Scalar.h>
#include <db_client.h>

#include <fstream>
#include <locale>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

namespace Kestro::Database {

namespace {

// What failures report as their place, whatever the lines of this file.
constexpr char File[] = "Query";
constexpr unsigned LineWithParser = 75;
constexpr unsigned LineWithoutParser = 88;
constexpr unsigned NoDatabaseLine = 168;
constexpr unsigned NoTableLine = 176;

constexpr int UnknownError = 2000; // the client interface's number for a failure without another

// The message of the client interface's exception for rows that ended with a failure.
constexpr std::string_view StreamFailed = "db_result_fetch_row";

constexpr std::size_t UsualSize = 500; // bytes of a statement; longer ones grow
constexpr std::size_t BlockSize = 4096;
constexpr std::size_t BatchLimit = 1'048'576;
constexpr std::string_view Terminator = ";\n";

// Empty, with room for a usual statement: reserving is cheaper than the buffer's own growing.
std::string room()
{
    std::string text;
    text.reserve(UsualSize);
    return text;
}

struct FreeResult {
    void operator()(void* result) const { db_free_result(result); }
};

[[noreturn]] void raise(unsigned line, std::string&& text, int errorNumber = 0)
{
    throw DatabaseException(4, File, line, std::move(text), errorNumber);
}

} // namespace

RowParser::~RowParser() = default;

Query::Query(Connection& connection, RowParser* parser, bool storeResult)
    : Query(connection, room(), parser, storeResult)
{}

Query::Query(Connection& connection, std::string text, RowParser* parser, bool storeResult)
    : std::basic_ostream<char>(nullptr), m_connection(connection), m_buffer(std::move(text)),
      m_parser(parser), m_storeResult(storeResult)
{
    rdbuf(&m_buffer);
    if (!m_buffer.view().empty()) {
        m_buffer.pubseekoff(0, std::ios_base::end, std::ios_base::out);
    }
#ifdef __GLIBCXX__
    // The stream has just looked up the facets of the global locale. imbue() would look all of them
    // up again, which is a tenth of the cost of a short statement, so set the one that matters.
    if (getloc() == std::locale::classic()) {
        _M_num_put = &sqlNumbers();
        return;
    }
#endif
    imbue(sqlLocale());
}

Query::~Query() = default;

std::string Query::sql() const
{
    return m_buffer.str();
}

void Query::execute()
{
    if (m_buffer.view().empty()) {
        return;
    }
    if (fail()) {
        m_errorMessage = "the statement was not written completely";
        if (const char* refusal = refusedNumber(*this)) {
            m_errorMessage.append(": ").append(refusal);
        }
        m_errorNumber = UnknownError;
        refuse(m_buffer.view());
    }
    // There is room behind the text: the buffer lies in a std::string, which keeps one for a NUL.
    *const_cast<char*>(m_buffer.view().end()) = '\0';
    send(m_buffer.view());
}

// A NUL must follow the text, or be its last character.
void Query::send(std::string_view statement)
{
    if (m_connection.m_transaction == Connection::TransactionState::Lost) {
        m_errorMessage = "the transaction was lost, so nothing is sent before its end";
        m_errorNumber = m_connection.m_lostBy;
        refuse(statement);
    }
    void* const handle = m_connection.m_handle;
    const auto run = m_storeResult ? db_query : db_use_query;
    void* received = nullptr;
    const int failed = run(handle, statement.data(), m_parser != nullptr ? &received : nullptr);
    {
        const std::unique_ptr<void, FreeResult> result(received);
        if (failed != 0) {
            m_errorMessage = m_connection.errorMessage();
            m_errorNumber = m_connection.errorNumber();
            m_connection.failed(m_errorNumber);
            refuse(statement);
        }
        if (m_parser != nullptr) {
            try {
                m_parser->parse(handle, received);
            } catch (const Exception& e) {
                if (e.message() == StreamFailed) {
                    m_connection.failed(m_connection.errorNumber());
                }
                throw;
            }
        }
    }
    // Not `handle`: the parser may have reopened the connection.
    m_affectedRows = static_cast<std::uint32_t>(db_affected_rows(m_connection.m_handle));
}

void Query::refuse(std::string_view statement) const
{
    constexpr std::string_view Separator = " : ";
    std::string text;
    text.reserve(m_errorMessage.size() + Separator.size() + statement.size());
    text.append(m_errorMessage).append(Separator).append(statement);
    raise(m_parser != nullptr ? LineWithParser : LineWithoutParser, std::move(text), m_errorNumber);
}

std::uint64_t Query::get_lastid() const
{
    return db_lastid(m_connection.m_handle);
}

QueryFile::QueryFile(Connection& connection, const std::string& path) : m_connection(connection)
{
    std::ifstream file(path);
    char buffer[BlockSize];
    std::string batch;
    for (;;) {
        // Enough for every batch of a file of ordinary lines, so that none is copied as it grows.
        batch.reserve(BatchLimit + BlockSize);
        file.read(buffer, sizeof buffer);
        const std::string_view block(buffer, static_cast<std::size_t>(file.gcount()));
        if (block.empty()) {
            break;
        }
        // Only the first terminator of a block counts, and one that is split between two blocks
        // does not.
        const std::size_t found = block.find(Terminator);
        const std::size_t head = found + Terminator.size();
        if (found == std::string_view::npos || batch.size() + head <= BatchLimit) {
            batch += block;
        } else {
            batch += block.substr(0, head);
            m_statements.push_back(std::exchange(batch, std::string(block.substr(head))));
        }
    }
    if (!batch.empty()) {
        m_statements.push_back(std::move(batch));
    }
}

void QueryFile::execute()
{
    execute(m_connection);
}

void QueryFile::executeInOwnSession()
{
    // A USE statement may have left the database that the connection was opened on.
    const auto database = scalar<std::optional<std::string>>(m_connection, "SELECT DATABASE()");
    Connection session(m_connection.m_address, database.value_or(""));
    if (session.enableMultipleStatementsPerQuery() != 0) {
        throw DatabaseException(4, File, LineWithoutParser, session.errorMessage(),
                                session.errorNumber());
    }
    execute(session);
}

void QueryFile::execute(Connection& connection) const
{
    for (const std::string& batch : m_statements) {
        // The statement is the batch and its NUL. It is sent from here, without a copy.
        Query(connection, nullptr, true).send({batch.c_str(), batch.size() + 1});
    }
}

QueryLoadData::QueryLoadData(Connection& connection, const std::string& database,
                             const std::string& table, const std::string& file)
{
    if (!connection.dbSelectIfExists(database)) {
        raise(NoDatabaseLine, "database not exist");
    }
    if (!QueryTableExists(connection, table).exists()) {
        raise(NoTableLine, "table not exist");
    }
    connection.execute("DELETE FROM " + table + ";");
    connection.execute("LOAD DATA INFILE '" + file + "' REPLACE INTO TABLE " + table + ";");
}

QueryLoadData::~QueryLoadData() = default;

} // namespace Kestro::Database
