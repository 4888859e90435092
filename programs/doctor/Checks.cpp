#include "Checks.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <sstream>
#include <utility>

namespace doctor {

namespace {

using enum Severity;

// The server version that the library is measured with.
constexpr std::pair<int, int> MeasuredVersion{10, 11};

// QueryFile sends batches of 1 MiB, and longer ones if a statement crosses the limit.
constexpr std::uint64_t MiB = 1'048'576;
constexpr std::uint64_t ScriptNeed = 2 * MiB;
constexpr std::uint64_t PacketOverhead =
    2; // bytes of max_allowed_packet that a statement cannot use

// Error numbers of the server.
constexpr int TooManyConnections = 1040;
constexpr int NoRightToDatabase = 1044;
constexpr int AccessDenied = 1045;
constexpr int UnknownDatabase = 1049;
constexpr int AccessDeniedWithoutPassword = 1698;
// Error numbers of the Connector.
constexpr int CannotConnect = 2002;
constexpr int ServerLost = 2013;

constexpr char CharacterSet[] = "utf8mb4";

std::string quoted(std::string_view text, char quote)
{
    std::string result(1, quote);
    for (const char c : text) {
        result.append(c == quote ? 2 : 1, c);
    }
    return result + quote;
}

std::string quotedAccount(const std::string& account)
{
    const auto at = std::min(account.rfind('@'), account.size());
    const std::string host = at < account.size() ? account.substr(at + 1) : "localhost";
    return quoted(account.substr(0, at), '\'') + '@' + quoted(host, '\'');
}

std::string quotedName(std::string_view name)
{
    return quoted(name, '`');
}

std::set<std::string> modesOf(const std::string& sqlMode)
{
    std::set<std::string> modes;
    std::istringstream words(sqlMode);
    for (std::string mode; std::getline(words, mode, ',');) {
        if (!mode.empty()) {
            modes.insert(mode);
        }
    }
    return modes;
}

std::string joined(const std::set<std::string>& words)
{
    std::string result;
    for (const std::string& word : words) {
        result += (result.empty() ? "" : ", ") + word;
    }
    return result;
}

std::string describe(const Failure& failure)
{
    return std::to_string(failure.number) + ", " + failure.text;
}

bool isMariaDB(const std::string& version)
{
    return version.find("MariaDB") != std::string::npos;
}

} // namespace

Finding connectionFinding(const Failure& failure, const std::string& login, bool socketRight)
{
    std::string advice;
    switch (failure.number) {
    case 0:
        return {Ok, "connection", "the server answers", ""};
    case CannotConnect:
        advice = socketRight ? "nobody listens there: start the server (systemctl start mariadb); "
                               "its log says why it does not run"
                             : "put the socket right, see above";
        break;
    case AccessDenied:
    case AccessDeniedWithoutPassword:
        advice = "as an administrator: CREATE USER " + quotedAccount(login) +
                 " IDENTIFIED VIA unix_socket (ALTER USER if the account exists)";
        break;
    case TooManyConnections:
        advice = "SHOW PROCESSLIST, as root, shows who holds them; max_connections is the limit";
        break;
    case ServerLost:
        advice = "the server is stopped or overloaded: try again, see its log";
        break;
    default:
        break;
    }
    return {Bad, "connection", describe(failure), advice};
}

Finding accountFinding(const std::string& login, const std::string& account)
{
    const std::string text = "the user " + login + " is " + quotedAccount(account) + " there";
    if (account.substr(0, account.rfind('@')) == login) {
        return {Ok, "account", text, ""};
    }
    return {Note, "account", text + ": an account for several users",
            "for one of its own, as an administrator: CREATE USER " + quotedAccount(login) +
                " IDENTIFIED VIA unix_socket"};
}

Finding systemDatabaseFinding(const Failure& failure, const std::string& account)
{
    constexpr char Subject[] = "database mysql";
    if (failure.number == 0) {
        return {Ok, Subject, "can be opened, as KYDBDatabase and waitUntilServerReady() do", ""};
    }
    return {Bad, Subject,
            "KYDBDatabase and waitUntilServerReady() open it first: " + describe(failure),
            failure.number == NoRightToDatabase
                ? "any right there is enough, as an administrator: GRANT SELECT ON "
                  "mysql.time_zone_name TO " +
                      quotedAccount(account)
                : ""};
}

Finding databaseFinding(const std::string& database, const Failure& failure,
                        const std::string& account, const std::string& characterSet)
{
    constexpr char Subject[] = "database";
    switch (failure.number) {
    case 0:
        break;
    case UnknownDatabase:
        return {Bad, Subject, describe(failure),
                "CREATE DATABASE " + quotedName(database) +
                    ", or let KYDBDatabase::selectDB() do so: that needs the right CREATE on it"};
    case NoRightToDatabase:
        return {Bad, Subject, describe(failure),
                "if it exists, as an administrator: GRANT SELECT, INSERT, UPDATE, DELETE ON " +
                    quotedName(database) + ".* TO " + quotedAccount(account) +
                    " (GRANT ALL if programs are to create it or its tables)"};
    default:
        return {Bad, Subject, describe(failure), ""};
    }
    const std::string text =
        quotedName(database) + " can be opened; its new tables hold " + characterSet;
    if (characterSet == CharacterSet) {
        return {Ok, Subject, text, ""};
    }
    return {Note, Subject, text + ": other characters are refused or lost",
            "ALTER DATABASE " + quotedName(database) + " CHARACTER SET " + CharacterSet +
                "; for a table there is: ALTER TABLE ... CONVERT TO CHARACTER SET " + CharacterSet};
}

Finding versionFinding(const std::string& version)
{
    std::pair<int, int> number;
    char dot = 0;
    std::istringstream(version) >> number.first >> dot >> number.second;
    if (isMariaDB(version) && number >= MeasuredVersion) {
        return {Ok, "version", version, ""};
    }
    const std::string measured = "MariaDB " + std::to_string(MeasuredVersion.first) + '.' +
                                 std::to_string(MeasuredVersion.second);
    return {Note, "version", version + ": the library is measured with " + measured,
            "test the program with this server, or install " + measured + " or later"};
}

Findings sqlModeFindings(const std::string& global, const std::string& session)
{
    constexpr char Subject[] = "sql_mode";
    const std::set<std::string> left = modesOf(session);
    std::set<std::string> unsafe;
    for (const char* mode : {"ANSI_QUOTES", "NO_BACKSLASH_ESCAPES", "EMPTY_STRING_IS_NULL"}) {
        if (left.contains(mode)) {
            unsafe.insert(mode);
        }
    }
    if (!unsafe.empty()) {
        return {{Bad, Subject,
                 "the library's session has " + joined(unsafe) + ": its values are read wrongly",
                 "see what changes sessions between the program and the server: a proxy, or "
                 "another client layer"}};
    }

    Findings findings;
    std::set<std::string> removed;
    std::ranges::set_difference(modesOf(global), left, std::inserter(removed, removed.end()));
    if (!removed.empty()) {
        findings.push_back({Note, Subject,
                            "the library's sessions leave out the server's " + joined(removed),
                            "do not rely on it in statements: \"...\" is a text, \\ escapes, and "
                            "\"\" is not NULL"});
    }
    if (!left.contains("STRICT_TRANS_TABLES") && !left.contains("STRICT_ALL_TABLES")) {
        findings.push_back({Note, Subject,
                            "not strict: values that do not fit are cut or changed without an "
                            "error",
                            "SET GLOBAL sql_mode=CONCAT(@@GLOBAL.sql_mode, "
                            "',STRICT_TRANS_TABLES'), and in the server's option files"});
    }
    if (findings.empty()) {
        findings.push_back({Ok, Subject, "strict; \"...\" is a text and \\ escapes", ""});
    }
    return findings;
}

Finding characterSetFinding(const std::string& server, const std::string& client,
                            const std::string& connection, const std::string& results)
{
    const std::set<std::string> session{client, connection, results};
    const std::string text = "server " + server + ", the library's session " + joined(session);
    if (session != std::set<std::string>{CharacterSet}) {
        return {Bad, "character sets", text + ": texts are garbled or refused",
                "see what changes sessions between the program and the server: a proxy, or "
                "another client layer"};
    }
    if (server != CharacterSet) {
        return {Note, "character sets", text + ": new databases take the server's",
                std::string("CREATE DATABASE ... CHARACTER SET ") + CharacterSet +
                    ", or character_set_server=" + CharacterSet + " in the server's option files"};
    }
    return {Ok, "character sets", text, ""};
}

Finding packetFinding(std::uint64_t bytes)
{
    const std::string text =
        "a statement has at most " + std::to_string(bytes - PacketOverhead) + " bytes";
    if (bytes >= ScriptNeed) {
        return {Ok, "max_allowed_packet", text, ""};
    }
    return {Bad, "max_allowed_packet", text + ": a batch of a script may be longer",
            "SET GLOBAL max_allowed_packet=" + std::to_string(16 * MiB) +
                ", and in the server's option files; programs open their connections again"};
}

Finding fileFinding(const std::vector<std::string>& grants, const std::string& account)
{
    for (const std::string& grant : grants) {
        const auto end = grant.find(" ON *.* TO ");
        if (end == std::string::npos) {
            continue;
        }
        const std::string privileges = grant.substr(0, end) + ',';
        if (privileges.starts_with("GRANT FILE,") || privileges.starts_with("GRANT ALL ") ||
            privileges.find(", FILE,") != std::string::npos) {
            return {Ok, "FILE privilege", "granted: QueryLoadData may load files", ""};
        }
    }
    return {Note, "FILE privilege", "not granted: QueryLoadData is refused, its table then empty",
            "as an administrator: GRANT FILE ON *.* TO " + quotedAccount(account)};
}

bool readsEveryPlace(const std::optional<std::string>& secureFilePriv, const std::string& version)
{
    // NULL means every directory to MariaDB, and none to MySQL.
    return secureFilePriv ? secureFilePriv->empty() : isMariaDB(version);
}

Finding secureFilePrivFinding(const std::optional<std::string>& secureFilePriv,
                              const std::string& version)
{
    constexpr char Subject[] = "secure_file_priv";
    if (readsEveryPlace(secureFilePriv, version)) {
        return {Ok, Subject, "not set: data files may be anywhere", ""};
    }
    if (!secureFilePriv) {
        return {Note, Subject, "NULL: this server loads no data file",
                "set secure_file_priv in the server's option files to a directory for data files"};
    }
    return {Note, Subject, "data files are loaded from below " + *secureFilePriv + " only",
            "write data files there, and see that program and server may both enter it"};
}

Finding readingFinding(const std::string& directory, bool readable)
{
    if (readable) {
        return {Ok, "data files", "the server reads what this program writes in " + directory, ""};
    }
    return {Note, "data files", "the server cannot read what this program writes in " + directory,
            "write data files in a directory that the server's user may enter, such as one below "
            "/var/lib; systemctl cat mariadb shows what is hidden from the server (ProtectHome, "
            "PrivateTmp)"};
}

Findings tableFindings(const std::string& database, const std::vector<TableState>& tables,
                       bool inCluster)
{
    const Severity fault = inCluster ? Bad : Note;
    Findings findings;
    std::size_t right = 0;
    for (const TableState& table : tables) {
        const std::string name = quotedName(database) + '.' + quotedName(table.name);
        const std::size_t before = findings.size();
        if (table.engine.empty()) {
            findings.push_back({Bad, "table", name + " cannot be opened",
                                "CHECK TABLE " + name + "; the server's log says more"});
            continue;
        }
        if (!table.transactional) {
            findings.push_back({fault, "table",
                                name + " has the engine " + table.engine +
                                    (inCluster ? ": its rows stay on one node"
                                               : ": ROLLBACK does not undo its changes"),
                                "ALTER TABLE " + name + " ENGINE=InnoDB"});
        }
        if (!table.primaryKey) {
            findings.push_back({fault, "table",
                                name + " has no primary key" +
                                    (inCluster ? ": changes are slow on the other nodes"
                                               : ": a record saved twice is there twice"),
                                "ALTER TABLE " + name + " ADD PRIMARY KEY (...)"});
        }
        right += findings.size() == before;
    }
    if (right > 0 || tables.empty()) {
        findings.push_back({Ok, "tables",
                            tables.empty()
                                ? "none yet"
                                : std::to_string(right) + " of " + std::to_string(tables.size()) +
                                      " transactional and with a primary key",
                            ""});
    }
    return findings;
}

namespace {

std::string valueOf(const ClusterStatus& status, const std::string& variable)
{
    const auto found = status.find(variable);
    return found != status.end() ? found->second : "";
}

} // namespace

bool isInCluster(const ClusterStatus& status)
{
    return !valueOf(status, "wsrep_provider_name").empty();
}

Findings clusterFindings(const ClusterStatus& status)
{
    if (!isInCluster(status)) {
        return {{Ok, "cluster", "no cluster", ""}};
    }
    Findings findings;
    const auto add = [&](const char* subject, const char* variable, Severity severity,
                         const char* meaning, const char* advice) {
        findings.push_back({severity, subject,
                            std::string(variable) + ' ' + valueOf(status, variable) + meaning,
                            advice});
    };

    if (valueOf(status, "wsrep_ready") == "ON") {
        add("cluster", "wsrep_ready", Ok, "", "");
    } else {
        add("cluster", "wsrep_ready", Bad, ": this node refuses statements on tables (1047)",
            "wait until it has joined; its log says what it waits for");
    }

    if (valueOf(status, "wsrep_cluster_status") == "Primary") {
        add("cluster", "wsrep_cluster_status", Ok, "", "");
    } else {
        add("cluster", "wsrep_cluster_status", Bad, ": too few nodes see each other",
            "bring back the other nodes or the network; if they are lost for good, on the node "
            "that is ahead: SET GLOBAL wsrep_provider_options='pc.bootstrap=YES'");
    }

    const std::string size = valueOf(status, "wsrep_cluster_size");
    if (size == "0") {
        add("cluster", "wsrep_cluster_size", Bad, ": this node has left the cluster",
            "start its server again; its log says why it left");
    } else if (size == "1") {
        add("cluster", "wsrep_cluster_size", Note, ": no other node has the data",
            "start the other nodes");
    } else if (size == "2") {
        add("cluster", "wsrep_cluster_size", Note, ": when one fails the other may stop too",
            "add a third node, or an arbitrator (garbd)");
    } else {
        add("cluster", "wsrep_cluster_size", Ok, "", "");
    }

    const std::string state = valueOf(status, "wsrep_local_state_comment");
    if (state == "Synced") {
        add("cluster", "wsrep_local_state_comment", Ok, "", "");
    } else if (state.starts_with("Donor")) {
        add("cluster", "wsrep_local_state_comment", Note, ": it falls behind while it does so",
            "wait until the other node has joined");
    } else {
        add("cluster", "wsrep_local_state_comment", Bad, ": this node has not all the data",
            "wait until it is Synced; its log says what it waits for");
    }
    return findings;
}

} // namespace doctor
