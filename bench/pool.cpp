// What lending a connection costs, alone and under contention.
//
//     pool [ROUNDS]
//
// First the loan itself, borrowed and given back by one thread without a statement, against a free
// list under a mutex. Then threads that share 4 connections and run SELECT 1 on each loan, against
// the raw client behind a mutex and a condition variable, which is what one writes without a pool.
// The server is the one whose socket MYSQL_UNIX_PORT names.

#include <KestroDatabase>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <list>
#include <memory>
#include <mutex>
#include <mysql.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace Kestro::Database;

namespace {

constexpr unsigned Connections = 4;
constexpr int Loans = 2'000'000;
constexpr int DefaultRounds = 5;
constexpr std::chrono::milliseconds Spell{1000};
constexpr char Statement[] = "SELECT 1";

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

// The raw client's links, lent by mutex and condition variable in the order of their return.
class RawPool {
public:
    RawPool()
    {
        for (unsigned i = 0; i < Connections; ++i) {
            MYSQL* link = mysql_init(nullptr);
            m_free.push_back(link);
            if (mysql_real_connect(link, nullptr, nullptr, nullptr, nullptr, 0,
                                   std::getenv("MYSQL_UNIX_PORT"), 0) == nullptr) {
                throw std::runtime_error(mysql_error(link));
            }
        }
    }
    ~RawPool() { std::ranges::for_each(m_free, mysql_close); }
    RawPool(const RawPool&) = delete;
    RawPool& operator=(const RawPool&) = delete;

    MYSQL* borrow()
    {
        std::unique_lock lock(m_mutex);
        m_returned.wait(lock, [this] { return !m_free.empty(); });
        MYSQL* link = m_free.back();
        m_free.pop_back();
        return link;
    }
    void giveBack(MYSQL* link)
    {
        {
            const std::lock_guard lock(m_mutex);
            m_free.push_back(link);
        }
        m_returned.notify_one();
    }
    // Without waiting, and without waking anybody.
    template <class Use> void lend(const Use& use)
    {
        MYSQL* link = nullptr;
        {
            const std::lock_guard lock(m_mutex);
            link = m_free.back();
            m_free.pop_back();
        }
        use(link);
        const std::lock_guard lock(m_mutex);
        m_free.push_back(link);
    }
    // Whether a connection was to be had.
    bool cycle()
    {
        MYSQL* link = borrow();
        bool done = mysql_real_query(link, Statement, sizeof Statement - 1) == 0;
        MYSQL_RES* result = mysql_store_result(link);
        done = done && mysql_fetch_row(result) != nullptr;
        mysql_free_result(result);
        giveBack(link);
        if (!done) {
            throw std::runtime_error("a statement failed");
        }
        return true;
    }

private:
    std::vector<MYSQL*> m_free;
    std::mutex m_mutex;
    std::condition_variable m_returned;
};

class KestroPool {
public:
    bool cycle()
    {
        const ConnectionPool::Lock lock = pool.getConnection(true);
        if (!lock) {
            return false;
        }
        if (QueryCount(lock.connection(), Statement).count() != 1) {
            throw std::runtime_error("a statement failed");
        }
        return true;
    }

    ConnectionPool pool{"", "", "", Connection::defaultAddress(), Connections};
};

// What a number of threads got done in a spell.
struct Work {
    double cycles = 0;  // per second
    double longest = 0; // milliseconds for one cycle, waiting included
    double least = 0;   // cycles per second of the thread that got fewest
    long empty = 0;     // loans that ended empty-handed
};

template <class Pool> Work contend(Pool& pool, int threads)
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
        work.empty += one.empty;
    }
    return work;
}

double median(std::vector<double> values)
{
    std::ranges::nth_element(values, values.begin() + static_cast<long>(values.size() / 2));
    return values[values.size() / 2];
}

template <class Loan> double nanoseconds(const Loan& loan)
{
    const auto start = Clock::now();
    for (int i = 0; i < Loans; ++i) {
        loan();
    }
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count() / Loans;
}

void compareLoans(RawPool& raw, KestroPool& kestro, int rounds)
{
    std::vector<double> list;
    std::vector<double> pool;
    const volatile void* seen = nullptr;
    for (int round = 0; round < rounds; ++round) {
        list.push_back(nanoseconds([&] { raw.lend([&](MYSQL* link) { seen = link; }); }));
        pool.push_back(nanoseconds([&] {
            const ConnectionPool::Lock lock = kestro.pool.getConnection(false);
            seen = &lock.connection();
        }));
    }
    std::printf("one thread, borrow and give back, ns\n%-26s %6.0f\n%-26s %6.0f\n\n",
                "free list under a mutex", median(list), "kestro", median(pool));
}

void compareContention(RawPool& raw, KestroPool& kestro, int rounds)
{
    std::printf("threads on %u connections running %s, cycles per second (medians of %d)\n"
                "%-8s %-8s %10s %6s %12s %12s %8s\n",
                Connections, Statement, rounds, "threads", "way", "cycles", "x", "longest ms",
                "least busy", "empty");
    for (const int threads : {2, 8, 32}) {
        std::vector<double> cycles[2];
        std::vector<double> longest[2];
        std::vector<double> least[2];
        long empty[2] = {0, 0};
        for (int round = 0; round < rounds; ++round) {
            const Work works[] = {contend(raw, threads), contend(kestro, threads)};
            for (std::size_t way = 0; way < 2; ++way) {
                cycles[way].push_back(works[way].cycles);
                longest[way].push_back(works[way].longest);
                least[way].push_back(works[way].least);
                empty[way] += works[way].empty;
            }
        }
        for (std::size_t way = 0; way < 2; ++way) {
            std::printf("%-8d %-8s %10.0f %6.2f %12.1f %12.0f %8ld\n", threads,
                        way == 0 ? "raw" : "kestro", median(cycles[way]),
                        median(cycles[way]) / median(cycles[0]), median(longest[way]),
                        median(least[way]), empty[way]);
        }
    }
}

} // namespace

int main(int argc, char** argv)
try {
    const int rounds = argc == 2 ? std::max(std::stoi(argv[1]), 1) : DefaultRounds;
    RawPool raw;
    KestroPool kestro;
    compareLoans(raw, kestro, rounds);
    compareContention(raw, kestro, rounds);
} catch (const std::exception& failure) {
    std::fprintf(stderr, "pool: %s\n", failure.what());
    return 1;
}
