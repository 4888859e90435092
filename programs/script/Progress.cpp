#include "Progress.h"

#include <algorithm>
#include <cstdio>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr std::chrono::milliseconds Pause(100);
constexpr double MiB = 1'048'576;

std::size_t columns()
{
    constexpr std::size_t Usual = 80;
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : Usual;
}

} // namespace

Progress::Progress() : m_terminal(isatty(STDERR_FILENO) != 0)
{}

double Progress::seconds() const
{
    return std::chrono::duration<double>(Clock::now() - m_start).count();
}

void Progress::show(std::uint64_t done, std::uint64_t all)
{
    if (!m_terminal || Clock::now() - m_shown < Pause) {
        return;
    }
    m_shown = Clock::now();
    const double read = static_cast<double>(done) / MiB;
    const double rate = read / std::max(seconds(), 0.001);
    std::ostringstream numbers;
    numbers << std::fixed << std::setprecision(1) << read;
    std::string bar;
    if (all != 0) {
        const double whole = static_cast<double>(std::max(all, done)) / MiB;
        const auto left = static_cast<long>((whole - read) / std::max(rate, 0.001));
        numbers << " of " << whole << " MiB  " << rate << " MiB/s  " << left / 60 << ':'
                << std::setw(2) << std::setfill('0') << left % 60 << " left";
        const std::size_t taken = numbers.str().size() + 4; // the brackets and a gap
        const std::size_t room = columns() > taken + 10 ? std::min(columns() - taken - 1, 40UL) : 0;
        if (room != 0) {
            const auto full = static_cast<std::size_t>(static_cast<double>(room) * read / whole);
            bar = '[' + std::string(full, '#') + std::string(room - full, ' ') + "]  ";
        }
    } else {
        numbers << " MiB  " << rate << " MiB/s";
    }
    std::cerr << "\r\33[K" << (bar + numbers.str()).substr(0, columns() - 1) << std::flush;
    m_visible = true;
}

void Progress::clear()
{
    if (m_visible) {
        std::cerr << "\r\33[K" << std::flush;
        m_visible = false;
    }
}

void Progress::end(std::uint64_t done, std::uint64_t statements)
{
    clear();
    if (m_terminal) {
        std::cerr << std::fixed << std::setprecision(1) << static_cast<double>(done) / MiB
                  << " MiB, " << statements << " statements in " << seconds() << " s\n";
    }
}
