#pragma once

#include <cstdint>
#include <mysql.h>
#include <string>
#include <string_view>

namespace client {

struct Result;

/// Number and text of a failure.
struct Failure {
    int number = 0;
    std::string text;
};

/// What a connection handle points at: one link to the server and what was promised for it. When
/// the link is lost, another one takes its place.
struct Link {
    MYSQL* mysql = nullptr;
    std::string database;      ///< that is selected
    const unsigned generation; ///< of the process that opened it, see ofParent()
    bool multipleStatements;
    unsigned long maxAllowedPacket = 0; ///< the server's limit, bytes
    bool sessionKnown = true;           ///< nothing may have changed what escaped values mean since
                                        ///< it was looked at
    bool sessionFresh = true;           ///< nothing outside a transaction was left in the session
    bool autocommitted = true;          ///< no transaction was open after the last answer, and
                                        ///< autocommit was on
    bool lossTold = false;              ///< the link is lost, and a failure has said so
    Result* stream = nullptr;           ///< the result whose rows still stand on the link, or null
    Failure failure;
    std::uint64_t affectedRows = 0;
    std::uint64_t lastId = 0;

    /// A link that is not open yet.
    Link(const char* databaseName, bool multipleStatementsOn);
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;
    ~Link();

    /// Opens the link, closing the one that was lost if there is one, with a fresh session. Returns
    /// 0, or 1 and keeps the reason as the link's failure.
    int open();

    /// Sends a text. Returns 0, and then the answer is to be read; or 1, and then the server runs
    /// nothing of it: a result stands on the link, the text is too long, escaped values are not
    /// safe in the session any more, or the link was lost. A lost link is replaced: at once if
    /// neither its session nor the text makes a difference, else the call fails with 2006 and the
    /// next one does it.
    int send(std::string_view text);
    /// Lets one text carry several statements; returns 0 or 1 likewise.
    int enableMultipleStatements();

    /// Keeps the Connector's number and text as the link's failure; returns 1, what a failed call
    /// returns. The session counts as unknown: the server does not tell what a statement changed
    /// before it failed.
    int fail();
    /// Keeps a failure of this layer's own; returns 1.
    int fail(int number, std::string text);
    /// Keeps what the statement that just ended leaves behind: its rows and the id it generated.
    void ended(std::uint64_t rows);

    /// Whether this process is a child of the one that opened the link: its socket is not ours.
    bool ofParent() const;
    /// Lets go of the socket without a word to the server.
    void detachSocket() const;

private:
    int ready(std::string_view text);
    int checkSession(std::string_view text);
    int fits(std::string_view text);
    bool isLost() const;
    int lost(std::string_view text);
    bool mayBeReplaced(std::string_view text) const;
    void noteTransaction();
    int replace();
};

/// The failure kept for this thread in the place of a link's.
Failure& failureWithoutLink();
/// The failure of a call on a null handle; returns 1.
int failNotConnected();

} // namespace client
