// Checks whether programs on the library can work with this machine's server; see
// docs/kestro-doctor.md.

#include "Checks.h"
#include "Program.h"
#include "Socket.h"

#include <KestroDatabase>
#include <cstdlib>
#include <db_client.h>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <pwd.h>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace doctor;
using namespace Kestro::Database;

constexpr programs::Program Self = {"kestro-doctor",
                                    R"(Usage: kestro-doctor [DATABASE]
  or:  kestro-doctor --help | --version

Connects to the local server as a program on the library does and prints one line
per check: severity, subject, finding. The line after it, marked "->", says what
to do. With DATABASE it checks this database and its tables too. Nothing on the
server is changed.

Severities:
  ok    as it should be
  note  some programs will have trouble with it
  bad   the library, or a part of it, does not work

Options:
  --help     print this text
  --version  print the version

Exit status:
  0  nothing is bad
  1  something is bad, or the report could not be written
  2  wrong usage
)"};

// Prints each finding at once. Names in it come from the server: on one line they neither control
// the terminal nor look like a finding of their own.
class Report {
public:
    void add(const Finding& finding)
    {
        m_bad |= finding.severity == Severity::Bad;
        const Word& word = m_words[static_cast<std::size_t>(finding.severity)];
        std::cout << (m_coloured ? word.colour : "") << word.text << (m_coloured ? Plain : "")
                  << std::string(WordWidth - word.text.size(), ' ') << std::left
                  << std::setw(SubjectWidth) << programs::onOneLine(finding.subject) << "  "
                  << programs::onOneLine(finding.text) << '\n';
        if (!finding.advice.empty()) {
            std::cout << std::string(WordWidth, ' ') << "-> " << programs::onOneLine(finding.advice)
                      << '\n';
        }
        std::cout.flush(); // the next check may take long
    }
    void add(const Findings& findings)
    {
        for (const Finding& finding : findings) {
            add(finding);
        }
    }
    bool bad() const { return m_bad; }

private:
    struct Word {
        std::string_view text;
        const char* colour;
    };

    static constexpr int SubjectWidth = 18; // of the longest fixed subject
    static constexpr std::size_t WordWidth = 6;
    static constexpr char Plain[] = "\33[0m";
    static constexpr Word m_words[] = {
        {"ok", "\33[32m"}, {"note", "\33[33m"}, {"bad", "\33[1;31m"}};

    static bool coloursWanted()
    {
        const char* const none = std::getenv("NO_COLOR");
        return isatty(STDOUT_FILENO) != 0 && (none == nullptr || *none == '\0');
    }

    const bool m_coloured = coloursWanted();
    bool m_bad = false;
};

using Row = std::vector<std::optional<std::string>>;

struct AnyRow : RowImpl {
    std::vector<Row> rows;
    bool parse(void* connection, void* result, void* row) override
    {
        Row& values = rows.emplace_back();
        for (int i = 0; i < db_result_fields_num(connection, result); ++i) {
            values.emplace_back(column(connection, result, row, i));
        }
        return true;
    }
};

std::vector<Row> ask(Connection& connection, const std::string& statement)
{
    AnyRow row;
    OneRowParser parser(row);
    Query query(connection, &parser);
    query << statement;
    try {
        query.execute();
    } catch (const DatabaseException&) { // without the statement, which means nothing to the user
        throw std::runtime_error(std::to_string(query.get_error_number()) + ", " +
                                 query.get_error_message());
    }
    return std::move(row.rows);
}

Row askForRow(Connection& connection, const std::string& statement)
{
    std::vector<Row> rows = ask(connection, statement);
    if (rows.empty()) {
        throw Kestro::Exception("no answer to " + statement);
    }
    return std::move(rows.front());
}

Failure open(std::optional<Connection>& connection, const std::string& database)
{
    try {
        connection.emplace(database);
        return {};
    } catch (const DatabaseException& e) {
        return {db_error_number(nullptr), e.stringParameter()};
    }
}

// The account that the client layer logs in with.
std::string loginName()
{
    const passwd* entry = getpwuid(geteuid());
    return entry != nullptr ? entry->pw_name : std::to_string(geteuid());
}

// A file that everybody may read; the destructor removes it.
class DataFile {
public:
    explicit DataFile(const std::filesystem::path& directory)
        : m_path(directory / "kestro-doctor.XXXXXX")
    {
        const int file = mkstemp(m_path.data());
        if (file < 0) {
            throw std::filesystem::filesystem_error("no file can be written", directory,
                                                    {errno, std::generic_category()});
        }
        fchmod(file, 0644);
        close(file);
    }
    DataFile(const DataFile&) = delete;
    DataFile& operator=(const DataFile&) = delete;
    ~DataFile() { unlink(m_path.c_str()); }

    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

class Examination {
public:
    Examination(Report& report, Connection& connection) : m_report(report), m_connection(connection)
    {}

    void server()
    {
        guarded("account", [&] {
            m_account = text("SELECT CURRENT_USER()");
            m_report.add(accountFinding(loginName(), m_account));
        });
        guarded("version", [&] {
            m_version = text("SELECT @@version");
            m_report.add(versionFinding(m_version));
        });
        std::optional<Connection> system;
        m_report.add(systemDatabaseFinding(open(system, "mysql"), m_account));
        guarded("sql_mode", [&] {
            m_report.add(
                sqlModeFindings(text("SELECT @@GLOBAL.sql_mode"), text("SELECT @@sql_mode")));
        });
        guarded("character sets", [&] {
            m_report.add(characterSetFinding(
                text("SELECT @@GLOBAL.character_set_server"), text("SELECT @@character_set_client"),
                text("SELECT @@character_set_connection"), text("SELECT @@character_set_results")));
        });
        guarded("max_allowed_packet", [&] {
            m_report.add(packetFinding(std::stoull(text("SELECT @@max_allowed_packet"))));
        });
        guarded("data files", [&] { dataFiles(); });
        guarded("cluster", [&] { cluster(); });
    }

    void database(const std::string& name)
    {
        std::optional<Connection> own;
        if (const Failure failure = open(own, name); failure.number != 0) {
            m_report.add(databaseFinding(name, failure, m_account, ""));
            return;
        }
        guarded("database", [&] {
            // DATABASE() returns the name in the server's own spelling.
            const Row row =
                askForRow(*own, "SELECT default_character_set_name FROM "
                                "information_schema.schemata WHERE schema_name=DATABASE()");
            m_report.add(databaseFinding(name, {}, m_account, row[0].value_or("")));
        });
        guarded("tables", [&] { tables(*own, name); });
    }

private:
    // A statement that fails spoils only its own check.
    template <class Check> void guarded(const std::string& subject, const Check& check)
    {
        try {
            check();
        } catch (const std::exception& e) {
            m_report.add(Finding{Severity::Bad, subject, e.what(), ""});
        }
    }

    std::string text(const std::string& statement)
    {
        return askForRow(m_connection, statement)[0].value_or("");
    }

    void dataFiles()
    {
        std::vector<std::string> grants;
        for (const Row& row : ask(m_connection, "SHOW GRANTS")) {
            grants.push_back(row[0].value_or(""));
        }
        const Finding file = fileFinding(grants, m_account);
        m_report.add(file);
        const auto place = askForRow(m_connection, "SELECT @@secure_file_priv")[0];
        m_report.add(secureFilePrivFinding(place, m_version));
        if (file.severity == Severity::Ok && readsEveryPlace(place, m_version)) {
            reading();
        }
    }

    void reading()
    {
        try {
            const std::string directory = std::filesystem::temp_directory_path();
            const DataFile data(directory);
            const std::string read = text(
                "SELECT LOAD_FILE(\"" + m_connection.escapeString(data.path()) + "\") IS NOT NULL");
            m_report.add(readingFinding(directory, read == "1"));
        } catch (const std::filesystem::filesystem_error& e) {
            m_report.add(Finding{Severity::Note, "data files",
                                 "not tried: " + std::string(e.what()),
                                 "name a directory that this user may write to in TMPDIR"});
        }
    }

    void cluster()
    {
        ClusterStatus status;
        for (const Row& row : ask(m_connection, "SHOW GLOBAL STATUS LIKE 'wsrep\\_%'")) {
            status[row[0].value_or("")] = row[1].value_or("");
        }
        m_inCluster = isInCluster(status);
        m_report.add(clusterFindings(status));
    }

    void tables(Connection& own, const std::string& name)
    {
        std::vector<TableState> tables;
        // The server reports PRI for a unique key without NULL too, which serves as a primary key.
        for (const Row& row :
             ask(own, "SELECT t.table_name, t.engine, e.transactions, k.table_name "
                      "FROM information_schema.tables t "
                      "LEFT JOIN information_schema.engines e ON e.engine=t.engine "
                      "LEFT JOIN (SELECT DISTINCT table_name "
                      "FROM information_schema.columns "
                      "WHERE table_schema=DATABASE() AND column_key='PRI') k "
                      "ON k.table_name=t.table_name "
                      "WHERE t.table_schema=DATABASE() "
                      "AND t.table_type IN ('BASE TABLE', 'SYSTEM VERSIONED') "
                      "ORDER BY t.table_name")) {
            tables.push_back(
                {row[0].value_or(""), row[1].value_or(""), row[2] == "YES", row[3].has_value()});
        }
        m_report.add(tableFindings(name, tables, m_inCluster));
    }

    Report& m_report;
    Connection& m_connection;
    std::string m_account = loginName();
    std::string m_version;
    bool m_inCluster = false;
};

void examine(Report& report, const std::optional<std::string>& database)
{
    const Finding socket = socketFinding();
    report.add(socket);
    std::optional<Connection> connection;
    const Failure failure = open(connection, "");
    report.add(connectionFinding(failure, loginName(), socket.severity == Severity::Ok));
    if (!connection) {
        report.add(Finding{Severity::Note, "server",
                           "nothing more can be checked without a connection", ""});
        return;
    }
    Examination examination(report, *connection);
    examination.server();
    if (database) {
        examination.database(*database);
    }
}

} // namespace

int main(int argc, char** argv)
try {
    if (Self.answers(argc, argv)) {
        return programs::Success;
    }
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() > 1) {
        return Self.misused("more than one argument");
    }
    if (arguments.size() == 1 && (arguments[0].empty() || arguments[0][0] == '-')) {
        return Self.misused(arguments[0].empty() ? "a database without a name"
                                                 : "no such option: " + arguments[0]);
    }
    Report report;
    examine(report, arguments.empty() ? std::nullopt : std::optional(arguments[0]));
    if (!std::cout) {
        return Self.fail("the report cannot be written");
    }
    return report.bad() ? programs::Failure : programs::Success;
} catch (const std::exception& e) {
    return Self.fail(e.what());
}
