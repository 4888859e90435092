#pragma once

#include <future>
#include <sched.h>
#include <sys/types.h>
#include <thread>

/// What the system tells about processors and memory. Times are in milliseconds, memory in MiB.
namespace bench {

/// Processor time of this process and the children that it has waited for.
double ownCpu();

/// Begins to watch this process's memory, and returns what it has now.
double memoryAtStart();
/// The most that this process had since then above what it had, or the most of a child that it has
/// waited for.
double peakMemory(double atStart);

/// Measures what processes other than this one, its children and the server take.
class ForeignCpu {
public:
    ForeignCpu();
    /// Their part of all processors' time since construction.
    double share() const;

private:
    double m_start; // of the clock
    double m_foreign;
};

/// Keeps this process, the children that it starts, and the server on one processor.
class OneProcessor {
public:
    OneProcessor();
    ~OneProcessor();
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

private:
    cpu_set_t m_own;
    cpu_set_t m_server;
};

/// A second thread, which does nothing: locks and counters cost more where a process has one.
class IdleThread {
public:
    IdleThread();
    ~IdleThread();
    IdleThread(const IdleThread&) = delete;
    IdleThread& operator=(const IdleThread&) = delete;

private:
    std::promise<void> m_end;
    std::thread m_thread;
};

} // namespace bench
