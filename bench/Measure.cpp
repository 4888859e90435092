#include "Measure.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <exception>
#include <fstream>
#include <malloc.h>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {

namespace {

int sizeOfAll = 0;

// The value of a line of /proc/self/status, in MiB.
double memory(const std::string& name)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(name)) {
            return std::stod(line.substr(name.size())) / 1024;
        }
    }
    throw std::runtime_error("/proc/self/status has no " + name);
}

double memoryAtStart()
{
    malloc_trim(0);
    if (!(std::ofstream("/proc/self/clear_refs") << 5 << std::flush)) {
        throw std::runtime_error("the peak of memory cannot be reset");
    }
    return memory("VmRSS:");
}

void measureOnce(const Scenario& scenario, std::uint64_t (*run)(int), benchmark::State& state)
{
    static std::map<std::string, std::uint64_t> checksums;
    const int size = sizeOfAll != 0 ? sizeOfAll : scenario.size;
    scenario.before(size);
    const double atStart = memoryAtStart();
    std::uint64_t checksum = 0;
    for ([[maybe_unused]] const auto once : state) {
        checksum = run(size);
    }
    state.counters["peak MiB"] = memory("VmHWM:") - atStart;
    if (scenario.written != nullptr) {
        checksum = scenario.written();
    }
    if (checksums.emplace(scenario.name, checksum).first->second != checksum) {
        throw std::runtime_error(std::string(scenario.name) + ": the ways did different work");
    }
}

// Prints a table of medians for each scenario, with their ratios to the way "raw".
class Tables : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& /*context*/) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            if (run.repetitions == 1 || run.aggregate_name == "median") {
                const std::string& name = run.run_name.function_name;
                const std::size_t slash = name.find('/');
                m_medians[name.substr(0, slash)][name.substr(slash + 1)] = run;
            }
        }
    }

    void Finalize() override
    {
        for (const auto& [scenario, ways] : m_medians) {
            const Run& base = ways.contains("raw") ? ways.at("raw") : ways.begin()->second;
            std::printf("\n%s\n%-10s %9s %6s %9s %6s", scenario.c_str(), "way", "median ms", "x",
                        "CPU ms", "x");
            for (const auto& [counter, value] : base.counters) {
                std::printf(" %10s", counter.c_str());
            }
            std::printf("\n");
            for (const auto& [way, run] : ways) {
                const double time = run.GetAdjustedRealTime();
                const double cpu = run.GetAdjustedCPUTime();
                std::printf("%-10s %9.0f %6.2f %9.0f %6.2f", way.c_str(), time,
                            time / base.GetAdjustedRealTime(), cpu,
                            cpu / base.GetAdjustedCPUTime());
                for (const auto& [counter, value] : run.counters) {
                    std::printf(" %10.1f", value.value);
                }
                std::printf("\n");
            }
        }
    }

private:
    std::map<std::string, std::map<std::string, Run>> m_medians; // by scenario and way
};

} // namespace

bool Scenario::measure(const char* way, std::uint64_t (*run)(int size)) const
{
    benchmark::RegisterBenchmark(
        (std::string(name) + '/' + way).c_str(),
        [scenario = *this, run](benchmark::State& state) { measureOnce(scenario, run, state); })
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond)
        ->MeasureProcessCPUTime();
    return true;
}

} // namespace bench

// Options are those of Google Benchmark; a number is the size of every run but contention's.
int main(int argc, char** argv)
try {
    benchmark::Initialize(&argc, argv);
    if (argc > 1) {
        bench::sizeOfAll = std::stoi(argv[1]);
    }
    bench::Tables tables;
    benchmark::RunSpecifiedBenchmarks(&tables);
    return 0;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "%s: %s\n", argv[0], failure.what());
    return 1;
}
