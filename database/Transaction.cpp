#include <Kestro/Database/Transaction.h>

#include <Kestro/Database/Scalar.h>

#include <algorithm>
#include <iterator>

namespace Kestro::Database {

namespace {

constexpr char File[] = "Transaction";
constexpr unsigned EndedLine = 1;
constexpr unsigned LostLine = 2;
constexpr unsigned InDoubtLine = 3;
constexpr unsigned SecondLine = 4;

constexpr int UnknownVariable = 1193;
constexpr int GoneAway = 2006; // nothing was sent
// A shutdown, a kill, a lost link, a malformed answer: the statement may have run.
constexpr int NoAnswer[] = {1053, 1927, 2013, 2027};

// On a server without the variable the answer is no.
bool isInTransaction(Connection& connection)
try {
    return scalar<bool>(connection, "SELECT @@in_transaction");
} catch (const DatabaseException& refused) {
    if (refused.errorNumber() != UnknownVariable) {
        throw;
    }
    return false;
}

} // namespace

Transaction::Transaction(Connection& connection) : m_connection(connection)
{
    if (connection.m_transaction != Connection::TransactionState::None) {
        throw DatabaseException(4, File, SecondLine,
                                "a transaction is open on this connection already", 0);
    }
    if (isInTransaction(connection)) {
        throw DatabaseException(4, File, SecondLine,
                                "the session is in a transaction already, which a statement began",
                                0);
    }
    connection.execute("START TRANSACTION");
    connection.m_transaction = Connection::TransactionState::Open;
    m_open = true;
}

Transaction::~Transaction()
{
    if (!m_open) {
        return;
    }
    try {
        rollback();
    } catch (...) {
        m_connection.disconnect();
        end();
    }
}

void Transaction::commit()
{
    requireOpen();
    if (isLost()) {
        const int number = m_connection.m_lostBy;
        rollback();
        throw DatabaseException(
            4, File, LostLine,
            "the transaction was lost before it was committed: nothing of it is saved", number);
    }
    try {
        m_connection.execute("COMMIT");
    } catch (const DatabaseException& refused) {
        if (refused.errorNumber() == GoneAway) {
            return commit();
        }
        if (std::ranges::find(NoAnswer, refused.errorNumber()) == std::end(NoAnswer)) {
            throw;
        }
        end();
        throw DatabaseException(4, File, InDoubtLine,
                                "the link was lost while the transaction was being committed: "
                                "whether it was committed is not known",
                                refused.errorNumber());
    }
    end();
}

void Transaction::rollback()
{
    requireOpen();
    if (isLost()) {
        // Otherwise the ROLLBACK would be refused, like every statement.
        m_connection.m_transaction = Connection::TransactionState::None;
    }
    try {
        m_connection.execute("ROLLBACK");
    } catch (const Exception&) {
        if (m_connection.m_transaction == Connection::TransactionState::Open) {
            throw;
        }
    }
    end();
}

void Transaction::requireOpen() const
{
    if (!m_open) {
        throw DatabaseException(4, File, EndedLine, "the transaction has ended already", 0);
    }
}

void Transaction::end()
{
    m_connection.m_transaction = Connection::TransactionState::None;
    m_open = false;
}

bool Transaction::isLost() const
{
    return m_connection.m_transaction == Connection::TransactionState::Lost;
}

} // namespace Kestro::Database
