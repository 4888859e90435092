#pragma once

#include "Measure.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// Other C++ libraries for the same server do the same work, each in the way that its manual shows.
/// Each has a source file of its own in peers/ and is left out if it is not installed.
namespace bench {

/// How many connections a pool has.
constexpr unsigned PoolSize = 4;
/// The statement that is run on each loan; its result is 1.
constexpr char CycleStatement[] = "SELECT 1";

/// A pool of PoolSize connections, for any number of threads.
class Pool {
public:
    Pool() = default;
    virtual ~Pool() = default;
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    /// Borrows a connection, runs CycleStatement, and returns the connection. Returns false if it
    /// got no connection; throws if the statement fails.
    virtual bool cycle() = 0;
};

/// The ways of one peer, each like Way::run; null where the peer has no natural way.
struct Peer {
    using Run = std::uint64_t (*)(int size);

    const char* name;
    Run keptRows;
    Run streamedRows;
    Run pointSelects;
    Run upserts;
    Run insertedRows;
    Run loans;
    std::unique_ptr<Pool> (*pool)();
};

/// Registers a peer. Each peer calls it once, before main(). Returns true.
bool addPeer(const Peer& peer);
/// All registered peers.
const std::vector<Peer>& peers();

/// Appends the way `run` of each peer that has it.
void addPeerWays(std::vector<Way>& ways, Peer::Run Peer::*run);

/// The login name and the socket for peers.
std::string account();
std::string serverSocket();

} // namespace bench
