#include "Peer.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace bench {

namespace {

std::vector<Peer>& addedPeers()
{
    static std::vector<Peer> all;
    return all;
}

} // namespace

bool addPeer(const Peer& peer)
{
    addedPeers().push_back(peer);
    return true;
}

const std::vector<Peer>& peers()
{
    return addedPeers();
}

void addPeerWays(std::vector<Way>& ways, Peer::Run Peer::*run)
{
    for (const Peer& peer : peers()) {
        if (peer.*run != nullptr) {
            ways.push_back({peer.name, peer.*run});
        }
    }
}

std::string account()
{
    const passwd* user = getpwuid(geteuid());
    return user != nullptr ? user->pw_name : "";
}

std::string serverSocket()
{
    const char* path = std::getenv("MYSQL_UNIX_PORT");
    return path != nullptr ? path : "";
}

} // namespace bench
