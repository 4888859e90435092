#pragma once

#include <cstdint>

/// Measures several ways of doing the same work with Google Benchmark.
namespace bench {

/// Work that can be done in several ways. Each way is registered as the benchmark NAME/WAY.
struct Scenario {
    const char* name;
    int size; ///< how many rows or statements
    /// Called before every run with the size of the run; not timed.
    void (*before)(int size);
    /// Returns a checksum of what a way wrote. Called after every run; not timed. Null if the ways
    /// only read.
    std::uint64_t (*written)() = nullptr;

    /// Registers a way; the others are compared with the way "raw". run(size) does the work once
    /// and returns a checksum of what it read, or 0 if it only writes. If two ways have different
    /// checksums, the program fails. The heap has no free memory when a run starts, so the peak
    /// that is shown is the run's own. Returns true, so that it can be called before main().
    bool measure(const char* way, std::uint64_t (*run)(int size)) const;
};

} // namespace bench
