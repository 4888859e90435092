#pragma once

#include "Measure.h"

#include <cstdint>
#include <string>
#include <vector>

/// Other C++ libraries for the same server do the same work, each in the way that its manual shows.
/// Each stands in a source of its own in peers/, and is left out where it is not installed.
namespace bench {

/// What a peer can do: null where it has no natural way. Each function works as Way::run.
struct Peer {
    using Run = std::uint64_t (*)(int size);

    const char* name;
    Run keptRows;
    Run streamedRows;
    Run pointSelects;
    Run upserts;
};

/// To be called once by each peer, before main().
bool addPeer(const Peer& peer);

/// Appends the ways of those peers that can do the work.
void addPeerWays(std::vector<Way>& ways, Peer::Run Peer::*run);

/// What peers log in with; the socket is MYSQL_UNIX_PORT.
std::string account();
std::string serverSocket();

} // namespace bench
