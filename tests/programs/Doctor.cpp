#include "Checks.h"
#include "ServerTest.h"
#include "Socket.h"

#include <KestroTableMap>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace doctor;
using enum Severity;

void expectFinding(const Finding& finding, Severity severity, const std::string& text,
                   const std::string& advice)
{
    EXPECT_EQ(finding.severity, severity) << finding.subject << ' ' << finding.text;
    EXPECT_NE(finding.text.find(text), std::string::npos) << finding.text;
    EXPECT_NE(finding.advice.find(advice), std::string::npos) << finding.text << finding.advice;
    EXPECT_EQ(finding.advice.empty(), advice.empty()) << finding.text << finding.advice;
}

// What the private server cannot be brought to, or not soon.
TEST(Checks, JudgeValues)
{
    const std::string proxy = "a proxy";
    const Table<Finding, Severity, std::string, std::string> rows = {
        {connectionFinding({1698, "denied"}, "o'brien", true), Bad, "1698, denied",
         "CREATE USER 'o''brien'@'localhost' IDENTIFIED VIA unix_socket"},
        {connectionFinding({1040, "many"}, "a", true), Bad, "1040", "SHOW PROCESSLIST"},
        {connectionFinding({2013, "lost"}, "a", true), Bad, "2013", "overloaded"},
        {connectionFinding({1129, "blocked"}, "a", true), Bad, "1129, blocked", ""},
        {databaseFinding("a`b", {1049, "none"}, "a@b", ""), Bad, "1049", "DATABASE `a``b`"},
        {databaseFinding("d", {1044, "no"}, "a@b@%", ""), Bad, "1044", "ON `d`.* TO 'a@b'@'%'"},
        {versionFinding("10.6.18-MariaDB"), Note, "measured with MariaDB 10.11", "10.11 or later"},
        {versionFinding("11.0.36"), Note, "measured with MariaDB 10.11", "10.11 or later"},
        {sqlModeFindings("", "ANSI_QUOTES").at(0), Bad, "ANSI_QUOTES", proxy},
        {sqlModeFindings("", "NO_BACKSLASH_ESCAPES").at(0), Bad, "NO_BACKSLASH_ESCAPES", proxy},
        {sqlModeFindings("", "EMPTY_STRING_IS_NULL").at(0), Bad, "EMPTY_STRING_IS_NULL", proxy},
        {characterSetFinding("utf8mb4", "utf8mb4", "latin1", "utf8mb4"), Bad, "latin1", proxy},
        {packetFinding(2'097'152), Ok, "2097150", ""},
        {packetFinding(2'097'151), Bad, "2097149", "max_allowed_packet=16777216"},
        {fileFinding({"GRANT FILE ON `d`.* TO `a`@`b`", "GRANT PROFILE ON *.* TO `a`@`b`"}, "a@b"),
         Note, "not granted", "TO 'a'@'b'"},
        {secureFilePrivFinding(std::nullopt, "10.11-MariaDB"), Ok, "anywhere", ""},
        {secureFilePrivFinding(std::nullopt, "8.0.36"), Note, "no data file", "to a directory"},
        {readingFinding("/home/a", false), Note, "/home/a", "ProtectHome"},
    };
    for (const auto& [finding, severity, text, advice] : rows) {
        expectFinding(finding, severity, text, advice);
    }
}

TEST(Checks, JudgeAClusterAndItsTables)
{
    const ClusterStatus healthy = {{"wsrep_provider_name", "Galera"},
                                   {"wsrep_ready", "ON"},
                                   {"wsrep_cluster_status", "Primary"},
                                   {"wsrep_cluster_size", "3"},
                                   {"wsrep_local_state_comment", "Synced"}};
    const Table<std::string, std::string, Severity, std::string> rows = {
        {"wsrep_ready", "OFF", Bad, "wait"},
        {"wsrep_cluster_status", "non-Primary", Bad, "pc.bootstrap"},
        {"wsrep_cluster_size", "1", Note, "start the other"},
        {"wsrep_cluster_size", "2", Note, "third"},
        {"wsrep_cluster_size", "0", Bad, "start"},
        {"wsrep_local_state_comment", "Donor/Desynced", Note, "wait"},
        {"wsrep_local_state_comment", "Inconsistent", Bad, "Synced"},
    };
    for (const auto& [variable, value, severity, advice] : rows) {
        ClusterStatus status = healthy;
        status[variable] = value;
        int about = 0;
        for (const Finding& finding : clusterFindings(status)) {
            const bool other = finding.text.find(variable) == std::string::npos;
            expectFinding(finding, other ? Ok : severity, other ? "" : variable + ' ' + value,
                          other ? "" : advice);
            about += other ? 0 : 1;
        }
        EXPECT_EQ(about, 1) << variable;
    }

    const std::vector<TableState> tables = {{"m", "MyISAM", false, true},
                                            {"k", "InnoDB", true, false}};
    for (const bool inCluster : {false, true}) {
        const Findings findings = tableFindings("d", tables, inCluster);
        ASSERT_EQ(findings.size(), 2U);
        expectFinding(findings[0], inCluster ? Bad : Note, inCluster ? "one node" : "ROLLBACK",
                      "`d`.`m` ENGINE=InnoDB");
        expectFinding(findings[1], inCluster ? Bad : Note, inCluster ? "slow" : "twice",
                      "`d`.`k` ADD PRIMARY KEY");
    }
}

class Doctor : public ServerTest {
protected:
    const std::string socketPath = environment("MYSQL_UNIX_PORT");
    const std::string login =
        value("SELECT CONCAT(\"'\", REPLACE(CURRENT_USER(), '@', \"'@'\"), \"'\")");
    // For files that the tests make; gone with the server.
    const std::string directory = std::filesystem::path(socketPath).parent_path() / "doctor";
    const std::string dead = directory + "/dead"; // a socket on which nobody listens

    Doctor()
    {
        std::filesystem::create_directory(directory);
        const int end = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{AF_UNIX, {}};
        dead.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(end, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        close(end);
    }
    ~Doctor() override { std::filesystem::remove_all(directory); }

    // Runs a line of the shell, and looks for each of the texts, between which are bars, in what it
    // writes.
    static std::string expectTold(const std::string& line, int status, const std::string& texts)
    {
        std::string output;
        FILE* const pipe = popen(("exec 2>&1; " + line).c_str(), "r");
        for (int c = 0; (c = std::fgetc(pipe)) != EOF;) {
            output += static_cast<char>(c);
        }
        EXPECT_EQ(WEXITSTATUS(pclose(pipe)), status) << line << '\n' << output;
        std::list<std::string> told;
        string2list(told, texts, '|', true);
        for (const std::string& text : told) {
            EXPECT_NE(output.find(text), std::string::npos) << text << "\nnot in:\n" << output;
        }
        return output;
    }
};

TEST_F(Doctor, TellsWhatIsWrongWithAServerAndADatabase)
{
    db_enable_multiple_statements_per_query(link.get());
    const std::string all = "GRANT ALL PRIVILEGES ON *.* TO " + login + " WITH GRANT OPTION";
    const std::string mode = "SET GLOBAL sql_mode=";
    const std::string engines = "CREATE TABLE a (id INT PRIMARY KEY) ENGINE=";
    const std::string name = "`" + database + "`";
    const Table<std::string, std::string, int, std::string> rows = {
        // what is done to the server and undone, the exit status, what is told
        {"SET PASSWORD = PASSWORD('secret')", "SET PASSWORD = ''", 1,
         "bad   connection          1045, |CREATE USER " + login + "|note  server "},
        {"REVOKE ALL PRIVILEGES, GRANT OPTION FROM " + login, all, 1,
         "bad   database mysql      |1044, |GRANT SELECT ON mysql.time_zone_name TO " + login +
             "|note  FILE privilege      |GRANT FILE ON *.* TO " + login +
             "|bad   database            1044, |ON " + name + ".* TO " + login},
        {"CREATE ROLE loader; GRANT FILE ON *.* TO loader; GRANT loader TO " + login +
             "; SET DEFAULT ROLE loader FOR " + login + "; REVOKE FILE ON *.* FROM " + login,
         "SET DEFAULT ROLE NONE FOR " + login + "; DROP ROLE loader; " + all, 0,
         "ok    FILE privilege "},
        {"RENAME USER " + login + " TO parked; CREATE USER ''@localhost",
         "DROP USER ''@localhost; RENAME USER parked@'%' TO " + login, 1,
         "note  account             |CREATE USER " + login},
        {mode + "''", mode + "DEFAULT", 0,
         "note  sql_mode            not strict|STRICT_TRANS_TABLES"},
        {mode + "'ANSI,STRICT_ALL_TABLES'", mode + "DEFAULT", 0,
         "note  sql_mode            the library's sessions leave out the server's ANSI, "
         "ANSI_QUOTES\n"},
        {"SET GLOBAL character_set_server=latin1", "SET GLOBAL character_set_server=utf8mb4", 0,
         "note  character sets      server latin1|CHARACTER SET utf8mb4"},
        {"SET GLOBAL max_allowed_packet=1048576", "SET GLOBAL max_allowed_packet=DEFAULT", 1,
         "bad   max_allowed_packet  a statement has at most 1048574 bytes|packet=16777216"},
        {"ALTER DATABASE " + database + " CHARACTER SET latin1",
         "ALTER DATABASE " + database + " CHARACTER SET utf8mb4", 0,
         "note  database            " + name + "|hold latin1|CHARACTER SET utf8mb4"},
        {engines + "MyISAM; CREATE TABLE b (id INT NOT NULL UNIQUE) ENGINE=MEMORY; CREATE TABLE "
                   "`c\033[1m` (id INT UNIQUE) ENGINE=InnoDB; CREATE VIEW v AS SELECT 1",
         "DROP TABLE a, b, `c\033[1m`; DROP VIEW v", 0,
         "note  table               " + name +
             ".`a` has the engine MyISAM|`b` has the engine "
             "MEMORY|`c?[1m` has no primary key|`a` ENGINE=InnoDB"},
        {engines + "InnoDB", "DROP TABLE a", 0,
         "ok    tables              1 of 1 transactional and with a primary key"},
    };
    const std::string doctor = DOCTOR " " + database;
    const std::string healthy = expectTold(doctor, 0, "");
    for (const char* word : {"note", "bad", "->"}) {
        EXPECT_EQ(healthy.find(word), std::string::npos) << healthy;
    }
    for (const auto& [before, after, status, told] : rows) {
        run(before);
        EXPECT_EQ(expectTold(doctor, status, told).find('\033'), std::string::npos) << before;
        run(after);
    }
    EXPECT_EQ(expectTold(doctor, 0, ""), healthy);
}

TEST_F(Doctor, TellsWhatIsWrongAroundIt)
{
    std::ofstream(directory + "/file") << "no socket";
    run("CREATE TABLE a (id INT PRIMARY KEY) ENGINE=MyISAM");
    const std::string definition = value("SELECT @@datadir") + database + "/a.frm";
    std::filesystem::copy_file(definition, directory + "/a.frm");
    std::ofstream(definition) << "no table";
    run("FLUSH TABLES");
    const std::string at = "MYSQL_UNIX_PORT=" + directory;
    const Table<std::string, int, std::string> rows = {
        // a line of the shell, the exit status, what is told
        {at + "/none " DOCTOR, 1,
         "bad   socket              " + directory +
             "/none, named by MYSQL_UNIX_PORT: No such file|systemctl start|bad   connection     "
             "     2002, |put the socket right|note  server "},
        {at + "/file " DOCTOR, 1, "bad   socket |another kind of file|systemctl start"},
        {at + std::string(150, 'x') + " " DOCTOR, 1, "bad   socket |at most 107| 2001, "},
        {at + "/dead " DOCTOR, 1,
         "ok    socket |bad   connection          2002, |nobody listens there: start the server"},
        // Without a name it depends on the machine whether somebody listens, and not where.
        {"test \"$(MYSQL_UNIX_PORT= " DOCTOR ")\" = \"$(env -u MYSQL_UNIX_PORT " DOCTOR ")\"", 0,
         ""},
        {DOCTOR " nosuch", 1, "bad   database            1049, |CREATE DATABASE `nosuch`"},
        {DOCTOR " " + database, 1,
         "bad   table               `" + database + "`.`a` cannot be opened|CHECK TABLE"},
        {"TMPDIR=" + directory + "/none " DOCTOR, 0, "note  data files          not tried|TMPDIR"},
        {"KESTRO_SERVER_OPTIONS=--secure-file-priv=" + directory + " " PRIVATE_SERVER " " DOCTOR, 0,
         "note  secure_file_priv    data files are loaded from below " + directory +
             "|write data files there"},
        {DOCTOR " --colour", 2, "no such option: --colour|Usage:"},
        {DOCTOR " ''", 2, "without a name|Usage:"},
        {DOCTOR " a b", 2, "more than one argument|Usage:"},
        {DOCTOR " >/dev/full", 1, "cannot be written"},
        {DOCTOR " --help", 0, "Usage:"},
        // On a terminal.
        {"script -qec " DOCTOR " /dev/null", 0, "\033[32mok\033[0m    socket "},
        {"NO_COLOR=1 script -qec " DOCTOR " /dev/null", 0, "ok    socket "},
    };
    for (const auto& [line, status, told] : rows) {
        expectTold(line, status, told);
    }
    std::filesystem::rename(directory + "/a.frm", definition);
}

// Root may enter everything, so that another user looks in its place.
TEST_F(Doctor, TellsASocketThatTheUserMayNotUse)
{
    const uid_t user = geteuid();
    const std::string above = std::filesystem::path(directory).parent_path();
    setenv("MYSQL_UNIX_PORT", dead.c_str(), 1);
    chmod(above.c_str(), 0711);
    const Table<std::string, mode_t, Severity, std::string, std::string> rows = {
        {dead, 0400, Bad, "may not write", "chmod"},
        {dead, 0777, Ok, dead, ""},
        {directory, 0, Bad, "Permission denied", "enter the directories"}};
    for (const auto& [path, mode, severity, text, advice] : rows) {
        chmod(path.c_str(), mode);
        EXPECT_EQ(seteuid(user == 0 ? 65534 : user), 0); // nobody
        const Finding finding = socketFinding();
        EXPECT_EQ(seteuid(user), 0);
        expectFinding(finding, severity, text, advice);
    }
    chmod(directory.c_str(), 0755);
    chmod(above.c_str(), 0700);
    setenv("MYSQL_UNIX_PORT", socketPath.c_str(), 1);
}

} // namespace
