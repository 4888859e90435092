#pragma once

#include <cstdint>
#include <mysql.h>
#include <string>

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
    unsigned generation; ///< of the process that opened it, see ofParent()
    bool multipleStatements;
    unsigned long maxAllowedPacket; ///< the server's limit, bytes
    bool sessionKnown = true;       ///< nothing may have changed the session since it was looked at
    Result* stream = nullptr;       ///< the result whose rows still stand on the link, or null
    Failure failure;
    std::uint64_t affectedRows = 0;
    std::uint64_t lastId = 0;

    Link(MYSQL* opened, bool multipleStatementsOn, unsigned long packetLimit);

    /// Keeps the Connector's number and text as the link's failure; returns 1, what a failed call
    /// returns. The session counts as unknown: the server does not tell what a statement changed
    /// before it failed.
    int fail();
    /// Keeps a failure of this layer's own; returns 1.
    int fail(int number, std::string text);
    /// The failure of a call while a streamed result stands on the link; returns 1.
    int failOutOfSync();
    /// Keeps what the statement that just ended leaves behind: its rows and the id it generated.
    void ended(std::uint64_t rows);

    /// 0 if escaped values are safe in the session as it is now; asks the server if the session may
    /// have changed.
    int checkSession();
    /// Whether this process is a child of the one that opened the link: its socket is not ours.
    bool ofParent() const;
    /// Lets go of the socket without a word to the server.
    void detachSocket() const;
};

/// The failure kept for this thread in the place of a link's.
Failure& failureWithoutLink();
/// The failure of a call on a null handle; returns 1.
int failNotConnected();

} // namespace client
