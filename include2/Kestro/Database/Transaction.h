#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/Connection.h>

namespace Kestro::Database {

/// A transaction that is rolled back unless it is committed.
///
///     Transaction transaction(connection);
///     ... statements on the connection ...
///     transaction.commit();
///
/// It is the server's transaction, so it covers tables of engines that have transactions, such as
/// InnoDB; and a statement that commits implicitly, as CREATE TABLE does, commits what came before
/// it. Statements of other connections have no part in it. For a KYDBDatabase there is
/// KYDBTransaction.
///
/// If the connection is lost in the middle, or the server rolls everything back because of a
/// deadlock, the statement that meets it throws. From then on the transaction is lost: further
/// statements on the connection are not sent but fail with the same number, and so does commit().
/// So nothing of it is saved, even if the first exception was dropped.
///
/// Threads: the transaction and its connection belong to one thread at a time.
class KESTRO_API Transaction {
public:
    /// Begins the transaction: START TRANSACTION. The connection must outlive it. Throws
    /// DatabaseException if START TRANSACTION fails, and if the connection is in a transaction
    /// already, of another Transaction or begun by a statement; that one goes on then. Asking the
    /// server whether it is costs a round trip.
    explicit Transaction(Connection& connection);
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;
    /// Rolls back, unless the transaction has ended. Never throws: if ROLLBACK fails, the
    /// connection is closed, which has the same effect.
    ~Transaction();

    /// Makes the changes permanent. Throws DatabaseException, file "Transaction", with the number
    /// of the error that caused it:
    /// - line 1 if the transaction has ended already;
    /// - line 2 if it was lost before, with its connection or in a deadlock: nothing of it is
    /// saved;
    /// - line 3 if the connection was lost during COMMIT: it may or may not be saved.
    ///
    /// If COMMIT fails for another reason, throws what Query::execute() throws, and the
    /// transaction stays open.
    void commit();

    /// Undoes the changes now. Returns also if the transaction was lost, since nothing is left to
    /// undo then. Throws DatabaseException if the transaction has ended already, or if
    /// ROLLBACK fails.
    void rollback();

private:
    void requireOpen() const;
    bool isLost() const;
    void end();

    Connection& m_connection;
    bool m_open = false;
};

} // namespace Kestro::Database
