#include "Progress.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <sstream>

namespace {

constexpr double MiB = 1'048'576;

} // namespace

double Progress::seconds() const
{
    return std::chrono::duration<double>(Clock::now() - m_start).count();
}

void Progress::show(std::uint64_t done, std::uint64_t all)
{
    if (!m_line.isDue()) {
        return;
    }
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
        const std::size_t width = programs::StatusLine::width();
        const std::size_t room = width > taken + 9 ? std::min(width - taken, 40UL) : 0;
        if (room != 0) {
            const auto full = static_cast<std::size_t>(static_cast<double>(room) * read / whole);
            bar = '[' + std::string(full, '#') + std::string(room - full, ' ') + "]  ";
        }
    } else {
        numbers << " MiB  " << rate << " MiB/s";
    }
    m_line.show(bar + numbers.str());
}

void Progress::end(std::uint64_t done, std::uint64_t statements)
{
    m_line.clear();
    if (m_line.isTerminal()) {
        std::cerr << std::fixed << std::setprecision(1) << static_cast<double>(done) / MiB
                  << " MiB, " << statements << " statements in " << seconds() << " s\n";
    }
}
