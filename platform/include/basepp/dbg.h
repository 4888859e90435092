#pragma once

#include <cstdint>

/// \file
/// Trace lines on standard error, switched by a mask.

#pragma GCC visibility push(default)

/// Points at the process's debug mask, which selects the trace lines that are written. The mask
/// starts as the number in the environment variable BASEPP_DBG_MASK (decimal, hexadecimal after 0x,
/// or octal after 0, as strtoul reads it), or as 0 without that. It is valid before any constructor
/// runs. Programs may change the mask and the pointer while no other thread uses the library.
extern "C" std::uint32_t* basepp_dbg_mask_;

/// Trace lines.
namespace basepp::dbg {

/// Writes one line to standard error: file, line, function, code and the formatted message, cut at
/// 4096 bytes. It does not look at the mask: the caller does that first. The code has no meaning
/// here and is written as given. Any thread may call this; each line is one write, so that lines of
/// different threads do not mix. Never throws; a line that cannot be written is lost.
[[gnu::format(printf, 5, 6)]] void debug(const char* file, int line, const char* function, int code,
                                         const char* format, ...);

} // namespace basepp::dbg

#pragma GCC visibility pop
