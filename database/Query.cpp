#include <Kestro/Database/Query.h>

#include <db_client.h>

#include <memory>

namespace Kestro::Database {

namespace {

// What a refused statement reports as its place, whatever the lines of this file.
constexpr char QueryFile[] = "Query";
constexpr unsigned LineWithParser = 75;
constexpr unsigned LineWithoutParser = 88;

struct FreeResult {
    void operator()(void* result) const { db_free_result(result); }
};

[[noreturn]] void refuse(unsigned line, const std::string& reason, const std::string& statement)
{
    DatabaseException refused(4, QueryFile, line);
    refused.stringParameter(reason + " : " + statement);
    throw refused;
}

} // namespace

RowParser::~RowParser() = default;

Query::Query(Connection& connection, RowParser* parser, bool storeResult)
    : std::basic_ostream<char>(nullptr), m_connection(connection), m_parser(parser),
      m_storeResult(storeResult)
{
    rdbuf(&m_buffer);
}

Query::~Query() = default;

std::string Query::sql() const
{
    return m_buffer.str();
}

void Query::execute()
{
    const std::string statement = sql();
    const unsigned line = m_parser != nullptr ? LineWithParser : LineWithoutParser;
    if (fail()) {
        refuse(line, "the statement was not written completely", statement);
    }
    if (statement.empty()) {
        return;
    }
    void* const handle = m_connection.m_handle;
    const auto run = m_storeResult ? db_query : db_use_query;
    void* received = nullptr;
    if (run(handle, statement.c_str(), m_parser != nullptr ? &received : nullptr) != 0) {
        m_errorMessage = m_connection.errorMessage();
        m_errorNumber = m_connection.errorNumber();
        refuse(line, m_errorMessage, statement);
    }
    if (m_parser != nullptr) {
        const std::unique_ptr<void, FreeResult> result(received);
        m_parser->parse(handle, result.get());
    }
    // Not `handle`: the parser may have reopened the connection.
    m_affectedRows = static_cast<std::uint32_t>(db_affected_rows(m_connection.m_handle));
}

std::uint64_t Query::get_lastid() const
{
    return db_lastid(m_connection.m_handle);
}

} // namespace Kestro::Database
