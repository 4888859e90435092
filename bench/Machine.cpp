#include "Machine.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

namespace bench {

namespace {

double milliseconds(const rusage& usage)
{
    const auto of = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
    };
    return of(usage.ru_utime) + of(usage.ru_stime);
}

rusage usageOf(int who)
{
    rusage usage{};
    getrusage(who, &usage);
    return usage;
}

double ticks(double number)
{
    return number * 1e3 / static_cast<double>(sysconf(_SC_CLK_TCK));
}

// The process of the private server, from the file beside its socket; 0 if there is none.
pid_t server()
{
    const char* socket = std::getenv("MYSQL_UNIX_PORT");
    pid_t number = 0;
    if (socket != nullptr) {
        std::ifstream(std::filesystem::path(socket).replace_filename("pid")) >> number;
    }
    return number;
}

double serverCpu()
{
    std::ifstream stat("/proc/" + std::to_string(server()) + "/stat");
    std::string word;
    std::getline(stat, word, ')'); // the name may have blanks
    constexpr int BehindName = 11; // fields between the name and utime
    for (int field = 0; field < BehindName; ++field) {
        stat >> word;
    }
    double user = 0;
    double system = 0;
    stat >> user >> system;
    return ticks(user + system);
}

// Processor time that all processes took. Time that the virtual machine did not get counts, too.
double busyCpu()
{
    std::ifstream stat("/proc/stat");
    std::string word;
    double user = 0;
    double nice = 0;
    double system = 0;
    double idle = 0;
    double waiting = 0;
    double interrupts = 0;
    double softInterrupts = 0;
    double stolen = 0;
    stat >> word >> user >> nice >> system >> idle >> waiting >> interrupts >> softInterrupts >>
        stolen;
    return ticks(user + nice + system + interrupts + softInterrupts + stolen);
}

double foreignCpu()
{
    return busyCpu() - serverCpu() - ownCpu();
}

double clockNow()
{
    return std::chrono::duration<double, std::milli>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// The value of a line of /proc/self/status, in MiB.
double memoryLine(const std::string& name)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(name)) {
            return std::stod(line.substr(name.size())) / 1024;
        }
    }
    throw std::runtime_error("the system tells no " + name);
}

void keepOn(pid_t process, const cpu_set_t& processors)
{
    for (const auto& thread :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        if (sched_setaffinity(std::stoi(thread.path().filename()), sizeof processors,
                              &processors) != 0) {
            throw std::runtime_error("cannot keep a process on a processor");
        }
    }
}

} // namespace

double ownCpu()
{
    return milliseconds(usageOf(RUSAGE_SELF)) + milliseconds(usageOf(RUSAGE_CHILDREN));
}

double memoryAtStart()
{
    std::ofstream("/proc/self/clear_refs") << 5; // resets the peak
    return memoryLine("VmRSS:");
}

double peakMemory(double atStart)
{
    return std::max(memoryLine("VmHWM:") - atStart,
                    static_cast<double>(usageOf(RUSAGE_CHILDREN).ru_maxrss) / 1024);
}

ForeignCpu::ForeignCpu() : m_start(clockNow()), m_foreign(foreignCpu())
{}

double ForeignCpu::share() const
{
    return (foreignCpu() - m_foreign) /
           ((clockNow() - m_start) * static_cast<double>(sysconf(_SC_NPROCESSORS_ONLN)));
}

OneProcessor::OneProcessor()
{
    sched_getaffinity(0, sizeof m_own, &m_own);
    if (server() == 0 || sched_getaffinity(server(), sizeof m_server, &m_server) != 0) {
        throw std::runtime_error("no private server is there");
    }
    std::size_t last = CPU_SETSIZE - 1; // not the first, which serves most interrupts
    while (!CPU_ISSET(last, &m_own)) {
        --last;
    }
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(last, &one);
    keepOn(server(), one); // threads that it starts later inherit this
    keepOn(getpid(), one);
}

OneProcessor::~OneProcessor()
{
    try {
        keepOn(server(), m_server);
        keepOn(getpid(), m_own);
    } catch (const std::exception& failure) { // the server is gone, or soon will be
        std::fprintf(stderr, "%s\n", failure.what());
    }
}

IdleThread::IdleThread() : m_thread([end = m_end.get_future()] { end.wait(); })
{}

IdleThread::~IdleThread()
{
    m_end.set_value();
    m_thread.join();
}

} // namespace bench
