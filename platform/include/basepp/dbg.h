#pragma once

#include <cstdint>

/// \file
/// Trace lines on standard error, switched by a mask.

#pragma GCC visibility push(default)

/// Points at the process's debug mask: which trace lines are written. The word starts at 0, or at
/// the number in the environment variable BASEPP_DBG_MASK (as strtoul reads it: decimal,
/// hexadecimal after 0x, octal after 0), and is valid before any constructor runs. Programs may
/// change the word and the pointer while no other thread uses the library.
extern "C" std::uint32_t* basepp_dbg_mask_;

/// Trace lines.
namespace basepp::dbg {

/// Writes one line to standard error: file, line, function and the text made from the printf
/// format, in one write, cut at 4096 bytes. It writes always: the caller looks at the mask first.
/// The fourth argument is the caller's own code and is shown as given. Any thread may call it;
/// lines of different threads do not mix. Never throws; a line that cannot be written is lost.
[[gnu::format(printf, 5, 6)]] void debug(const char* file, int line, const char* function, int code,
                                         const char* format, ...);

} // namespace basepp::dbg

#pragma GCC visibility pop
