#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// Runs several ways of doing the same work in turns and compares them.
namespace bench {

/// One way of doing the work. run(size) does it once, with that many rows or statements, and
/// returns a checksum of what it read. A way that writes returns 0; Scenario::written checks it
/// instead.
struct Way {
    std::string name;
    std::function<std::uint64_t(int size)> run;
};

/// One comparison, shown as one table.
struct Scenario {
    std::string title;
    int size;
    std::vector<Way> ways; ///< the others are compared with the first
    /// Called before every run; not timed.
    std::function<void(int size)> before = {};
    /// Returns a checksum of what a way wrote. Called after every run; not timed.
    std::function<std::uint64_t(int size)> written = {};
    /// Whether client and server share one processor. Where each statement waits for the one
    /// before, a second processor does not help, and on one the time does not depend on where the
    /// scheduler puts the two.
    bool oneProcessor = false;
};

/// The main() of a measuring program:
///
///     PROGRAM [ROUNDS]    compares the ways and prints tables
///     PROGRAM WAY SIZE    does one way's work once, in this process, for a profiler
///
/// Each run is a process of its own, so that its peak of memory is its own. Every way runs once in
/// every round, so that a slow spell of the machine hits all of them. One round before the others
/// warms up and does not count. A run is repeated if other processes took too much processor time
/// meanwhile; its own result makes no difference. The program fails if the ways' checksums differ.
int run(int argc, char** argv, const std::vector<Scenario>& scenarios);

} // namespace bench
