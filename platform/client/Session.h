#pragma once

#include "Text.h"

#include <array>
#include <mysql.h>
#include <string>
#include <string_view>

namespace client {

/// What is known about the session state that the server keeps for a connection: whether anything
/// would be missed if another session took its place, and whether escaping is safe in it. The link
/// reports every text that it sends and the status in every reply.
class Session {
public:
    /// The statement that begins every session. It makes sessions the same whatever the server's
    /// global settings: the character set is utf8mb4, data files are read as utf8mb4, "..." is a
    /// literal with \ escapes, and "" is not NULL. It also makes the server report the changes that
    /// are evaluated here.
    static const char* const Setup;
    /// The statement to send if mustAsk(). It sets each variable whose changes the server reports
    /// to its own value, so that the reply has the values. Unlike a SELECT it leaves FOUND_ROWS()
    /// alone and works in every session.
    static const char* const Question;

    explicit Session(const char* database) : m_database(database) {}

    /// A fresh session was set up; the reply had this status.
    void begin(unsigned status);
    /// A text was sent; its replies follow.
    void sends(std::string_view text);
    /// Question was sent; its reply follows.
    void asks();
    /// A reply came with this status and this report of changes. Returns false if the report is
    /// malformed.
    bool replied(unsigned status, std::string_view changes);
    /// The end of a result set came. It has a status, but never a report.
    void replied(unsigned status);
    /// A statement failed. Its reply has neither status nor report.
    void failed();

    /// The database that is selected.
    const std::string& database() const { return m_database; }
    /// Whether escaping is certainly safe, as in nearly every session.
    bool isSafe() const
    {
        return m_known && m_asSetUp &&
               (m_status & (SERVER_STATUS_ANSI_QUOTES | SERVER_STATUS_NO_BACKSLASH_ESCAPES)) == 0;
    }
    /// Whether Question must be sent before this text, because whyUnsafe() cannot be answered.
    /// Question changes ROW_COUNT(), so it is not sent before a text that may ask for that and has
    /// no escaped values.
    bool mustAsk(std::string_view next) const
    {
        return !m_known && (hasLiterals(next) || !asksAboutEarlier(next));
    }
    /// Why escaping is not safe in the session, as a clause; empty if it is safe.
    std::string whyUnsafe() const;
    /// Whether a fresh session may replace this one unnoticed, before this text is sent.
    bool mayBeReplaced(std::string_view next) const;

private:
    void note(std::string_view variable, std::string_view value);

    std::string m_database;
    std::string m_characterSet; // the client's; empty if it has not changed
    unsigned m_status = 0;
    Leaves m_leaves = Leaves::Nothing; // what the last text may leave
    bool m_asking = false;             // the last text was Question
    bool m_clean = true;               // no text left anything, but for an open transaction
    bool m_known = true;               // every change that matters here has been reported
    bool m_asSetUp = true;             // no change of such a variable has been reported
    // Whether the server's settings make it report: the list of variables, and the two switches.
    bool m_listed = true;
    std::array<bool, 2> m_switchedOn{true, true};
};

} // namespace client
