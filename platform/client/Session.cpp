#include "Session.h"

#include "Wire.h"

#include <algorithm>
#include <array>

namespace client {

namespace {

// In these character sets the second byte of a character may be a backslash or a quote.
constexpr std::array<std::string_view, 5> UnsafeCharacterSets = {"big5", "cp932", "gbk", "sjis",
                                                                 "gb18030"};

constexpr std::string_view CharacterSet = "character_set_client";
// The variables that switch the server's reports on, and the one that lists what is reported.
constexpr std::array<std::string_view, 2> Switches = {"session_track_state_change",
                                                      "session_track_schema"};
constexpr std::string_view List = "session_track_system_variables";

} // namespace

// Values are written as "..." with \ escapes. Two modes change the meaning of these and are
// removed, and so are the six combined modes that would bring them back. EMPTY_STRING_IS_NULL goes,
// too. Every other mode stays. LOAD DATA INFILE reads files in character_set_database.
const char* const Session::Setup =
    "SET NAMES utf8mb4, SESSION character_set_database=utf8mb4, "
    "SESSION session_track_state_change=1, SESSION session_track_schema=1, "
    "SESSION session_track_system_variables='session_track_system_variables,"
    "session_track_state_change,session_track_schema,character_set_client', "
    "SESSION sql_mode=REPLACE(REPLACE(REPLACE(REPLACE(REPLACE(REPLACE(REPLACE(REPLACE(REPLACE("
    "CONCAT(',',@@SESSION.sql_mode,','),',ANSI_QUOTES,',','),',NO_BACKSLASH_ESCAPES,',','),"
    "',ANSI,',','),',DB2,',','),',MAXDB,',','),',MSSQL,',','),',ORACLE,',','),',POSTGRESQL,',','),"
    "',EMPTY_STRING_IS_NULL,',',')";

const char* const Session::Question =
    "SET session_track_system_variables=@@session_track_system_variables, "
    "session_track_state_change=@@session_track_state_change, "
    "session_track_schema=@@session_track_schema, character_set_client=@@character_set_client";

void Session::begin(unsigned status)
{
    m_status = status;
    m_characterSet.clear();
    m_leaves = Leaves::Nothing;
    m_asking = false;
    m_clean = true;
    m_known = true;
    m_asSetUp = true;
    m_listed = true;
    m_switchedOn = {true, true};
}

void Session::sends(std::string_view text)
{
    m_asking = false;
    m_leaves = leaves(text);
    m_clean = m_clean && (m_leaves == Leaves::Nothing || m_leaves == Leaves::Less);
}

void Session::asks()
{
    m_asking = true;
    m_asSetUp = false;
    m_listed = false; // until the reply reports the list, which must contain its own name
}

bool Session::replied(unsigned status, std::string_view changes)
{
    m_status = status;
    if ((status & SERVER_SESSION_STATE_CHANGED) == 0) {
        m_known = m_known || m_asking;
        return true;
    }
    if (m_asking) {
        m_known = true;
    } else {
        m_clean = m_clean && m_leaves == Leaves::Less;
        // A text whose words do not show what it changed may have switched the reports off, which
        // is not reported.
        m_known = m_known && (m_leaves == Leaves::Something || m_leaves == Leaves::Less);
    }
    Fields all(changes.data(), changes.size());
    while (all.left() != 0) {
        const std::uint64_t kind = all.fixed(1);
        const std::string_view report = all.text();
        Fields fields(report.data(), report.size());
        if (kind == SESSION_TRACK_SCHEMA) {
            m_database = fields.text();
        } else if (kind == SESSION_TRACK_SYSTEM_VARIABLES) {
            while (fields.left() != 0) {
                const std::string_view variable = fields.text();
                note(variable, fields.text());
            }
        }
        if (all.broken() || fields.broken()) {
            return false;
        }
    }
    return true;
}

void Session::replied(unsigned status)
{
    m_status = status;
    if ((status & SERVER_SESSION_STATE_CHANGED) != 0) {
        m_clean = false;
        m_known = false;
    }
}

void Session::failed()
{
    m_known = m_known && m_leaves == Leaves::Nothing;
}

void Session::note(std::string_view variable, std::string_view value)
{
    m_asSetUp = false;
    if (variable == CharacterSet) {
        m_characterSet = value;
    } else if (variable == List) {
        m_listed = value == "*" || (value.find(CharacterSet) != std::string_view::npos &&
                                    std::ranges::all_of(Switches, [&](std::string_view name) {
                                        return value.find(name) != std::string_view::npos;
                                    }));
    }
    for (std::size_t i = 0; i < Switches.size(); ++i) {
        if (variable == Switches[i]) {
            m_switchedOn[i] = value == "ON";
        }
    }
}

std::string Session::whyUnsafe() const
{
    if ((m_status & SERVER_STATUS_ANSI_QUOTES) != 0) {
        return "the session's sql_mode has ANSI_QUOTES";
    }
    if ((m_status & SERVER_STATUS_NO_BACKSLASH_ESCAPES) != 0) {
        return "the session's sql_mode has NO_BACKSLASH_ESCAPES";
    }
    if (std::ranges::count(UnsafeCharacterSets, m_characterSet) > 0) {
        return "a character of the session's character set " + m_characterSet +
               " may hold a quote or a backslash";
    }
    if (!m_listed || !m_switchedOn[0] || !m_switchedOn[1]) {
        return "the session's reports of changes (session_track_...) were switched off";
    }
    return "";
}

bool Session::mayBeReplaced(std::string_view next) const
{
    constexpr unsigned Transaction = SERVER_STATUS_IN_TRANS | SERVER_STATUS_AUTOCOMMIT;
    return m_clean && (m_status & Transaction) == SERVER_STATUS_AUTOCOMMIT &&
           leaves(next) != Leaves::Unknown && !asksAboutEarlier(next);
}

} // namespace client
