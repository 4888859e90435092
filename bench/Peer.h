#pragma once

#include "Measure.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// Other C++ libraries for the same server do the same work, each in the way that its manual shows.
/// Each stands in a source of its own in peers/, and is left out where it is not installed.
namespace bench {

/// How many connections a pool has.
constexpr unsigned PoolSize = 4;
/// The statement that is run on each loan; its answer is 1.
constexpr char CycleStatement[] = "SELECT 1";

/// A pool of that many connections, for any number of threads.
class Pool {
public:
    Pool() = default;
    virtual ~Pool() = default;
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    /// Borrows a connection, runs the statement, and gives the connection back. Returns false if no
    /// connection was to be had; throws if the statement fails.
    virtual bool cycle() = 0;
};

/// What a peer can do: null where it has no natural way. Each function works as Way::run.
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

/// To be called once by each peer, before main().
bool addPeer(const Peer& peer);
/// All of them.
const std::vector<Peer>& peers();

/// Appends the ways of those peers that can do the work.
void addPeerWays(std::vector<Way>& ways, Peer::Run Peer::*run);

/// What peers log in with; the socket is MYSQL_UNIX_PORT.
std::string account();
std::string serverSocket();

} // namespace bench
