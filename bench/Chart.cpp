#include "Chart.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace bench {

namespace {

constexpr int Width = 720;
constexpr int Left = 110; // where the bars begin
constexpr int Longest = 430;
constexpr int Title = 44;
constexpr int Step = 26;
constexpr int Gap = 10;

std::size_t heightOf(const Chart& chart)
{
    return Title + Step * chart.bars.size() + Gap;
}

void draw(std::ofstream& svg, const Chart& chart, std::size_t top)
{
    svg << "<text x=\"12\" y=\"" << top + 25 << "\" font-size=\"15\" font-weight=\"bold\">"
        << chart.title << "</text>\n";
    top += Title;
    const Chart::Bar& first = chart.bars.front();
    const double one =
        Longest * first.value / std::ranges::max(chart.bars, {}, &Chart::Bar::value).value;
    std::ostringstream values; // drawn over the line
    for (const Chart::Bar& bar : chart.bars) {
        const std::string_view colour = bar.name == "kestro"     ? "#c2410c"
                                        : bar.name == first.name ? "#57606a"
                                                                 : "#9db4cf";
        const double length = one * bar.value / first.value;
        char text[64];
        std::snprintf(text, sizeof text, "%.2f  (%.0f %s)", bar.value / first.value, bar.value,
                      chart.unit);
        svg << "<text x=\"" << Left - 8 << "\" y=\"" << top + 15 << "\" text-anchor=\"end\">"
            << bar.name << "</text><rect x=\"" << Left << "\" y=\"" << top << "\" width=\""
            << length << "\" height=\"20\" fill=\"" << colour << "\"/>\n";
        values << "<text x=\"" << Left + length + 8 << "\" y=\"" << top + 15
               << "\" stroke=\"#ffffff\" stroke-width=\"4\" paint-order=\"stroke\">" << text
               << "</text>\n";
        top += Step;
    }
    // The line marks the value of the first bar.
    svg << "<line x1=\"" << Left + one << "\" x2=\"" << Left + one << "\" y1=\""
        << top - Step * chart.bars.size() - 4 << "\" y2=\"" << top
        << "\" stroke=\"#24292f\" stroke-dasharray=\"3 3\"/>\n"
        << values.str();
}

} // namespace

std::string takeChartFile(std::vector<std::string>& arguments)
{
    const auto option = std::ranges::find(arguments, "--svg");
    if (option == arguments.end() || option + 1 == arguments.end()) {
        return "";
    }
    std::string file = option[1];
    arguments.erase(option, option + 2);
    return file;
}

void draw(const std::vector<Chart>& charts, const std::string& file)
{
    if (file.empty()) {
        return;
    }
    std::size_t height = 0;
    for (const Chart& chart : charts) {
        height += heightOf(chart);
    }
    std::ofstream svg(file);
    svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << Width << "\" height=\"" << height
        << "\" viewBox=\"0 0 " << Width << ' ' << height
        << "\" font-family=\"sans-serif\" font-size=\"13\" fill=\"#24292f\">\n"
           "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n";
    std::size_t top = 0;
    for (const Chart& chart : charts) {
        draw(svg, chart, top);
        top += heightOf(chart);
    }
    svg << "</svg>\n";
    if (!svg.flush()) {
        throw std::runtime_error("cannot write " + file);
    }
}

} // namespace bench
