#pragma once

#include <cstdint>
#include <string>

namespace programs {

/// How every program ends.
enum ExitStatus : std::uint8_t { Success = 0, Failure = 1, WrongUsage = 2 };

/// Name and usage of a program. The usage is what --help prints, in the usual form: lines "Usage:
/// ", what the program does, an option a line, the exit status.
struct Program {
    const char* name;
    const char* usage;

    /// Whether the only argument is --help or --version, which then has been answered.
    bool answers(int argc, const char* const* argv) const;
    /// Prints a message to standard error.
    void tell(const std::string& message) const;
    /// Print a message to standard error, the second one with the usage, and return the status.
    int fail(const std::string& message) const;
    int misused(const std::string& message) const;
    /// fail() for a connection that could not be opened, with the server's reason: which socket was
    /// tried, who named it, and what to do.
    int failToConnect(const std::string& reason) const;
};

/// The text on one line: control characters become blanks, so that none reaches the terminal.
std::string onOneLine(std::string text);

} // namespace programs
