#include <Kestro/Database/Script.h>

#include <Kestro/Database/Query.h>
#include <Kestro/Database/QueryCount.h>
#include <Kestro/Database/ScriptReader.h>
#include <db_client.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

// Null if the program's client lacks it; then statements are sent one by one.
extern "C" [[gnu::weak]] int db_answer_count(void* handle); // NOLINT(*-redundant-declaration)

namespace Kestro::Database {

namespace {

// For each statement the server allocates as many bytes as are left of the string. A heap may give
// such a buffer back to the system each time, as glibc's does from 128 KiB on. That made some runs
// of scripts take two to three times as long.
constexpr std::size_t MaxBatch = 65'536; // bytes
constexpr std::size_t MinBatch = 4096;
constexpr std::chrono::milliseconds BatchTime(100);
constexpr std::size_t PacketOverhead = 2; // bytes of max_allowed_packet that a string does not get
constexpr std::string_view Separator = ";\n";

// Error numbers after which the session is gone, or takes no statement any more.
constexpr std::array SessionLost = {1053, 1231, 1927, 2006, 2013, 2027};
// Those of them after which it is not known what has run.
constexpr std::array InDoubt = {1053, 1927, 2013, 2027};

// The statements that always have exactly one answer. Others may have several, as CALL does, or
// none; after one of them the number of answers would not say where a string failed.
constexpr std::array<std::string_view, 24> OneAnswer = {
    "ALTER",     "COMMIT", "CREATE", "DEALLOCATE", "DELETE",   "DO",      "DROP",   "FLUSH",
    "GRANT",     "INSERT", "LOCK",   "PREPARE",    "RENAME",   "REPLACE", "REVOKE", "ROLLBACK",
    "SAVEPOINT", "SELECT", "SET",    "START",      "TRUNCATE", "UNLOCK",  "UPDATE", "USE"};

char upper(char c)
{
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

// The first word in capitals, also of a comment that every server since MySQL 5.7 and MariaDB 10.0
// executes; "" where there is no such word.
std::string firstWord(std::string_view statement)
{
    constexpr int NotExecuted = 50'700;
    if (statement.starts_with("/*!")) {
        statement.remove_prefix(3);
        int version = 0;
        while (!statement.empty() && std::isdigit(static_cast<unsigned char>(statement[0])) != 0) {
            version = std::min(version * 10 + (statement[0] - '0'), NotExecuted);
            statement.remove_prefix(1);
        }
        if (version == NotExecuted) {
            return "";
        }
        statement.remove_prefix(std::min(statement.find_first_not_of(" \t\n"), statement.size()));
    }
    std::string word;
    for (const char c : statement.substr(0, 16)) {
        if (std::isalpha(static_cast<unsigned char>(c)) == 0) {
            break;
        }
        word += upper(c);
    }
    return word;
}

bool mentions(std::string_view statement, std::string_view word)
{
    return std::search(statement.begin(), statement.end(), word.begin(), word.end(),
                       [](char a, char b) { return upper(a) == b; }) != statement.end();
}

// Whether other statements may follow this one in a string: it has one answer, and does not change
// where the server sees them end.
bool mayBeFollowed(std::string_view statement, bool compound)
{
    const std::string word = firstWord(statement);
    if (compound || std::ranges::find(OneAnswer, word) == OneAnswer.end()) {
        return false;
    }
    const auto mentionsAny = [&](std::initializer_list<std::string_view> words) {
        return std::ranges::any_of(words, [&](auto each) { return mentions(statement, each); });
    };
    if (word == "SET") {
        return !mentionsAny({"SQL_MODE", "NAMES", "CHAR", "STATEMENT"});
    }
    // Without DELIMITER the body of one of these is cut, as the client cuts it. The server would
    // find the rest of it in the statements that follow.
    return (word != "CREATE" && word != "ALTER") ||
           !mentionsAny({"PROCEDURE", "FUNCTION", "TRIGGER", "EVENT", "PACKAGE"});
}

// The first 200 characters: continuation bytes of UTF-8 are not counted.
std::string excerpt(std::string_view statement)
{
    constexpr std::size_t Shown = 200;
    std::size_t characters = 0;
    const auto* const end = std::ranges::find_if(statement, [&](char c) {
        return (static_cast<unsigned char>(c) & 0xc0U) != 0x80U && ++characters > Shown;
    });
    return std::string(statement.begin(), end) + (end != statement.end() ? " ..." : "");
}

} // namespace

struct Script::State {
    struct Statement {
        std::size_t begin;
        std::size_t end;
        std::shared_ptr<const std::string> file;
        std::uint64_t line;
        bool mayBeFollowed;

        std::string place() const { return *file + ':' + std::to_string(line); }
    };

    ScriptReader reader;
    std::string text; // the statements, each followed by a separator
    std::vector<Statement> statements;
    std::size_t next = 0;                     // the first that was not sent
    std::optional<DatabaseException> problem; // of the script, after the last statement
    std::size_t maxBatch = 0;                 // bytes; 0 before the server was asked
    std::size_t batch = MinBatch;             // bytes that a string has at present
    std::uint64_t run = 0;
    int errorNumber = 0;
    std::string errorMessage;
    bool over = false;

    explicit State(const std::string& path) : reader(path) {}

    std::string_view textOf(const Statement& statement) const
    {
        return std::string_view(text).substr(statement.begin, statement.end - statement.begin);
    }
};

Script::Script(const std::string& path, Connection& connection)
    : m_connection(connection), m_state(std::make_unique<State>(path))
{
    if (connection.enableMultipleStatementsPerQuery() != 0) {
        throw DatabaseException(4, "Script", 0, connection.errorMessage(),
                                connection.errorNumber());
    }
}

Script::~Script() = default;

void Script::execute()
{
    while (step()) {
    }
}

bool Script::step()
{
    State& state = *m_state;
    if (state.over || stopped()) {
        return false;
    }
    if (state.next == state.statements.size() && !state.problem) {
        read();
    }
    if (state.next == state.statements.size()) {
        if (state.problem) {
            state.errorNumber = 0;
            state.errorMessage = state.problem->stringParameter();
            throw *std::exchange(state.problem, std::nullopt);
        }
        return false;
    }

    const std::size_t first = state.next;
    const std::size_t begin = state.statements[first].begin;
    std::size_t last = first;
    while (db_answer_count != nullptr && state.statements[last].mayBeFollowed &&
           last + 1 < state.statements.size() &&
           state.statements[last + 1].end - begin <= state.batch) {
        ++last;
    }
    const std::size_t end = state.statements[last].end;
    state.text[end] = '\0';
    const auto started = std::chrono::steady_clock::now();
    Query query(m_connection);
    try {
        query.send({state.text.data() + begin, end + 1 - begin});
    } catch (const DatabaseException&) {
        state.text[end] = Separator[0];
        state.errorNumber = query.get_error_number();
        state.errorMessage = query.get_error_message();
        failed(last);
    }
    state.text[end] = Separator[0];
    state.next = last + 1;
    state.run += last + 1 - first;
    state.batch = std::chrono::steady_clock::now() - started < BatchTime
                      ? std::min(state.batch * 2, state.maxBatch)
                      : std::max(state.batch / 2, MinBatch);
    return true;
}

// Reads statements for the next strings, enough for one of the largest.
void Script::read()
{
    State& state = *m_state;
    if (state.maxBatch == 0) {
        // An explicit limit, as the server may have a sql_select_limit of 0.
        const std::size_t packet = static_cast<std::uint32_t>(
            QueryCount(m_connection, "SELECT @@max_allowed_packet LIMIT 1").count());
        const std::size_t most = std::clamp(packet, 2 * MinBatch, ScriptReader::MaxStatement);
        state.reader.maxStatement(most - PacketOverhead);
        state.maxBatch = std::min(MaxBatch, most - PacketOverhead);
        state.batch = std::min(state.batch, state.maxBatch);
    }
    state.text.clear();
    state.statements.clear();
    state.next = 0;
    try {
        for (std::size_t begin = 0; begin < state.maxBatch && state.reader.next(state.text);) {
            const std::string_view statement = std::string_view(state.text).substr(begin);
            if (statement.find('\0') != std::string_view::npos) {
                DatabaseException failure(4, state.reader.file(),
                                          static_cast<unsigned>(state.reader.line()));
                failure.stringParameter(
                    "a NUL byte, which would end the statement; is the script in "
                    "UTF-16? : " +
                    excerpt(statement));
                state.text.resize(begin);
                throw failure;
            }
            state.statements.push_back({begin, state.text.size(), state.reader.m_file,
                                        state.reader.line(),
                                        mayBeFollowed(statement, state.reader.compound())});
            state.text += Separator;
            begin = state.text.size();
        }
    } catch (const DatabaseException& e) {
        state.problem = e;
    }
}

// Throws, for the string that ends with this statement.
void Script::failed(std::size_t last)
{
    State& state = *m_state;
    const int answers = db_answer_count != nullptr ? db_answer_count(m_connection.m_handle) : 0;
    const std::size_t at =
        std::min(state.next + static_cast<std::size_t>(std::max(answers, 0)), last);
    const State::Statement& statement = state.statements[at];
    state.run += at - state.next;
    state.next = at + 1;
    state.batch = MinBatch;
    std::string text = state.errorMessage + " : " + excerpt(state.textOf(statement));
    if (std::ranges::find(SessionLost, state.errorNumber) != SessionLost.end()) {
        state.over = true;
        if (std::ranges::find(InDoubt, state.errorNumber) == InDoubt.end()) {
            state.next = at; // it was not sent
        } else if (at < last) {
            text += " (it may have run, and so may the statements up to " +
                    state.statements[last].place() + ')';
            state.next = last + 1;
        }
    }
    throw DatabaseException(4, *statement.file, static_cast<unsigned>(statement.line),
                            std::move(text), state.errorNumber);
}

int Script::get_error_number() const
{
    return m_state->errorNumber;
}

const std::string& Script::get_error_message() const
{
    return m_state->errorMessage;
}

std::uint64_t Script::statements() const
{
    return m_state->run;
}

std::string Script::position() const
{
    const State& state = *m_state;
    return state.next < state.statements.size() ? state.statements[state.next].place()
                                                : state.reader.position();
}

std::uint64_t Script::bytes() const
{
    return m_state->reader.bytes();
}

std::uint64_t Script::size() const
{
    return m_state->reader.size();
}

void Script::stop() noexcept
{
    m_state->reader.stop();
}

bool Script::stopped() const noexcept
{
    return m_state->reader.stopped();
}

} // namespace Kestro::Database
