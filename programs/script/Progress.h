#pragma once

#include "StatusLine.h"

#include <chrono>
#include <cstdint>

/// A bar on standard error that shows how much of the scripts has been read. Without a terminal
/// there it shows nothing.
class Progress {
public:
    /// Shows the bytes done of so many, 0 if that is not known; at most ten times a second.
    void show(std::uint64_t done, std::uint64_t all);
    /// Takes the bar away, so that something else may be printed.
    void clear() { m_line.clear(); }
    /// Takes the bar away and leaves a line about the whole.
    void end(std::uint64_t done, std::uint64_t statements);

private:
    using Clock = std::chrono::steady_clock;

    double seconds() const;

    const Clock::time_point m_start = Clock::now();
    programs::StatusLine m_line;
};
