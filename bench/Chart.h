#pragma once

#include <string>
#include <vector>

namespace bench {

/// Bars under a title. The other bars are compared with the first one.
struct Chart {
    struct Bar {
        std::string name;
        double value;
    };

    std::string title;
    std::vector<Bar> bars;
    const char* unit; ///< shown after each value
};

/// Takes `--svg FILE` out of a program's arguments; returns the file, "" if there is none.
std::string takeChartFile(std::vector<std::string>& arguments);

/// Draws the charts one below the other into an SVG file. Throws std::runtime_error if the file
/// cannot be written. Does nothing if the file is "".
void draw(const std::vector<Chart>& charts, const std::string& file);

} // namespace bench
