#pragma once

#include <ios>
#include <locale>

namespace Kestro::Database {

/// How a stream that writes SQL writes its numbers: as the classic locale does, but floating-point
/// ones in the shortest form that reads back as the same value, unless the stream has a format
/// or a precision other than the default of 6. NaN and infinity put the stream into failure.
const std::num_put<char>& sqlNumbers();

/// The classic locale with sqlNumbers().
const std::locale& sqlLocale();

/// What sqlNumbers() last refused to write into this stream, in words; null if nothing.
const char* refusedNumber(std::ios_base& stream);

} // namespace Kestro::Database
