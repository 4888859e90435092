#pragma once

#include "Finding.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string_view>

/// Judge the values that a server returns. Nothing here asks the server, so every judgement can be
/// tested with values alone.
namespace doctor {

/// Number and text of a failure; 0 for none.
struct Failure {
    int number = 0;
    std::string text;
};

/// A connection without a database: opened, or why not. `login` is the process's own name;
/// `socketRight` says whether the check of the socket passed.
Finding connectionFinding(const Failure& failure, const std::string& login, bool socketRight);

/// The account that the server chose for the login, as CURRENT_USER() returns it.
Finding accountFinding(const std::string& login, const std::string& account);

/// The database "mysql", which the library opens first: opened, or why not.
Finding systemDatabaseFinding(const Failure& failure, const std::string& account);

/// A program's own database, likewise, and the character set that its new tables have.
Finding databaseFinding(const std::string& database, const Failure& failure,
                        const std::string& account, const std::string& characterSet);

Finding versionFinding(const std::string& version);

/// The server's global sql_mode, and the sql_mode of a session of the library.
Findings sqlModeFindings(const std::string& global, const std::string& session);

/// The server's character set, and those of a session of the library's.
Finding characterSetFinding(const std::string& server, const std::string& client,
                            const std::string& connection, const std::string& results);

/// max_allowed_packet in bytes.
Finding packetFinding(std::uint64_t bytes);

/// The rows of SHOW GRANTS.
Finding fileFinding(const std::vector<std::string>& grants, const std::string& account);

/// Whether secure_file_priv (null for NULL) allows data files in every directory.
bool readsEveryPlace(const std::optional<std::string>& secureFilePriv, const std::string& version);

Finding secureFilePrivFinding(const std::optional<std::string>& secureFilePriv,
                              const std::string& version);

/// Whether the server could read a file that everybody may read and the program made in the
/// directory.
Finding readingFinding(const std::string& directory, bool readable);

struct TableState {
    std::string name;
    std::string engine; ///< empty if the server cannot open the table
    bool transactional = false;
    bool primaryKey = false;
};

/// One finding for each fault of a table, and one for all tables without a fault. Faults are more
/// severe in a cluster.
Findings tableFindings(const std::string& database, const std::vector<TableState>& tables,
                       bool inCluster);

/// The server's status variables wsrep_*, by name.
using ClusterStatus = std::map<std::string, std::string>;

bool isInCluster(const ClusterStatus& status);
Findings clusterFindings(const ClusterStatus& status);

} // namespace doctor
