#pragma once

#include "Finding.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string_view>

/// What the values that a server tells mean for a program on the library. Nothing here asks the
/// server, so every judgement can be tested with values alone.
namespace doctor {

/// Number and text of a failure; 0 for none.
struct Failure {
    int number = 0;
    std::string text;
};

/// A connection without a database: opened, or why not. The login is the process's own name;
/// socketRight, whether the socket itself was found in order.
Finding connectionFinding(const Failure& failure, const std::string& login, bool socketRight);

/// The account that the server took the login for, as CURRENT_USER() tells it.
Finding accountFinding(const std::string& login, const std::string& account);

/// The database "mysql", which the library opens first: opened, or why not.
Finding systemDatabaseFinding(const Failure& failure, const std::string& account);

/// A program's own database, likewise, and the character set that its new tables have.
Finding databaseFinding(const std::string& database, const Failure& failure,
                        const std::string& account, const std::string& characterSet);

Finding versionFinding(const std::string& version);

/// The server's global sql_mode, and what the library made of it in a session of its own.
Findings sqlModeFindings(const std::string& global, const std::string& session);

/// The server's character set, and those of a session of the library's.
Finding characterSetFinding(const std::string& server, const std::string& client,
                            const std::string& connection, const std::string& results);

/// max_allowed_packet in bytes.
Finding packetFinding(std::uint64_t bytes);

/// The rows of SHOW GRANTS.
Finding fileFinding(const std::vector<std::string>& grants, const std::string& account);

/// Whether secure_file_priv, null for NULL, leaves every place to data files.
bool readsEveryPlace(const std::optional<std::string>& secureFilePriv, const std::string& version);

Finding secureFilePrivFinding(const std::optional<std::string>& secureFilePriv,
                              const std::string& version);

/// Whether the server could read a file that the program made in the directory for all to read.
Finding readingFinding(const std::string& directory, bool readable);

struct TableState {
    std::string name;
    std::string engine; ///< empty if the server cannot open the table
    bool transactional = false;
    bool primaryKey = false;
};

/// One finding for each fault of a table, and one for the tables without a fault. In a cluster a
/// fault is worse.
Findings tableFindings(const std::string& database, const std::vector<TableState>& tables,
                       bool inCluster);

/// The server's status variables wsrep_*, by name.
using ClusterStatus = std::map<std::string, std::string>;

bool isInCluster(const ClusterStatus& status);
Findings clusterFindings(const ClusterStatus& status);

} // namespace doctor
