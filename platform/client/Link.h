#pragma once

#include "Session.h"
#include "Wire.h"

#include <cstdint>
#include <mysql.h>
#include <string>
#include <string_view>

namespace client {

class Result;

/// Number and text of a failure.
struct Failure {
    int number = 0;
    std::string text;
};

/// What a connection handle points at: one connection to the server. The Connector opens it, logs
/// in and closes it; statements and their answers go through a Wire. When the connection is lost,
/// another one to the same socket and account takes its place.
class Link {
public:
    /// A link that is not open yet, to the socket and account that the environment and the process
    /// name now.
    explicit Link(const char* database);
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;
    /// A result that still stands on the link fails from then on.
    ~Link();

    /// Opens the link, closing the one that was lost if there is one, with a fresh session. Returns
    /// 0, or 1 and keeps the reason as the link's failure.
    int open();
    /// Goes on with a socket that is logged in, which stays its owner's.
    void attach(int socket);

    /// Sends a text. Returns 0, and then the answer is to be read; or 1, and then the server runs
    /// nothing of it: a result stands on the link, the text is too long, escaped values are not
    /// safe in the session any more, or the link was lost. A lost link is replaced: at once if
    /// neither its session nor the text makes a difference, else the call fails with 2006 and the
    /// next one does it.
    int send(std::string_view text);
    /// Reads the head of the next statement's answer. Returns the number of columns, 0 for a
    /// statement without a result set, -1 if it failed.
    int readHead();
    /// The next row of the result set, as the server sends it, or null after the last one and after
    /// a failure. As for Wire::receive(), it may be written to.
    unsigned char* readRow(std::size_t& size)
    {
        unsigned char* const packet = m_wire.receive(size);
        if (packet != nullptr && size != 0 && packet[0] < 0xfe) [[likely]] {
            return packet;
        }
        return readLast(packet, size);
    }
    /// Reads the rest of the rows of a stream that is left. If the link is lost meanwhile, it is
    /// the next statement that finds out.
    void dropRows();
    /// Whether the last answer read ended in a failure, which is the link's.
    bool answerFailed() const { return m_answerFailed; }
    /// Whether another statement's answer follows.
    bool moreAnswers() const { return (m_status & SERVER_MORE_RESULTS_EXIST) != 0; }
    /// Rows changed, as the answer without a result set says.
    std::uint64_t changedRows() const { return m_changedRows; }
    /// Keeps what a statement that succeeded leaves behind: its rows, and the id that it made.
    void ended(std::uint64_t rows);
    /// The answer cannot be understood: closes the link; returns -1.
    int malformed(const std::string& what);

    /// Lets one text carry several statements, from now on or, if the link is lost, once it is open
    /// again. Returns 0 or 1.
    int enableMultipleStatements();

    /// Keeps a failure; returns 1.
    int fail(int number, std::string text);
    const Failure& failure() const { return m_failure; }
    std::uint64_t affectedRows() const { return m_affectedRows; }
    /// Answers to the last text, without one that failed.
    int answers() const { return m_answers; }
    /// For a text that asks nothing of the server.
    void nothingAsked()
    {
        m_affectedRows = 0;
        m_answers = 0;
    }
    std::uint64_t lastId() const { return m_lastId; }

    /// The result whose rows stand on the link, or null.
    void stream(Result* result) { m_stream = result; }

    /// Whether this process is a child of the one that opened the link: its socket is not ours.
    bool ofParent() const;
    /// Lets go of the socket without a word to the server.
    void detachSocket() const;

private:
    /// Lost: no statement has failed for it yet. Told: one has.
    enum class State { Open, Lost, Told };

    bool logIn();
    int prepareSession();
    int ready(std::string_view text);
    int checkSession(std::string_view text);
    int fits(std::string_view text);
    int lost(std::string_view text);
    int replace();
    int sendOption();
    bool isPlain() const;
    int readDescriptions(const unsigned char* packet, std::size_t size);
    unsigned char* readLast(unsigned char* packet, std::size_t size);
    int readOk(const unsigned char* packet, std::size_t size);
    int readEnd(const unsigned char* packet, std::size_t size);
    int readError(const unsigned char* packet, std::size_t size);
    int noPacket();

    MYSQL* m_mysql = nullptr;
    Wire m_wire;
    Session m_session;
    State m_state = State::Told;
    Result* m_stream = nullptr;
    const unsigned m_generation; // of the process that opened it
    const std::string m_socketPath;
    const std::string m_user;
    bool m_multipleStatements = false;
    std::uint64_t m_maxAllowedPacket; // the server's limit, bytes

    // The last answer.
    unsigned m_status = 0;
    bool m_answerFailed = false;
    bool m_answerCounts = false; // rows changed, which ROW_COUNT() gives until the next statement
    std::uint64_t m_changedRows = 0;
    std::uint64_t m_insertId = 0;

    Failure m_failure;
    std::uint64_t m_affectedRows = 0;
    int m_answers = 0;
    std::uint64_t m_lastId = 0;
};

/// The failure kept for this thread in the place of a link's.
Failure& failureWithoutLink();
/// The failure of a call on a null handle; returns 1.
int failNotConnected();

} // namespace client
