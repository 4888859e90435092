#pragma once

#include <chrono>
#include <cstdint>
#include <string>

/// A bar on standard error that shows how much of the scripts has been read. Without a terminal
/// there it shows nothing.
class Progress {
public:
    Progress();

    /// Shows the bytes done of so many, 0 if that is not known; at most ten times a second.
    void show(std::uint64_t done, std::uint64_t all);
    /// Takes the bar away, so that something else may be printed.
    void clear();
    /// Takes the bar away and leaves a line about the whole.
    void end(std::uint64_t done, std::uint64_t statements);

private:
    using Clock = std::chrono::steady_clock;

    double seconds() const;

    const bool m_terminal;
    const Clock::time_point m_start = Clock::now();
    Clock::time_point m_shown{};
    bool m_visible = false;
};
