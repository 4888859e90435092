#include "StatusLine.h"

#include <iostream>
#include <sys/ioctl.h>
#include <unistd.h>

namespace programs {

namespace {

constexpr std::chrono::milliseconds Pause(100);

} // namespace

StatusLine::StatusLine() : m_terminal(isatty(STDERR_FILENO) != 0)
{}

bool StatusLine::isDue() const
{
    return m_terminal && Clock::now() - m_shown >= Pause;
}

std::size_t StatusLine::width()
{
    constexpr std::size_t Usual = 80;
    winsize size{};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
    return (known ? size.ws_col : Usual) - 1; // a full line would wrap
}

void StatusLine::show(const std::string& text)
{
    if (m_terminal) {
        m_shown = Clock::now();
        std::cerr << "\r\33[K" << text.substr(0, width()) << std::flush;
        m_visible = true;
    }
}

void StatusLine::clear()
{
    if (m_visible) {
        std::cerr << "\r\33[K" << std::flush;
        m_visible = false;
    }
}

} // namespace programs
