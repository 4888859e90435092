#include "Measure.h"

#include "Machine.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <optional>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

namespace {

constexpr int DefaultRounds = 5;
constexpr double Disturbance = 0.1; // share of all processors' time taken by others
constexpr int Repetitions = 3;

// The result of one run; times are in milliseconds, memory in MiB.
struct Sample {
    double wall = 0;
    double cpu = 0;
    double peak = 0; // less what the process had at its start
    std::uint64_t checksum = 0;
};

struct Line {
    std::string way;
    double median, best, cpu, peak;
};

[[noreturn]] void runInChild(const Way& way, int size, int pipe)
{
    Sample sample;
    try {
        const double memory = memoryAtStart();
        const double cpu = ownCpu();
        const auto start = std::chrono::steady_clock::now();
        sample.checksum = way.run(size);
        const std::chrono::duration<double, std::milli> spent =
            std::chrono::steady_clock::now() - start;
        sample.wall = spent.count();
        sample.cpu = ownCpu() - cpu;
        sample.peak = peakMemory(memory);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", way.name.c_str(), failure.what());
        _exit(1);
    }
    _exit(write(pipe, &sample, sizeof sample) == sizeof sample ? 0 : 1);
}

Sample runOnce(const Way& way, int size)
{
    int ends[2];
    const pid_t child = pipe(ends) == 0 ? fork() : -1;
    if (child < 0) {
        throw std::runtime_error("cannot start a process");
    }
    if (child == 0) {
        runInChild(way, size, ends[1]);
    }
    close(ends[1]);
    Sample sample;
    const bool complete = read(ends[0], &sample, sizeof sample) == sizeof sample;
    close(ends[0]);
    if (waitpid(child, nullptr, 0) != child || !complete) {
        throw std::runtime_error(way.name + " failed");
    }
    return sample;
}

// Runs the ways of one scenario and records how much other processes disturbed them.
class Comparison {
public:
    Comparison(const Scenario& scenario, int rounds) : m_scenario(scenario)
    {
        std::vector<std::vector<Sample>> all(scenario.ways.size());
        for (int round = 0; round <= rounds; ++round) {
            for (std::size_t way = 0; way < all.size(); ++way) {
                const Sample sample = undisturbed(scenario.ways[way]);
                if (round > 0) { // round 0 warms up
                    all[way].push_back(sample);
                }
            }
        }
        for (std::size_t way = 0; way < all.size(); ++way) {
            m_lines.push_back({scenario.ways[way].name, median(all[way], &Sample::wall),
                               std::ranges::min(all[way], {}, &Sample::wall).wall,
                               median(all[way], &Sample::cpu), median(all[way], &Sample::peak)});
        }
    }

    void print() const
    {
        std::printf("\n%s\n%-10s %9s %6s %9s %6s %9s %6s %9s\n", m_scenario.title.c_str(), "way",
                    "median ms", "x", "best ms", "x", "CPU ms", "x", "peak MiB");
        const Line& first = m_lines.front();
        for (const Line& line : m_lines) {
            std::printf("%-10s %9.0f %6.2f %9.0f %6.2f %9.0f %6.2f %9.1f\n", line.way.c_str(),
                        line.median, line.median / first.median, line.best, line.best / first.best,
                        line.cpu, line.cpu / first.cpu, line.peak);
        }
        std::printf("%d runs; %d were repeated because other processes took more than %.0f %% of"
                    " the processors, %d count in spite of it; others took %.1f %% at the median\n",
                    m_runs, m_repeated, Disturbance * 100, m_disturbed, medianForeign() * 100);
    }

private:
    Sample undisturbed(const Way& way)
    {
        for (int repetition = 0;; ++repetition) {
            if (m_scenario.before) {
                m_scenario.before(m_scenario.size);
            }
            const ForeignCpu foreign;
            Sample sample = runOnce(way, m_scenario.size);
            const double share = foreign.share();
            compareChecksum(way, sample);
            ++m_runs;
            if (share <= Disturbance || repetition == Repetitions) {
                m_disturbed += share > Disturbance ? 1 : 0;
                m_foreign.push_back(share);
                return sample;
            }
            ++m_repeated;
        }
    }

    void compareChecksum(const Way& way, const Sample& sample)
    {
        const std::uint64_t own =
            m_scenario.written ? m_scenario.written(m_scenario.size) : sample.checksum;
        if (m_checksum.value_or(own) != own) {
            throw std::runtime_error(way.name + " did other work");
        }
        m_checksum = own;
    }

    static double median(std::vector<Sample> samples, double Sample::*member)
    {
        const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
        std::ranges::nth_element(samples, middle, {}, member);
        return (*middle).*member;
    }

    double medianForeign() const
    {
        std::vector<double> shares = m_foreign;
        const auto middle = shares.begin() + static_cast<std::ptrdiff_t>(shares.size() / 2);
        std::ranges::nth_element(shares, middle);
        return *middle;
    }

    const Scenario& m_scenario;
    std::vector<Line> m_lines;
    std::optional<std::uint64_t> m_checksum;
    std::vector<double> m_foreign; // of the runs that count
    int m_runs = 0;
    int m_repeated = 0;
    int m_disturbed = 0;
};

void compare(const std::vector<Scenario>& scenarios, int rounds)
{
    for (const Scenario& scenario : scenarios) {
        const std::optional<OneProcessor> pinned =
            scenario.oneProcessor ? std::optional<OneProcessor>(std::in_place) : std::nullopt;
        Comparison(scenario, rounds).print();
    }
}

void profile(const std::vector<Scenario>& scenarios, const std::string& name, int size)
{
    for (const Scenario& scenario : scenarios) {
        const auto way = std::ranges::find(scenario.ways, name, &Way::name);
        if (way != scenario.ways.end()) {
            if (scenario.before) {
                scenario.before(size);
            }
            const std::uint64_t read = way->run(size);
            std::printf("%016jx\n", static_cast<std::uintmax_t>(
                                        scenario.written ? scenario.written(size) : read));
            return;
        }
    }
    throw std::runtime_error("no such way: " + name);
}

} // namespace

int run(int argc, char** argv, const std::vector<Scenario>& scenarios)
try {
    if (argc == 3) {
        profile(scenarios, argv[1], std::stoi(argv[2]));
    } else {
        compare(scenarios, argc < 2 ? DefaultRounds : std::max(std::stoi(argv[1]), 1));
    }
    return 0;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "%s: %s\n", argv[0], failure.what());
    return 1;
}

} // namespace bench
