#pragma once

#include "Session.h"
#include "Wire.h"

#include <cstdint>
#include <mysql.h>
#include <string>
#include <string_view>

namespace client {

class Result;

/// Number and message of a failure.
struct Failure {
    int number = 0;
    std::string text;
};

/// What a connection handle points at: one connection to the server. The Connector opens it, logs
/// in and closes it; statements and their answers go through a Wire. When the connection is lost,
/// the link replaces it by another one to the same socket and account.
class Link {
public:
    /// A link that is not open yet. Its socket and account are those that the environment and the
    /// process have now.
    explicit Link(const char* database);
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;
    /// Closes the connection. A result that is being streamed fails from then on.
    ~Link();

    /// Opens a connection with a fresh session; an earlier connection is closed. Returns 0, or 1
    /// and keeps the reason as the link's failure.
    int open();
    /// Uses this socket, which is logged in, from now on. Its owner closes it.
    void attach(int socket);

    /// Sends a text. Returns 0; its answer must then be read. Or returns 1; the server then runs
    /// nothing of the text, because rows are being streamed, the text is too long, escaping is not
    /// safe in the session any more, or the connection was lost. A lost connection is replaced at
    /// once if neither the old session nor the text makes a difference. Otherwise the call fails
    /// with 2006, and the next call replaces it.
    int send(std::string_view text);
    /// Reads the head of the next statement's answer. Returns the number of columns, 0 for a
    /// statement without a result set, or -1 if the statement failed.
    int readHead();
    /// The next row of the result set, as the server sends it. Null after the last row and after a
    /// failure. The row may be written to, as that of Wire::receive().
    unsigned char* readRow(std::size_t& size)
    {
        unsigned char* const packet = m_wire.receive(size);
        if (packet != nullptr && size != 0 && packet[0] < 0xfe) [[likely]] {
            return packet;
        }
        return readLast(packet, size);
    }
    /// Reads and drops the rest of the rows of the result set. If the connection is lost meanwhile,
    /// or the statement fails in a transaction, the next statement reports a loss.
    void dropRows();
    /// Whether the answer that was read last ended in a failure; failure() is that one.
    bool answerFailed() const { return m_answerFailed; }
    /// Whether another statement's answer follows.
    bool moreAnswers() const { return (m_status & SERVER_MORE_RESULTS_EXIST) != 0; }
    /// The number of rows changed, from the last answer without a result set.
    std::uint64_t changedRows() const { return m_changedRows; }
    /// Takes over the figures of a statement that succeeded: its rows, and the id that it
    /// generated.
    void ended(std::uint64_t rows);
    /// Closes the connection because its answer is not understood. Returns -1.
    int malformed(const std::string& what);

    /// Allows several statements in one text, from now on or, if the connection is lost, once it is
    /// open again. Returns 0, or 1 on failure.
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

    /// Sets the result whose rows are still to come on the link, or null.
    void stream(Result* result) { m_stream = result; }

    /// Whether a parent of this process opened the link: the socket is then the parent's.
    bool ofParent() const;
    /// Gives the socket up without a message to the server.
    void detachSocket() const;

private:
    /// Lost: the loss has not been reported. Told: it has, by a failure.
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
    const unsigned m_generation; // of the process that made the link
    const std::string m_socketPath;
    const std::string m_user;
    bool m_multipleStatements = false;
    std::uint64_t m_maxAllowedPacket; // the server's limit, bytes

    // The last answer.
    unsigned m_status = 0;
    bool m_answerFailed = false;
    bool m_answerCounts = false; // it has the number of rows changed, as ROW_COUNT() then does
    std::uint64_t m_changedRows = 0;
    std::uint64_t m_insertId = 0;

    Failure m_failure;
    std::uint64_t m_affectedRows = 0;
    int m_answers = 0;
    std::uint64_t m_lastId = 0;
};

/// This thread's last failure without a link.
Failure& failureWithoutLink();
/// Keeps the failure of a call on a null handle. Returns 1.
int failNotConnected();

} // namespace client
