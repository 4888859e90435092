#include "Text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <iterator>

namespace client {

namespace {

constexpr std::string_view Blanks = " \t\n\v\f\r;";

bool isWordCharacter(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '$' || (c & 0x80);
}

// Word is in capitals.
bool equals(std::string_view text, std::string_view word)
{
    return std::ranges::equal(text, word, {}, [](char c) {
        return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    });
}

bool isOneOf(std::string_view text, const auto& words)
{
    return std::ranges::any_of(words, [&](std::string_view word) { return equals(text, word); });
}

// The words of a text, and the other characters one by one; literals, quoted names, comments and
// blanks are left out, comments that the server executes are not.
class Tokens {
public:
    explicit Tokens(std::string_view text) : m_rest(text) {}

    // Empty at the end.
    std::string_view next()
    {
        while (!m_rest.empty()) {
            const char c = m_rest.front();
            if (c == '"' || c == '\'' || c == '`') {
                skipQuoted(c);
            } else if (c == '#' ||
                       (m_rest.starts_with("--") && (m_rest.size() == 2 || m_rest[2] <= ' '))) {
                skipThrough("\n");
            } else if (m_rest.starts_with("/*!") || m_rest.starts_with("/*M!")) {
                m_rest.remove_prefix(2);
            } else if (m_rest.starts_with("/*")) {
                skipThrough("*/");
            } else if (isWordCharacter(c)) {
                const auto* const end = std::ranges::find_if_not(m_rest, isWordCharacter);
                return take(static_cast<std::size_t>(end - m_rest.data()));
            } else if (std::isspace(static_cast<unsigned char>(c)) != 0) {
                m_rest.remove_prefix(1);
            } else {
                return take(1);
            }
        }
        return {};
    }

private:
    std::string_view take(std::size_t length)
    {
        const std::string_view token = m_rest.substr(0, length);
        m_rest.remove_prefix(length);
        return token;
    }
    void skipThrough(std::string_view end)
    {
        const std::size_t found = m_rest.find(end);
        m_rest.remove_prefix(found != std::string_view::npos ? found + end.size() : m_rest.size());
    }
    void skipQuoted(char quote)
    {
        std::size_t i = 1;
        while (i < m_rest.size() && m_rest[i] != quote) {
            if (m_rest[i] == '\\' && quote != '`') {
                ++i;
            }
            ++i;
        }
        m_rest.remove_prefix(std::min(i + 1, m_rest.size()));
    }

    std::string_view m_rest;
};

bool names(std::string_view text, const auto& words)
{
    Tokens tokens(text);
    for (std::string_view token = tokens.next(); !token.empty(); token = tokens.next()) {
        if (isOneOf(token, words)) {
            return true;
        }
    }
    return false;
}

// One INSERT, REPLACE, UPDATE, DELETE or SELECT, without a variable and without GET_LOCK: what
// nearly every text is, so it is not taken apart.
bool isPlainQuery(std::string_view text)
{
    static constexpr std::array<std::string_view, 5> Kinds = {"SELECT", "INSERT", "UPDATE",
                                                              "DELETE", "REPLACE"};
    const bool kind = std::ranges::any_of(Kinds, [&](std::string_view word) {
        return text.size() > word.size() && equals(text.substr(0, word.size()), word) &&
               !isWordCharacter(text[word.size()]);
    });
    if (!kind || text.find('@') != std::string_view::npos ||
        text.find(';') < text.find_last_not_of(Blanks)) {
        return false;
    }
    for (std::size_t i = text.find('_'); i < text.size() - 1; i = text.find('_', i + 1)) {
        if (text[i + 1] == 'L' || text[i + 1] == 'l') {
            return false;
        }
    }
    return true;
}

} // namespace

bool isBlank(std::string_view text)
{
    return text.find_first_not_of(Blanks) == std::string_view::npos;
}

bool leavesUnseen(std::string_view text)
{
    if (isPlainQuery(text)) {
        return false;
    }
    static constexpr std::array<std::string_view, 5> Words = {"@", "LOCK", "GET_LOCK", "EXPORT",
                                                              "EXECUTE"};
    Tokens tokens(text);
    std::string_view before;
    for (std::string_view token = tokens.next(); !token.empty(); token = tokens.next()) {
        if (isOneOf(token, Words) || (equals(before, "SET") && equals(token, "TRANSACTION"))) {
            return true;
        }
        before = token;
    }
    return false;
}

bool leavesNothingIfRefused(std::string_view text)
{
    static constexpr std::array<std::string_view, 15> Ordinary = {
        "SELECT", "INSERT", "REPLACE",  "UPDATE", "DELETE", "LOAD",     "WITH",   "CREATE",
        "DROP",   "ALTER",  "TRUNCATE", "SHOW",   "DESC",   "DESCRIBE", "EXPLAIN"};
    Tokens tokens(text);
    if (!isOneOf(tokens.next(), Ordinary)) {
        return false;
    }
    std::string_view token = tokens.next();
    while (!token.empty() && token != ";") {
        token = tokens.next();
    }
    return tokens.next().empty();
}

bool asksAboutTheLast(std::string_view text)
{
    static constexpr std::array<std::string_view, 8> Words = {
        "@",          "LAST_INSERT_ID", "LASTVAL",  "ROW_COUNT",
        "FOUND_ROWS", "ERRORS",         "WARNINGS", "DIAGNOSTICS"};
    return names(text, Words);
}

} // namespace client
