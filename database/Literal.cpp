#include <Kestro/Database/Literal.h>

#include "Escaped.h"

#include <Kestro/Exception.h>

namespace Kestro::Database {

namespace {

constexpr char File[] = "Literal";
constexpr unsigned NoNameLine = 1;

} // namespace

std::string literal(std::string_view text)
{
    std::string quoted = "\"";
    appendEscaped(quoted, text);
    quoted += '"';
    return quoted;
}

std::string literal(const char* text)
{
    return text != nullptr ? literal(std::string_view(text)) : literal(nullptr);
}

std::string literal(std::nullptr_t)
{
    return "NULL";
}

std::string identifier(std::string_view name)
{
    if (name.empty() || name.find('\0') != std::string_view::npos) {
        throw Exception(name.empty() ? "an identifier is not empty" : "an identifier has no NUL", 4,
                        File, NoNameLine);
    }
    std::string quoted = "`";
    for (const char c : name) {
        quoted.append(c == '`' ? 2 : 1, c);
    }
    quoted += '`';
    return quoted;
}

} // namespace Kestro::Database
