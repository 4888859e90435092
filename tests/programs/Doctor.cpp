#include "Checks.h"
#include "ServerTest.h"
#include "Socket.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock-matchers.h>
#include <sys/stat.h>
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

// The one finding that is not ok if one variable of a healthy cluster has this value.
Finding clusterFinding(const std::string& variable, const std::string& value)
{
    ClusterStatus status = {{"wsrep_provider_name", "Galera"},
                            {"wsrep_ready", "ON"},
                            {"wsrep_cluster_status", "Primary"},
                            {"wsrep_cluster_size", "3"},
                            {"wsrep_local_state_comment", "Synced"}};
    status[variable] = value;
    Findings findings = clusterFindings(status);
    std::erase_if(findings, [](const Finding& finding) { return finding.severity == Ok; });
    EXPECT_EQ(findings.size(), 1U) << variable;
    EXPECT_EQ(findings.at(0).text.find(variable + ' ' + value), 0U) << findings.at(0).text;
    return findings.at(0);
}

// States that a private server does not reach, or only slowly.
TEST(Checks, JudgeValues)
{
    const Findings unsafe =
        sqlModeFindings("", "ANSI_QUOTES,EMPTY_STRING_IS_NULL,NO_BACKSLASH_ESCAPES");
    const Findings tables =
        tableFindings("d", {{"m", "MyISAM", false, true}, {"k", "InnoDB", true, false}}, true);
    const Table<Finding, Severity, std::string, std::string> rows = {
        {connectionFinding({1698, "denied"}, "o'brien", true), Bad, "1698, denied",
         "CREATE USER 'o''brien'@'localhost' IDENTIFIED VIA unix_socket"},
        {connectionFinding({1040, "many"}, "a", true), Bad, "1040", "SHOW PROCESSLIST"},
        {connectionFinding({2013, "lost"}, "a", true), Bad, "2013", "overloaded"},
        {connectionFinding({1129, "blocked"}, "a", true), Bad, "1129, blocked", ""},
        {databaseFinding("a`b", {1044, ""}, "a@b@%", ""), Bad, "1044", "ON `a``b`.* TO 'a@b'@'%'"},
        {versionFinding("10.6.18-MariaDB"), Note, "measured with MariaDB 10.11", "10.11 or later"},
        {versionFinding("11.0.36"), Note, "measured with MariaDB 10.11", "10.11 or later"},
        {unsafe.at(0), Bad, "ANSI_QUOTES, EMPTY_STRING_IS_NULL, NO_BACKSLASH_ESCAPES:", "a proxy"},
        {sqlModeFindings("", "STRICT_ALL_TABLES").at(0), Ok, "strict", ""},
        {characterSetFinding("utf8mb4", "utf8mb4", "latin1", "utf8mb4"), Bad, "latin1", "a proxy"},
        {packetFinding(2'097'152), Ok, "2097150", ""},
        {packetFinding(2'097'151), Bad, "2097149", "max_allowed_packet=16777216"},
        {fileFinding({"GRANT FILE ON `d`.* TO `a`@`b`", "GRANT PROFILE ON *.* TO `a`@`b`"}, "a@b"),
         Note, "not granted", "TO 'a'@'b'"},
        {secureFilePrivFinding(std::nullopt, "8.0.36"), Note, "no data file", "to a directory"},
        {readingFinding("/home/a", false), Note, "/home/a", "ProtectHome"},
        {tables.at(0), Bad, "stay on one node", "`d`.`m` ENGINE=InnoDB"},
        {tables.at(1), Bad, "slow", "`d`.`k` ADD PRIMARY KEY"},
        {clusterFinding("wsrep_ready", "OFF"), Bad, "1047", "wait"},
        {clusterFinding("wsrep_cluster_status", "non-Primary"), Bad, "too few", "pc.bootstrap"},
        {clusterFinding("wsrep_cluster_size", "2"), Note, "may stop too", "third"},
        {clusterFinding("wsrep_cluster_size", "1"), Note, "no other node", "start the other"},
        {clusterFinding("wsrep_cluster_size", "0"), Bad, "left the cluster", "start its server"},
        {clusterFinding("wsrep_local_state_comment", "Donor/Desynced"), Note, "behind", "wait"},
        {clusterFinding("wsrep_local_state_comment", "Inconsistent"), Bad, "not all", "Synced"},
    };
    for (const auto& [finding, severity, text, advice] : rows) {
        expectFinding(finding, severity, text, advice);
    }
}

class Doctor : public ServerTest {
protected:
    using Texts = std::vector<std::string>;

    const std::string socketPath = environment("MYSQL_UNIX_PORT");
    const std::string login =
        value("SELECT CONCAT(\"'\", REPLACE(CURRENT_USER(), '@', \"'@'\"), \"'\")");
    const std::string files = directory + "/doctor";
    const std::string dead = files + "/dead"; // a socket on which nobody listens

    Doctor()
    {
        std::filesystem::create_directory(files);
        EXPECT_TRUE(mknod(dead.c_str(), S_IFSOCK | 0700, 0) == 0 || errno == EEXIST);
    }

    // Runs a line of the shell, which must end with the status and write each of the texts.
    static std::string expectTold(const std::string& line, int status, const Texts& texts)
    {
        std::string output;
        FILE* const pipe = popen(("exec 2>&1; " + line).c_str(), "r");
        for (int c = 0; (c = std::fgetc(pipe)) != EOF;) {
            output += static_cast<char>(c);
        }
        EXPECT_EQ(WEXITSTATUS(pclose(pipe)), status) << line << '\n' << output;
        for (const std::string& text : texts) {
            EXPECT_NE(output.find(text), std::string::npos) << text << "\nnot in:\n" << output;
        }
        return output;
    }
};

TEST_F(Doctor, TellsWhatIsWrongWithAServerAndADatabase)
{
    db_enable_multiple_statements_per_query(link.get());
    const std::string doctor = DOCTOR " " + database;
    const std::string healthy = expectTold(doctor, 0, {});
    EXPECT_THAT(healthy, testing::Not(testing::ContainsRegex("note|bad|->")));
    const auto expectToldAfter = [&](const std::string& change, const std::string& undo, int status,
                                     const Texts& texts) {
        run(change);
        EXPECT_EQ(expectTold(doctor, status, texts).find('\033'), std::string::npos) << change;
        run(undo);
    };
    const std::string all = "GRANT ALL PRIVILEGES ON *.* TO " + login + " WITH GRANT OPTION";
    const std::string name = "`" + database + "`";
    expectToldAfter("SET PASSWORD = PASSWORD('secret')", "SET PASSWORD = ''", 1,
                    {"bad   connection          1045, ", "CREATE USER " + login, "note  server "});
    expectToldAfter("REVOKE ALL PRIVILEGES, GRANT OPTION FROM " + login, all, 1,
                    {"bad   database mysql      ",
                     "GRANT SELECT ON mysql.time_zone_name TO " + login,
                     "note  FILE privilege      ", "GRANT FILE ON *.* TO " + login,
                     "bad   database            1044, ", "ON " + name + ".* TO " + login});
    expectToldAfter("CREATE ROLE loader; GRANT FILE ON *.* TO loader; GRANT loader TO " + login +
                        "; SET DEFAULT ROLE loader FOR " + login + "; REVOKE FILE ON *.* FROM " +
                        login,
                    "SET DEFAULT ROLE NONE FOR " + login + "; DROP ROLE loader; " + all, 0,
                    {"ok    FILE privilege "});
    expectToldAfter("RENAME USER " + login + " TO parked; CREATE USER ''@localhost",
                    "DROP USER ''@localhost; RENAME USER parked@'%' TO " + login, 1,
                    {"note  account             ", "CREATE USER " + login});
    expectToldAfter(
        "SET GLOBAL sql_mode='ANSI', character_set_server=latin1, max_allowed_packet=1048576",
        "SET GLOBAL sql_mode=DEFAULT, character_set_server=utf8mb4, max_allowed_packet=DEFAULT", 1,
        {"note  sql_mode            the library's", "the server's ANSI, ANSI_QUOTES\n",
         "note  sql_mode            not strict", "STRICT_TRANS_TABLES",
         "note  character sets      server latin1", "... CHARACTER SET utf8mb4",
         "bad   max_allowed_packet  a statement has at most 1048574 bytes", "packet=16777216"});
    const std::string setCharacters = "ALTER DATABASE " + database + " CHARACTER SET ";
    expectToldAfter(
        setCharacters + "latin1; CREATE TABLE a (id INT PRIMARY KEY) ENGINE=MyISAM; CREATE TABLE b "
                        "(id INT NOT NULL UNIQUE) ENGINE=MEMORY; CREATE TABLE `c\033[1m` (id INT "
                        "UNIQUE); CREATE TABLE d (id INT PRIMARY KEY); CREATE VIEW v AS SELECT 1",
        setCharacters + "utf8mb4; DROP TABLE a, b, `c\033[1m`, d; DROP VIEW v", 0,
        {"note  database            " + name, "hold latin1", "CHARACTER SET utf8mb4",
         "note  table               " + name + ".`a` has the engine MyISAM: ROLLBACK",
         "`a` ENGINE=InnoDB", "`b` has the engine MEMORY", "`c [1m` has no primary key: a record",
         "ok    tables              1 of 4 transactional and with a primary key"});
    EXPECT_EQ(expectTold(doctor, 0, {}), healthy);
}

TEST_F(Doctor, TellsWhatIsWrongAroundIt)
{
    const std::string at = "MYSQL_UNIX_PORT=" + files;
    expectTold(at + "/none " DOCTOR, 1,
               {"bad   socket ", files + "/none, named by MYSQL_UNIX_PORT: No such file",
                "systemctl start", "bad   connection          2002, ", "put the socket right"});
    std::ofstream(files + "/file") << "no socket";
    expectTold(at + "/file " DOCTOR, 1, {"bad   socket ", "another kind of file", "systemctl"});
    expectTold(at + std::string(150, 'x') + " " DOCTOR, 1, {"bad   socket ", "107", " 2001, "});
    expectTold(at + "/dead " DOCTOR, 1, {"ok    socket ", " 2002, ", "nobody listens there"});
    // An empty name counts as none. What is told then depends on the machine.
    expectTold("test \"$(MYSQL_UNIX_PORT= " DOCTOR ")\" = \"$(unset MYSQL_UNIX_PORT; " DOCTOR ")\"",
               0, {});

    expectTold(DOCTOR " nosuch", 1, {"bad   database            1049, ", "DATABASE `nosuch`"});
    std::ofstream(value("SELECT @@datadir") + database + "/a.frm") << "no table";
    expectTold(DOCTOR " " + database, 1,
               {"`" + database + "`.`a` cannot be opened", "CHECK TABLE"});
    expectTold("TMPDIR=" + files + "/none " DOCTOR, 0,
               {"note  data files          not tried", "TMPDIR"});
    expectTold("KESTRO_SERVER_OPTIONS=--secure-file-priv=" + files + " " PRIVATE_SERVER " " DOCTOR,
               0,
               {"note  secure_file_priv    data files are loaded from below " + files, "write "});

    expectTold(DOCTOR " --colour", 2, {"no such option: --colour", "Usage:"});
    expectTold(DOCTOR " ''", 2, {"without a name", "Usage:"});
    expectTold(DOCTOR " a b", 2, {"more than one argument", "Usage:"});
    expectTold(DOCTOR " >/dev/full", 1, {"cannot be written"});
    expectTold(DOCTOR " --help", 0, {"Usage:"});
    // On a terminal.
    expectTold("script -qec " DOCTOR " /dev/null", 0, {"\033[32mok\033[0m    socket "});
    expectTold("NO_COLOR=1 script -qec " DOCTOR " /dev/null", 0, {"ok    socket "});
}

// Root may enter every directory, so the test becomes another user for a moment.
TEST_F(Doctor, TellsASocketThatTheUserMayNotUse)
{
    const uid_t user = geteuid();
    setenv("MYSQL_UNIX_PORT", dead.c_str(), 1);
    chmod(directory.c_str(), 0711);
    const Table<std::string, mode_t, Severity, std::string, std::string> rows = {
        {dead, 0400, Bad, "may not write", "chmod"},
        {dead, 0777, Ok, dead, ""},
        {files, 0, Bad, "Permission denied", "enter the directories"}};
    for (const auto& [path, mode, severity, text, advice] : rows) {
        chmod(path.c_str(), mode);
        EXPECT_EQ(seteuid(user == 0 ? 65534 : user), 0); // nobody
        const Finding finding = socketFinding();
        EXPECT_EQ(seteuid(user), 0);
        expectFinding(finding, severity, text, advice);
    }
    chmod(files.c_str(), 0700);
    setenv("MYSQL_UNIX_PORT", socketPath.c_str(), 1);
}

} // namespace
