#include <Kestro/Database/Query.h>

#include <Kestro/Database/QueryFile.h>
#include <Kestro/Database/QueryLoadData.h>
#include <Kestro/Database/QueryTableNames.h>
#include <db_client.h>

#include <fstream>
#include <locale>
#include <memory>
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

constexpr std::size_t UsualSize = 500; // of a statement: longer ones grow
constexpr std::size_t BlockSize = 4096;
constexpr std::size_t BatchLimit = 1'048'576;
constexpr std::string_view Terminator = ";\n";

// Empty, with room for a usual statement: the buffer's own first growth takes longer.
std::string room()
{
    std::string text;
    text.reserve(UsualSize);
    return text;
}

struct FreeResult {
    void operator()(void* result) const { db_free_result(result); }
};

[[noreturn]] void raise(unsigned line, const std::string& text)
{
    DatabaseException refused(4, File, line);
    refused.stringParameter(text);
    throw refused;
}

void execute(Connection& connection, const std::string& statement)
{
    Query query(connection, nullptr, true);
    query << statement;
    query.execute();
}

} // namespace

RowParser::~RowParser() = default;

Query::Query(Connection& connection, RowParser* parser, bool storeResult)
    : std::basic_ostream<char>(nullptr), m_connection(connection), m_buffer(room()),
      m_parser(parser), m_storeResult(storeResult)
{
    rdbuf(&m_buffer);
    // SQL's numbers know no grouping, whatever the program's global locale. Setting one costs a
    // dozen searches among the classes of its facets, so not without need.
    if (getloc() != std::locale::classic()) {
        imbue(std::locale::classic());
    }
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
        m_errorNumber = UnknownError;
        refuse(m_buffer.view());
    }
    // The buffer's memory has room for one character more, as that of every std::string.
    *const_cast<char*>(m_buffer.view().end()) = '\0';
    send(m_buffer.view());
}

// The text has a NUL at its end, or behind it.
void Query::send(std::string_view statement)
{
    void* const handle = m_connection.m_handle;
    const auto run = m_storeResult ? db_query : db_use_query;
    void* received = nullptr;
    const int failed = run(handle, statement.data(), m_parser != nullptr ? &received : nullptr);
    {
        const std::unique_ptr<void, FreeResult> result(received);
        if (failed != 0) {
            m_errorMessage = m_connection.errorMessage();
            m_errorNumber = m_connection.errorNumber();
            refuse(statement);
        }
        if (m_parser != nullptr) {
            m_parser->parse(handle, received);
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
    raise(m_parser != nullptr ? LineWithParser : LineWithoutParser, text);
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
        // What a batch comes to in a file of ordinary lines: no copy, and no memory to spare.
        batch.reserve(BatchLimit + BlockSize);
        file.read(buffer, sizeof buffer);
        const std::string_view block(buffer, static_cast<std::size_t>(file.gcount()));
        if (block.empty()) {
            break;
        }
        // Only the first terminator of a block is a place to cut, and one that lies across two
        // blocks is none.
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
    for (const std::string& batch : m_statements) {
        // The text of the query is the batch with one NUL: it is sent from where it is.
        Query(m_connection, nullptr, true).send({batch.c_str(), batch.size() + 1});
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
    execute(connection, "DELETE FROM " + table + ";");
    execute(connection, "LOAD DATA INFILE '" + file + "' REPLACE INTO TABLE " + table + ";");
}

QueryLoadData::~QueryLoadData() = default;

} // namespace Kestro::Database
