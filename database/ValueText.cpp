#include <Kestro/Database/ValueText.h>

#include <Kestro/Exception.h>

#include <charconv>
#include <cmath>
#include <iterator>

namespace Kestro::Database {

namespace {

using namespace std::chrono;

constexpr char File[] = "ValueText";
constexpr unsigned NoNumberLine = 1;
constexpr unsigned NoDateLine = 2;
constexpr unsigned NoTimeLine = 3;

// Enough for every digit, a sign, a point and an exponent.
constexpr std::size_t NumberSize = 32;

// Takes `count` digits off the start of the text, or with 0 all there are, if an int can hold them.
bool take(std::string_view& text, std::size_t count, int& number)
{
    constexpr std::size_t Most = 9;
    std::size_t length = text.find_first_not_of("0123456789");
    length = length == std::string_view::npos ? text.size() : length;
    if (count > 0 ? length < count : length == 0 || length > Most) {
        return false;
    }
    length = count > 0 ? count : length;
    std::from_chars(text.data(), text.data() + length, number);
    text.remove_prefix(length);
    return true;
}

bool take(std::string_view& text, char mark)
{
    if (!text.starts_with(mark)) {
        return false;
    }
    text.remove_prefix(1);
    return true;
}

void append(std::string& text, std::int64_t number, std::size_t width)
{
    const std::string digits = std::to_string(number);
    text.append(digits.size() < width ? width - digits.size() : 0, '0').append(digits);
}

bool takeDate(std::string_view& text, year_month_day& date)
{
    int year = 0;
    int month = 0;
    int day = 0;
    if (!take(text, 4, year) || !take(text, '-') || !take(text, 2, month) || !take(text, '-') ||
        !take(text, 2, day)) {
        return false;
    }
    date = {std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
            std::chrono::day(static_cast<unsigned>(day))};
    return date.ok();
}

// hh:mm:ss, and up to six digits behind a point.
bool takeTime(std::string_view& text, detail::Microseconds& time)
{
    int hour = 0;
    int minute = 0;
    int second = 0;
    if (!take(text, 0, hour) || !take(text, ':') || !take(text, 2, minute) || !take(text, ':') ||
        !take(text, 2, second) || minute > 59 || second > 59) {
        return false;
    }
    int fraction = 0;
    if (take(text, '.')) {
        const std::size_t digits = text.size();
        if (digits > 6 || !take(text, digits, fraction)) {
            return false;
        }
        for (std::size_t i = digits; i < 6; ++i) {
            fraction *= 10;
        }
    }
    time = hours(hour) + minutes(minute) + seconds(second) + microseconds(fraction);
    return true;
}

} // namespace

namespace detail {

template <class T> void NumberText<T>::append(std::string& text, const T& value)
{
    if constexpr (std::same_as<T, bool>) {
        text += value ? '1' : '0';
    } else {
        if constexpr (std::floating_point<T>) {
            if (!std::isfinite(value)) {
                throw Exception(std::isnan(value) ? "SQL has no NaN" : "SQL has no infinity", 4,
                                File, NoNumberLine);
            }
        }
        char digits[NumberSize];
        text.append(digits, std::to_chars(std::begin(digits), std::end(digits), value).ptr);
    }
}

template <class T> bool NumberText<T>::parse(std::string_view text, T& value)
{
    if constexpr (std::same_as<T, bool>) {
        const bool isTrue = text == "1" || text == std::string_view("\1", 1);
        if (!isTrue && text != "0" && text != std::string_view("\0", 1)) {
            return false;
        }
        value = isTrue;
        return true;
    } else {
        const char* const end = text.data() + text.size();
        T read{};
        const auto [behind, error] = std::from_chars(text.data(), end, read);
        if (error != std::errc() || behind != end) {
            return false;
        }
        if constexpr (std::floating_point<T>) {
            if (!std::isfinite(read)) { // from_chars accepts "nan" and "inf"
                return false;
            }
        }
        value = read;
        return true;
    }
}

template struct NumberText<bool>;
template struct NumberText<signed char>;
template struct NumberText<unsigned char>;
template struct NumberText<short>;
template struct NumberText<unsigned short>;
template struct NumberText<int>;
template struct NumberText<unsigned>;
template struct NumberText<long>;
template struct NumberText<unsigned long>;
template struct NumberText<long long>;
template struct NumberText<unsigned long long>;
template struct NumberText<float>;
template struct NumberText<double>;

} // namespace detail

void ValueText<year_month_day>::append(std::string& text, const year_month_day& value)
{
    const int year = static_cast<int>(value.year());
    if (!value.ok() || year < 0 || year > 9999) {
        throw Exception("SQL has no such date", 4, File, NoDateLine);
    }
    Database::append(text, year, 4);
    text += '-';
    Database::append(text, static_cast<unsigned>(value.month()), 2);
    text += '-';
    Database::append(text, static_cast<unsigned>(value.day()), 2);
}

bool ValueText<year_month_day>::parse(std::string_view text, year_month_day& value)
{
    year_month_day read;
    if (!takeDate(text, read) || !text.empty()) {
        return false;
    }
    value = read;
    return true;
}

namespace detail {

void appendDay(std::string& text, sys_days value)
{
    // A year_month_day takes the low 16 bits of a year.
    const bool isDate =
        value >= sys_days(year(0) / 1 / 1) && value <= sys_days(year(9999) / 12 / 31);
    ValueText<year_month_day>::append(text, isDate ? year_month_day(value) : year_month_day());
}

void appendMoment(std::string& text, sys_time<Microseconds> value)
{
    const auto day = floor<days>(value);
    appendDay(text, day);
    text += ' ';
    appendTime(text, value - day);
}

bool parseMoment(std::string_view text, sys_time<Microseconds>& value)
{
    year_month_day date;
    Microseconds time{};
    if (!takeDate(text, date) || (take(text, ' ') && !(takeTime(text, time) && time < days(1))) ||
        !text.empty()) {
        return false;
    }
    value = sys_days(date) + time;
    return true;
}

void appendTime(std::string& text, Microseconds value)
{
    constexpr Microseconds Limit = hours(839); // of the server's TIME
    if (value <= -Limit || value >= Limit) {
        throw Exception("SQL has no such time", 4, File, NoTimeLine);
    }
    const hh_mm_ss parts(value);
    text += parts.is_negative() ? "-" : "";
    append(text, parts.hours().count(), 2);
    text += ':';
    append(text, parts.minutes().count(), 2);
    text += ':';
    append(text, parts.seconds().count(), 2);
    if (parts.subseconds().count() != 0) {
        text += '.';
        append(text, parts.subseconds().count(), 6);
    }
}

bool parseTime(std::string_view text, Microseconds& value)
{
    const bool negative = take(text, '-');
    Microseconds read{};
    if (!takeTime(text, read) || !text.empty()) {
        return false;
    }
    value = negative ? -read : read;
    return true;
}

} // namespace detail

} // namespace Kestro::Database
