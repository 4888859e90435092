#pragma once

#include "Text.h"

#include <array>
#include <mysql.h>
#include <string>
#include <string_view>

namespace client {

/// What is known of the session that the server keeps for a connection: whether anything would be
/// missed if another session took its place, and whether escaped values are safe in it. It is told
/// every text that is sent and the status in every reply.
class Session {
public:
    /// The statement that begins every session, so that sessions are the same whatever the server's
    /// global settings: utf8mb4, data files read as utf8mb4, "..." a literal with \ escapes and ""
    /// no NULL. It has the server report the changes that are listened to here.
    static const char* const Setup;
    /// A statement for when isKnown() is false: it sets to what they are the variables whose
    /// changes the server reports, so that its reply has their values. Unlike a SELECT it leaves
    /// FOUND_ROWS() and works in every session.
    static const char* const Question;

    explicit Session(const char* database) : m_database(database) {}

    /// A fresh session was set up, by a reply with this status.
    void begin(unsigned status);
    /// A text was sent, and the replies to it follow.
    void sends(std::string_view text);
    /// Question was sent, and the reply to it follows.
    void asks();
    /// A reply with the server's status and its report of changes; false if this is malformed.
    bool replied(unsigned status, std::string_view changes);
    /// A reply without room for a report: the end of a result set.
    void replied(unsigned status);
    /// A statement failed: its reply has neither status nor report.
    void failed();

    /// The database that is selected.
    const std::string& database() const { return m_database; }
    /// Whether escaped values are safe beyond doubt, as in nearly every session.
    bool isSafe() const
    {
        return m_known && m_asSetUp &&
               (m_status & (SERVER_STATUS_ANSI_QUOTES | SERVER_STATUS_NO_BACKSLASH_ESCAPES)) == 0;
    }
    /// Whether Question is to be sent in front of a text, as whyUnsafe() cannot be answered. It
    /// changes ROW_COUNT(), so a text that may ask for that and has no values goes without.
    bool mustAsk(std::string_view next) const
    {
        return !m_known && (hasLiterals(next) || !asksAboutEarlier(next));
    }
    /// Why escaped values are not safe in the session, as a clause; empty if they are.
    std::string whyUnsafe() const;
    /// Whether a fresh session in place of this one would not be noticed, by the text that is to be
    /// sent next either.
    bool mayBeReplaced(std::string_view next) const;

private:
    void note(std::string_view variable, std::string_view value);

    std::string m_database;
    std::string m_characterSet; // of texts that are sent; empty if it has not changed
    unsigned m_status = 0;
    Leaves m_leaves = Leaves::Nothing; // of the text sent last
    bool m_asking = false;             // Question was sent last
    bool m_clean = true;               // nothing outside a transaction was left in it
    bool m_known = true;
    bool m_asSetUp = true; // no variable that is listened to has been reported
    // Whether the server reports what is listened to: the variables listed, and the two switches.
    bool m_listed = true;
    std::array<bool, 2> m_switchedOn{true, true};
};

} // namespace client
