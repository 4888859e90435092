#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace programs {

/// One line on standard error that shows how far a program is. Without a terminal there it shows
/// nothing.
class StatusLine {
public:
    StatusLine();
    ~StatusLine() { clear(); }
    StatusLine(const StatusLine&) = delete;
    StatusLine& operator=(const StatusLine&) = delete;

    bool isTerminal() const { return m_terminal; }
    /// Whether the line should be shown again: on a terminal, and at most ten times a second.
    bool isDue() const;
    /// How many characters fit.
    static std::size_t width();
    /// Shows the text, in ASCII, in place of the last one and cut to the width.
    void show(const std::string& text);
    /// Removes the line, so that something else may be printed.
    void clear();

private:
    using Clock = std::chrono::steady_clock;

    const bool m_terminal;
    Clock::time_point m_shown{};
    bool m_visible = false;
};

} // namespace programs
