#pragma once

#include <Kestro/Api.h>
#include <Kestro/Database/Transaction.h>
#include <Kestro/TableMap/KYDatabase.h>
#include <Kestro/Threads.h>

namespace Kestro {

/// A transaction of the records that share a KYDBDatabase, rolled back unless it is committed:
///
///     KYDBTransaction transaction(database);
///     if (order.save(false) == 0 && stock.save(true) == 0) {
///         transaction.commit();
///     }
///
/// It holds the handle's lock from its beginning to its end, so that no statement of another thread
/// can get into the transaction: the other threads' statements wait meanwhile, and so does their
/// selectDB(). Statements of its own thread run as always. Everything else is as in
/// Database::Transaction.
///
/// Threads: one object belongs to the thread that made it, which also destroys it.
class KESTRO_API KYDBTransaction {
public:
    /// Waits for the handle's lock, reopens a connection that was closed, and begins. The handle
    /// must outlive it. Throws what the constructors of Database::Connection and
    /// Database::Transaction throw; a second one of the same thread is an error too.
    explicit KYDBTransaction(KYDBDatabase& database);
    /// Rolls back unless the transaction has ended, and gives the lock back. Never throws.
    ~KYDBTransaction();

    /// These throw as those of Database::Transaction do; the lock is held on.
    void commit() { m_transaction.commit(); }
    void rollback() { m_transaction.rollback(); }

private:
    Synchronized m_lock;
    Database::Transaction m_transaction;
};

} // namespace Kestro
