#include "SqlStream.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>

namespace Kestro::Database {

namespace {

constexpr std::streamsize DefaultPrecision = 6; // every new stream has it
constexpr const char* Refusals[] = {nullptr, "SQL has no NaN", "SQL has no infinity"};

// The place where a stream keeps which of the refusals it met.
int refusalSlot()
{
    static const int slot = std::ios_base::xalloc();
    return slot;
}

class SqlNumbers : public std::num_put<char> {
public:
    // Counts a reference of our own, so that no locale deletes it.
    SqlNumbers() : std::num_put<char>(1) {}

protected:
    iter_type do_put(iter_type out, std::ios_base& stream, char fill, double value) const override
    {
        return put(out, stream, fill, value);
    }
    iter_type do_put(iter_type out, std::ios_base& stream, char fill,
                     long double value) const override
    {
        return put(out, stream, fill, value);
    }
    using std::num_put<char>::do_put;

private:
    template <class T> iter_type put(iter_type out, std::ios_base& stream, char fill, T value) const
    {
        if (!std::isfinite(value)) {
            stream.iword(refusalSlot()) = std::isnan(value) ? 1 : 2;
            return {nullptr};
        }
        if ((stream.flags() & std::ios_base::floatfield) != 0 ||
            stream.precision() != DefaultPrecision) {
            return std::num_put<char>::do_put(out, stream, fill, value);
        }
        char digits[40]; // a long double has 21, a sign, a point and an exponent of 6
        char* const end = std::to_chars(std::begin(digits), std::end(digits), value).ptr;
        const auto padding = std::max<std::streamsize>(0, stream.width(0) - (end - digits));
        const bool left = (stream.flags() & std::ios_base::adjustfield) == std::ios_base::left;
        out = std::fill_n(out, left ? 0 : padding, fill);
        out = std::copy(digits, end, out);
        return std::fill_n(out, left ? padding : 0, fill);
    }
};

} // namespace

const std::num_put<char>& sqlNumbers()
{
    // Never destroyed, since destructors of the program's statics may write statements.
    static const auto& numbers = *new SqlNumbers();
    return numbers;
}

const std::locale& sqlLocale()
{
    static const auto& locale =
        *new std::locale(std::locale::classic(), const_cast<std::num_put<char>*>(&sqlNumbers()));
    return locale;
}

const char* refusedNumber(std::ios_base& stream)
{
    return Refusals[stream.iword(refusalSlot())];
}

} // namespace Kestro::Database
