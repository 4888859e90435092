#pragma once

#include <string>
#include <vector>

namespace bench {

/// Bars under a title, the first of which is what the others are compared with.
struct Chart {
    struct Bar {
        std::string name;
        double value;
    };

    std::string title;
    std::vector<Bar> bars;
    const char* unit; ///< of the values, to be shown behind them
};

/// Takes `--svg FILE` out of a program's arguments; returns the file, "" if there is none.
std::string takeChartFile(std::vector<std::string>& arguments);

/// Draws the charts one under the other, as SVG. Throws std::runtime_error if the file cannot be
/// written. Without a file it does nothing.
void draw(const std::vector<Chart>& charts, const std::string& file);

} // namespace bench
