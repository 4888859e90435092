#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// Runs ways of doing the same work in turns and compares them.
namespace bench {

/// One way of doing the work: run(size) does it once, so many rows or statements of it, and returns
/// a checksum of what it read. A way that writes returns 0: Scenario::written looks instead.
struct Way {
    std::string name;
    std::function<std::uint64_t(int size)> run;
};

/// What is compared: one table, one chart.
struct Scenario {
    std::string title;
    int size;
    std::vector<Way> ways; ///< the first is what the others are compared with
    /// Done in front of every run, outside its time.
    std::function<void(int size)> before = {};
    /// The checksum of what a way wrote, taken behind its run, outside its time.
    std::function<std::uint64_t(int size)> written = {};
    /// Whether client and server share one processor. For statements that wait for each other it
    /// does not matter how many there are, and where the two are put by chance does not count.
    bool oneProcessor = false;
};

/// The main() of a measuring program:
///
///     PROGRAM [ROUNDS] [--svg FILE]   compares the ways and prints tables, and draws them
///     PROGRAM WAY SIZE                does one way's work once, in this process, for a profiler
///
/// Each run has a process of its own, so that its peak of memory is its own. Every way runs in
/// every round, so that a slow spell of the machine hits all of them, after one round that warms
/// up. A run during which other processes took too much of the machine is repeated: the rule looks
/// at their processor time alone, never at the result. Ways that differ in their checksums are a
/// failure.
int run(int argc, char** argv, const std::vector<Scenario>& scenarios);

} // namespace bench
