#include "Measure.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

namespace {

using Samples = std::vector<Sample>;

[[noreturn]] void runInChild(const Way& way, int pipe)
{
    Sample sample{};
    try {
        const auto start = std::chrono::steady_clock::now();
        sample.checksum = way.run();
        const std::chrono::duration<double, std::milli> spent =
            std::chrono::steady_clock::now() - start;
        sample.wall = spent.count();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", way.name.c_str(), failure.what());
        _exit(1);
    }
    _exit(write(pipe, &sample, sizeof sample) == sizeof sample ? 0 : 1);
}

double milliseconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

double best(const Samples& samples, double Sample::*member)
{
    return std::ranges::min(samples, {}, member).*member;
}

double median(Samples samples, double Sample::*member)
{
    const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
    std::ranges::nth_element(samples, middle, {}, member);
    return (*middle).*member;
}

} // namespace

Sample measure(const Way& way)
{
    int ends[2];
    const pid_t child = pipe(ends) == 0 ? fork() : -1;
    if (child < 0) {
        throw std::runtime_error("cannot start a process");
    }
    if (child == 0) {
        runInChild(way, ends[1]);
    }
    close(ends[1]);
    Sample sample{};
    const bool complete = read(ends[0], &sample, sizeof sample) == sizeof sample;
    close(ends[0]);
    rusage usage{};
    if (wait4(child, nullptr, 0, &usage) != child || !complete) {
        throw std::runtime_error(way.name + " failed");
    }
    sample.cpu = milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
    sample.peak = static_cast<double>(usage.ru_maxrss) / 1024;
    return sample;
}

void compare(const std::vector<Way>& ways, int rounds)
{
    const std::uint64_t checksum = measure(ways.front()).checksum;
    std::vector<Samples> all(ways.size());
    for (int round = 0; round <= rounds; ++round) {
        for (std::size_t way = 0; way < ways.size(); ++way) {
            const Sample sample = measure(ways[way]);
            if (sample.checksum != checksum) {
                throw std::runtime_error(ways[way].name + " did other work");
            }
            if (round > 0) { // round 0 warms up
                all[way].push_back(sample);
            }
        }
    }
    std::printf("%-16s %9s %6s %9s %6s %9s %6s %9s\n", "way", "median ms", "x", "best ms", "x",
                "CPU ms", "x", "peak MiB");
    for (std::size_t way = 0; way < ways.size(); ++way) {
        const Samples& own = all[way];
        const Samples& raw = all[way - way % 2];
        const double wall = median(own, &Sample::wall);
        const double least = best(own, &Sample::wall);
        const double cpu = median(own, &Sample::cpu);
        std::printf("%-16s %9.0f %6.2f %9.0f %6.2f %9.0f %6.2f %9.1f\n", ways[way].name.c_str(),
                    wall, wall / median(raw, &Sample::wall), least,
                    least / best(raw, &Sample::wall), cpu, cpu / median(raw, &Sample::cpu),
                    median(own, &Sample::peak));
    }
}

} // namespace bench
