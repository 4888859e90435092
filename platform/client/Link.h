#pragma once

#include <cstdint>
#include <mysql.h>
#include <string>
#include <sys/types.h>

namespace client {

struct Result;

/// Number and text of a failure.
struct Failure {
    int number = 0;
    std::string text;
};

/// What a connection handle points at: one link to the server and what was promised for it.
struct Link {
    MYSQL* mysql;
    pid_t owner; ///< the process that opened it; another one is a child after fork
    bool multipleStatements;
    unsigned long maxAllowedPacket; ///< the server's limit, bytes
    Result* stream = nullptr;       ///< the result whose rows still stand on the link, or null
    Failure failure;
    std::uint64_t affectedRows = 0;
    std::uint64_t lastId = 0;

    Link(MYSQL* opened, bool multipleStatementsOn, unsigned long packetLimit);

    /// Keeps the Connector's number and text as the link's failure; returns 1, what a failed call
    /// returns.
    int fail();
    /// Keeps a failure of this layer's own; returns 1.
    int fail(int number, std::string text);
    /// The failure of a call while a streamed result stands on the link; returns 1.
    int failOutOfSync();
    /// Keeps what the statement that just ended leaves behind: its rows and the id it generated.
    void ended(std::uint64_t rows);

    /// Why no statement may be sent on the link now, or null.
    const char* unsafeSession() const;
};

/// The failure kept for this thread in the place of a link's.
Failure& failureWithoutLink();
/// The failure of a call on a null handle; returns 1.
int failNotConnected();

} // namespace client
