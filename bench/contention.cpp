// Threads share 4 connections and run a statement on each loan. The longest wait, and the share of
// the thread that ran fewest statements, show what a pool does when all its connections are lent.

#include "RawLink.h"

#include <KestroDatabase>
#include <algorithm>
#include <atomic>
#include <benchmark/benchmark.h>
#include <chrono>
#include <condition_variable>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using namespace bench;
using namespace Kestro::Database;

namespace {

constexpr unsigned PoolSize = 4;
constexpr char Statement[] = "SELECT 1";
// They take longer than the longest wait for a loan.
constexpr int Statements = 300'000;

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

// Connections of the raw client, lent under a mutex and a condition variable, as one would write a
// pool by hand.
class RawPool {
public:
    RawPool()
    {
        for (const RawLink& link : m_links) {
            m_free.push_back(&link);
        }
    }

    // Borrows a connection and runs the statement. Returns false if there was no connection.
    bool cycle()
    {
        std::unique_lock lock(m_mutex);
        m_returned.wait(lock, [this] { return !m_free.empty(); });
        const RawLink* link = m_free.back();
        m_free.pop_back();
        lock.unlock();
        link->value(Statement);
        lock.lock();
        m_free.push_back(link);
        lock.unlock();
        m_returned.notify_one();
        return true;
    }

private:
    std::vector<RawLink> m_links = std::vector<RawLink>(PoolSize);
    std::vector<const RawLink*> m_free;
    std::mutex m_mutex;
    std::condition_variable m_returned;
};

class Pool {
public:
    bool cycle()
    {
        const ConnectionPool::Lock lock = m_pool.getConnection(true);
        return lock && QueryCount(lock.connection(), Statement).count() == 1;
    }

private:
    ConnectionPool m_pool{"", "", "", Connection::defaultAddress(), PoolSize};
};

template <class AnyPool> void contend(benchmark::State& state, int threads)
{
    struct Work {
        int done = 0;
        int empty = 0;
        Milliseconds longest{};
    };
    AnyPool pool;
    std::vector<Work> works(static_cast<std::size_t>(threads));
    for ([[maybe_unused]] const auto once : state) {
        std::atomic<int> left = Statements;
        std::list<std::jthread> running;
        for (Work& work : works) {
            running.emplace_back([&] {
                while (left > 0) {
                    const auto start = Clock::now();
                    if (!pool.cycle()) {
                        ++work.empty;
                    } else if (left-- > 0) {
                        ++work.done;
                    }
                    work.longest = std::max<Milliseconds>(work.longest, Clock::now() - start);
                }
            });
        }
    }
    for (const Work& work : works) {
        state.counters["empty"] += work.empty;
    }
    state.counters["fewest"] = std::ranges::min(works, {}, &Work::done).done;
    state.counters["longest ms"] = std::ranges::max(works, {}, &Work::longest).longest.count();
}

template <class AnyPool> void measure(const char* way, int threads)
{
    const std::string name = "contention_" + std::to_string(threads) + way;
    benchmark::RegisterBenchmark(name.c_str(), contend<AnyPool>, threads)
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime();
}

const bool registered = [] {
    for (const int threads : {2, 8, 32}) {
        measure<RawPool>("/raw", threads);
        measure<Pool>("/kestro", threads);
    }
    return true;
}();

} // namespace
