#include "Identifier.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

namespace {

constexpr char32_t NoCharacter = 0xFFFD;

// Words with a blank on each side.
constexpr std::string_view Keywords =
    " alignas alignof and and_eq asm auto bitand bitor bool break case catch char char16_t "
    "char32_t char8_t class co_await co_return co_yield compl concept const const_cast "
    "consteval constexpr constinit continue decltype default delete do double "
    "dynamic_cast else enum explicit export extern false float for friend goto if inline "
    "int long mutable namespace new noexcept not not_eq nullptr operator or or_eq private "
    "protected public register reinterpret_cast requires return short signed sizeof "
    "static static_assert static_cast struct switch template this thread_local throw true "
    "try typedef typeid typename union unsigned using virtual void volatile wchar_t while "
    "xor xor_eq ";

// What a record inherits, what the text of RecordClass.cpp names, and macros that are not written
// in capitals.
constexpr std::string_view Taken =
    " DBConnection DBDatabase KYDBTableBase KYDBTableSimple assign dbmap_clear dbmap_init "
    "dbmap_size dump execute get get_error_message get_error_number m_dbmap parse remove "
    "save sql_keys sql_keyupdate sql_keyvalues sql_values table_name sql_valuesforfile "
    "Fetched KYVarRef Kestro database handle std alloca assert errno linux offsetof sched_priority "
    "stderr stdin stdout unix ";

bool isAmong(std::string_view words, const std::string& name)
{
    return words.find(' ' + name + ' ') != std::string_view::npos;
}

bool isAscii(char32_t c)
{
    return c < 0x80;
}

bool isDigit(char32_t c)
{
    return c >= '0' && c <= '9';
}

// Of the letters beyond ASCII those of large alphabets whose every code point is a letter, written
// in one way only.
bool isLetter(char32_t c)
{
    constexpr std::array<std::pair<char32_t, char32_t>, 12> ranges = {{
        {U'A', U'Z'},
        {U'a', U'z'},
        {0xC0, 0xD6},     // Latin
        {0xD8, 0xF6},     //
        {0xF8, 0x24F},    //
        {0x388, 0x38A},   // Greek
        {0x38E, 0x3A1},   //
        {0x3A3, 0x3CE},   //
        {0x400, 0x481},   // Cyrillic
        {0x3041, 0x3096}, // kana
        {0x30A1, 0x30FA}, //
        {0x4E00, 0x9FA5}, // Han
    }};
    const bool hangul = c >= 0xAC00 && c <= 0xD7A3;
    return hangul || std::ranges::any_of(ranges, [c](const auto& range) {
               return c >= range.first && c <= range.second;
           });
}

struct Character {
    char32_t code;
    std::string_view bytes;
};

// The first character of a UTF-8 text that is not empty, or a byte that begins none.
Character firstOf(std::string_view text)
{
    const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    if (isAscii(byte(0))) {
        return {byte(0), text.substr(0, 1)};
    }
    const std::size_t length = byte(0) < 0xE0 ? 2 : byte(0) < 0xF0 ? 3 : 4;
    char32_t code = byte(0) & (0xFFU >> (length + 1));
    for (std::size_t index = 1; index < length; ++index) {
        if (index == text.size() || (byte(index) & 0xC0U) != 0x80) {
            return {NoCharacter, text.substr(0, 1)};
        }
        code = (code << 6U) | (byte(index) & 0x3FU);
    }
    return {code, text.substr(0, length)};
}

template <class Use> void forEachCharacter(std::string_view text, const Use& use)
{
    while (!text.empty()) {
        const Character character = firstOf(text);
        use(character);
        text.remove_prefix(character.bytes.size());
    }
}

char lower(char c)
{
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

// Letters, digits and single underscores between them.
std::string words(std::string_view name)
{
    std::string result;
    bool gap = false;
    forEachCharacter(name, [&](const Character& character) {
        if (!isLetter(character.code) && !isDigit(character.code)) {
            gap = true;
            return;
        }
        if (std::exchange(gap, false) && !result.empty()) {
            result += '_';
        }
        result += character.bytes;
    });
    if (std::ranges::none_of(result, [](char c) { return c >= 'a' && c <= 'z'; })) {
        std::ranges::transform(result, result.begin(), lower);
    }
    return result;
}

} // namespace

std::string className(std::string_view table)
{
    std::string name;
    bool wordBegins = true;
    for (const char c : words(table)) {
        if (c == '_') {
            wordBegins = true;
            continue;
        }
        const bool small = c >= 'a' && c <= 'z';
        name += std::exchange(wordBegins, false) && small ? static_cast<char>(c - 'a' + 'A') : c;
    }
    if (name.empty() || isDigit(static_cast<unsigned char>(name.front()))) {
        name.insert(0, "Table");
    }
    return isClassName(name) ? name : name + "Record";
}

bool isClassName(const std::string& name)
{
    bool valid = !name.empty() && !isDigit(static_cast<unsigned char>(name.front()));
    forEachCharacter(name, [&valid](const Character& character) {
        valid = valid &&
                (isLetter(character.code) || isDigit(character.code) || character.code == U'_');
    });
    return valid && !isAmong(Keywords, name) && !isAmong(Taken, name);
}

std::string VariableNames::add(std::string_view column)
{
    std::string name = words(column);
    if (name.empty() || isDigit(static_cast<unsigned char>(name.front()))) {
        name.insert(0, name.empty() ? "column" : "_");
    }
    if (isAmong(Keywords, name) || isAmong(Taken, name)) {
        name += '_';
    }
    std::string unique = name;
    for (int number = 2; !m_used.insert(unique).second; ++number) {
        unique = name + (name.ends_with('_') ? "" : "_") + std::to_string(number);
    }
    return unique;
}

std::string escaped(std::string_view text)
{
    std::string result;
    const auto octal = [&result](char c) {
        const unsigned byte = static_cast<unsigned char>(c);
        result += '\\';
        for (const unsigned shift : {6U, 3U, 0U}) {
            result += static_cast<char>('0' + ((byte >> shift) & 7U));
        }
    };
    forEachCharacter(text, [&](const Character& character) {
        const char32_t c = character.code;
        // Controls, the line ends of Unicode, and what turns the direction of the text around.
        const bool control = c < 0x20 || (c >= 0x7F && c < 0xA0) || (c >= 0x2028 && c <= 0x202E) ||
                             (c >= 0x2066 && c <= 0x2069);
        if (control || c == NoCharacter) {
            std::ranges::for_each(character.bytes, octal);
            return;
        }
        // A second ? could begin a trigraph.
        if (c == U'"' || c == U'\\' || (c == U'?' && result.ends_with('?'))) {
            result += '\\';
        }
        result += character.bytes;
    });
    return result;
}

std::size_t width(std::string_view text)
{
    std::size_t count = 0;
    forEachCharacter(text, [&count](const Character&) { ++count; });
    return count;
}

std::string shortened(std::string_view text, std::size_t most)
{
    constexpr std::string_view Cut = "...";
    if (width(text) <= most) {
        return std::string(text);
    }
    std::string result;
    std::size_t left = most - std::min(most, Cut.size());
    forEachCharacter(text, [&](const Character& character) {
        if (left > 0) {
            result += character.bytes;
            --left;
        }
    });
    return result.append(Cut);
}
