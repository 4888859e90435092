#include <basepp/dbg.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace {

std::uint32_t maskWord = 0;

// Runs when the library is loaded, before the program's own constructors.
[[gnu::constructor]] void readMask()
{
    if (const char* mask = std::getenv("BASEPP_DBG_MASK")) {
        maskWord = static_cast<std::uint32_t>(std::strtoul(mask, nullptr, 0));
    }
}

} // namespace

std::uint32_t* basepp_dbg_mask_ = &maskWord;

namespace basepp::dbg {

void debug(const char* file, int line, const char* function, int code, const char* format, ...)
{
    constexpr std::size_t LineLimit = 4096;
    char text[LineLimit];
    // snprintf returns the length that the text would have uncut. What it wrote ends with a NUL.
    const auto advance = [](std::size_t used, int length) {
        return std::min(used + static_cast<std::size_t>(std::max(length, 0)), LineLimit - 1);
    };
    std::size_t used =
        advance(0, std::snprintf(text, sizeof text, "%s:%d %s %d: ", file, line, function, code));
    va_list arguments;
    va_start(arguments, format);
    used = advance(used, std::vsnprintf(text + used, sizeof text - used, format, arguments));
    va_end(arguments);
    // Line breaks of a statement would make it several lines.
    std::replace_if(
        text, text + used, [](char c) { return c == '\n' || c == '\r'; }, ' ');
    text[used] = '\n';
    [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text, used + 1);
}

} // namespace basepp::dbg
