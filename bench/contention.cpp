// Threads share 4 connections and run a statement on each loan.
//
//     contention [ROUNDS]
//
// The longest wait, and the figure of the thread that ran fewest statements, show what a pool does
// when all its connections are lent. All ways run in one process, in turns.

#include "Peer.h"
#include "RawPool.h"

#include <KestroDatabase>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <functional>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace bench;
using namespace Kestro::Database;

namespace {

constexpr int DefaultRounds = 5;
// More than twice the longest wait for a loan.
constexpr std::chrono::milliseconds Spell{5000};

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

class KestroPool : public Pool {
public:
    bool cycle() override
    {
        const ConnectionPool::Lock lock = m_pool.getConnection(true);
        if (!lock) {
            return false;
        }
        if (QueryCount(lock.connection(), CycleStatement).count() != 1) {
            throw std::runtime_error("a statement failed");
        }
        return true;
    }

private:
    ConnectionPool m_pool{"", "", "", Connection::defaultAddress(), PoolSize};
};

// What the threads did in one measurement.
struct Work {
    double cycles = 0;  // per second
    double longest = 0; // milliseconds of one cycle, with the wait for its loan
    double least = 0;   // cycles per second of the thread that ran fewest
    double empty = 0;   // empty loans per second
};

struct PoolWay {
    std::string name;
    std::unique_ptr<Pool> pool;
    std::vector<Work> works = {};

    double median(double Work::*member) const
    {
        std::vector<Work> sorted = works;
        std::ranges::sort(sorted, {}, member);
        return sorted[sorted.size() / 2].*member;
    }
};

Work contend(Pool& pool, int threads)
{
    struct One {
        long cycles = 0;
        long empty = 0;
        Milliseconds longest{};
    };
    std::vector<One> all(static_cast<std::size_t>(threads));
    std::atomic<bool> stop{false};
    {
        std::list<std::jthread> running;
        for (One& one : all) {
            running.emplace_back([&] {
                while (!stop) {
                    const auto start = Clock::now();
                    ++(pool.cycle() ? one.cycles : one.empty);
                    one.longest = std::max<Milliseconds>(one.longest, Clock::now() - start);
                }
            });
        }
        std::this_thread::sleep_for(Spell);
        stop = true;
    }
    const double seconds = std::chrono::duration<double>(Spell).count();
    Work work;
    work.least = static_cast<double>(std::ranges::min(all, {}, &One::cycles).cycles) / seconds;
    for (const One& one : all) {
        work.cycles += static_cast<double>(one.cycles) / seconds;
        work.longest = std::max(work.longest, one.longest.count());
        work.empty += static_cast<double>(one.empty) / seconds;
    }
    return work;
}

void compare(std::vector<PoolWay>& ways, int threads, int rounds)
{
    for (PoolWay& way : ways) {
        way.works.clear();
    }
    for (int round = 0; round < rounds; ++round) {
        for (PoolWay& way : ways) {
            way.works.push_back(contend(*way.pool, threads));
        }
    }
    for (const PoolWay& way : ways) {
        const double cycles = way.median(&Work::cycles);
        std::printf("%-8d %-8s %10.0f %6.2f %12.1f %12.0f %8.0f\n", threads, way.name.c_str(),
                    cycles, cycles / ways.front().median(&Work::cycles), way.median(&Work::longest),
                    way.median(&Work::least), way.median(&Work::empty));
    }
}

} // namespace

int main(int argc, char** argv)
try {
    const int rounds = argc < 2 ? DefaultRounds : std::max(std::stoi(argv[1]), 1);

    std::vector<PoolWay> ways;
    ways.push_back({"raw", std::make_unique<RawPool>()});
    ways.push_back({"kestro", std::make_unique<KestroPool>()});
    for (const Peer& peer : peers()) {
        if (peer.pool != nullptr) {
            ways.push_back({peer.name, peer.pool()});
        }
    }
    std::printf("\nthreads on %u connections running %s on each loan, medians of %d\n"
                "%-8s %-8s %10s %6s %12s %12s %8s\n",
                PoolSize, CycleStatement, rounds, "threads", "way", "cycles/s", "x", "longest ms",
                "least busy/s", "empty/s");
    for (const int threads : {2, 8, 32}) {
        compare(ways, threads, rounds);
    }
} catch (const std::exception& failure) {
    std::fprintf(stderr, "contention: %s\n", failure.what());
    return 1;
}
