#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// Runs ways of doing the same work in turns and compares them.
namespace bench {

/// One way; run() does the work once and returns a checksum of what it read or wrote. The first of
/// each pair in a list of ways is the raw client's, which the second is compared with.
struct Way {
    std::string name;
    std::function<std::uint64_t()> run;
};

/// What one run tells.
struct Sample {
    double wall; ///< milliseconds, as is cpu
    double cpu;
    double peak; ///< MiB
    std::uint64_t checksum;
};

/// Runs a way once, in a process of its own, so that its peak of memory is its own. Throws
/// std::runtime_error if it fails.
Sample measure(const Way& way);

/// Runs every way in every round, so that a slow spell of the machine hits all of them, after one
/// round that warms up, and prints a table. Throws std::runtime_error if the checksums differ.
void compare(const std::vector<Way>& ways, int rounds);

} // namespace bench
