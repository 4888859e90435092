#pragma once

#include <future>
#include <sched.h>
#include <sys/types.h>
#include <thread>

/// Processors and memory, as the system reports them. Times are in milliseconds, memory in MiB.
namespace bench {

/// Processor time of this process and of the children that it has waited for.
double ownCpu();

/// Resets the peak of this process's memory, and returns its present memory.
double memoryAtStart();
/// The peak since memoryAtStart(), less what that returned; or the peak of a child that the process
/// has waited for, if that is more.
double peakMemory(double atStart);

/// Measures the processor time of all processes but this one, its children and the server.
class ForeignCpu {
public:
    ForeignCpu();
    /// Their share of all processors' time since construction, from 0 to 1.
    double share() const;

private:
    double m_start; // when it was constructed
    double m_foreign;
};

/// Keeps this process, the children that it starts, and the server on one processor while it lives.
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

/// A second thread that does nothing. Locks and reference counts cost more in a process that has
/// one.
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
