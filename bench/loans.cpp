// A connection is borrowed and given back, by one thread and without a statement.

#include "Machine.h"
#include "Measure.h"
#include "Peer.h"
#include "RawPool.h"

#include <KestroDatabase>

using namespace bench;
using namespace Kestro::Database;

namespace {

constexpr int Loans = 2'000'000;

std::uint64_t raw(int number)
{
    RawPool pool;
    const IdleThread other;
    for (int i = 0; i < number; ++i) {
        pool.giveBack(pool.borrow());
    }
    return 0;
}

std::uint64_t kestro(int number)
{
    ConnectionPool pool("", "", "", Connection::defaultAddress(), PoolSize);
    const IdleThread other;
    for (int i = 0; i < number; ++i) {
        const ConnectionPool::Lock lock = pool.getConnection(false);
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<Way> ways = {{"mutex", raw}, {"kestro", kestro}};
    addPeerWays(ways, &Peer::loans);
    return run(argc, argv, {{"2,000,000 loans of a connection by one thread", Loans, ways}});
}
