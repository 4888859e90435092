#include "Text.h"

#include "Functions.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>

namespace client {

namespace {

// Whether the server skips the character around a statement.
bool isBlank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r') || c == ';';
}

constexpr auto WordCharacters = [] {
    std::array<bool, UCHAR_MAX + 1> table{};
    for (int c = 0; c <= UCHAR_MAX; ++c) {
        table[static_cast<std::size_t>(c)] = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') ||
                                             (c >= 'a' && c <= 'z') || c == '_' || c == '$' ||
                                             c >= 0x80;
    }
    return table;
}();

bool isWordCharacter(char c)
{
    return WordCharacters[static_cast<unsigned char>(c)];
}

char capital(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

// The word must be in capitals.
bool equals(std::string_view text, std::string_view word)
{
    return std::ranges::equal(text, word, {}, capital);
}

bool capitalsStartWith(std::string_view text, std::string_view word)
{
    return text.size() >= word.size() && equals(text.substr(0, word.size()), word);
}

bool isOneOf(std::string_view text, const auto& words)
{
    return std::ranges::any_of(words, [&](std::string_view word) { return equals(text, word); });
}

// The first six letters as a number, in capitals.
constexpr std::uint64_t sixLetters(std::string_view text)
{
    std::uint64_t letters = 0;
    for (unsigned i = 0; i < 6; ++i) {
        letters |= std::uint64_t{static_cast<unsigned char>(text[i])} << (8 * i);
    }
    return letters & 0xdfdfdfdfdfdf;
}

// Recognises quickly what nearly every text is, so that it need not be split into tokens: one
// SELECT, INSERT, UPDATE, DELETE or REPLACE that has neither a function nor a variable.
bool isPlainQuery(std::string_view text)
{
    static constexpr std::array<std::uint64_t, 4> Kinds = {
        sixLetters("SELECT"), sixLetters("INSERT"), sixLetters("UPDATE"), sixLetters("DELETE")};
    constexpr std::string_view Replace = "REPLACE";
    if (text.size() <= Replace.size()) {
        return false;
    }
    const std::uint64_t letters = sixLetters(text);
    const bool kind = isWordCharacter(text[6])
                          ? capitalsStartWith(text, Replace) && !isWordCharacter(text[7])
                          : std::ranges::find(Kinds, letters) != Kinds.end();
    if (!kind) {
        return false;
    }
    while (isBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text.find('(') == std::string_view::npos && text.find('@') == std::string_view::npos &&
           text.find(';') == std::string_view::npos &&
           text.find('!') == std::string_view::npos; // begins a comment that the server executes
}

// A word, a quoted name without its quotation marks, or one other character.
struct Token {
    enum Kind { End, Name, Versioned, Other } kind = End;
    std::string_view text;
    bool quoted = false;

    bool is(std::string_view word) const { return kind != End && !quoted && equals(text, word); }
    bool isOneOf(const auto& words) const
    {
        return kind == Name && !quoted && client::isOneOf(text, words);
    }
};

// Splits a text into tokens. Literals, comments and blanks are skipped. The beginning of a comment
// that some server versions execute is a token.
class Tokens {
public:
    explicit Tokens(std::string_view text) : m_rest(text) {}

    Token next()
    {
        while (!m_rest.empty()) {
            const char c = m_rest.front();
            if (isWordCharacter(c)) {
                const auto* const end = std::ranges::find_if_not(m_rest, isWordCharacter);
                return {Token::Name, take(static_cast<std::size_t>(end - m_rest.data()))};
            }
            if (c == '`') {
                const std::size_t end = m_rest.find('`', 1);
                const std::string_view name = m_rest.substr(1, end - 1);
                m_rest.remove_prefix(std::min(name.size() + 2, m_rest.size()));
                return {Token::Name, name, true};
            }
            if (c == '"' || c == '\'') {
                skipLiteral(c);
            } else if (c == '#' ||
                       (m_rest.starts_with("--") &&
                        (m_rest.size() == 2 || static_cast<unsigned char>(m_rest[2]) <= ' '))) {
                skipThrough("\n");
            } else if (m_rest.starts_with("/*!") || m_rest.starts_with("/*M!")) {
                return {Token::Versioned, take(2)};
            } else if (m_rest.starts_with("/*")) {
                m_rest.remove_prefix(2);
                skipThrough("*/");
            } else if (c == ' ' || (c >= '\t' && c <= '\r')) {
                m_rest.remove_prefix(1);
            } else {
                return {Token::Other, take(1)};
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
    // A doubled quotation mark is treated as the end of one literal and the beginning of another.
    void skipLiteral(char quote)
    {
        for (std::size_t from = 1;;) {
            const std::size_t end = m_rest.find(quote, from);
            if (end == std::string_view::npos) {
                m_rest = {};
                return;
            }
            const std::size_t before = m_rest.find_last_not_of('\\', end - 1);
            if ((end - before) % 2 == 1) { // none or pairs of backslashes
                m_rest.remove_prefix(end + 1);
                return;
            }
            from = end + 1;
        }
    }

    std::string_view m_rest;
};

// Whether a name before "(" cannot be a stored function's. `before` is the token before the name.
bool isKnownCall(const Token& before, const Token& name, bool qualified)
{
    static constexpr std::array<std::string_view, 5> IntoTable = {"INTO", "TABLE", "INSERT",
                                                                  "REPLACE", "IGNORE"};
    return before.isOneOf(IntoTable) || (!qualified && isBuiltIn(name.text));
}

// What a statement may leave, judged by its first words. `tokens` continues after the first one.
Leaves leavesByKind(const Token& first, Tokens tokens)
{
    static constexpr std::array<std::string_view, 31> Ordinary = {
        "SELECT",   "INSERT",    "UPDATE",  "DELETE",   "REPLACE", "SHOW",     "LOAD",     "WITH",
        "VALUES",   "DO",        "CREATE",  "ALTER",    "DROP",    "RENAME",   "TRUNCATE", "DESC",
        "DESCRIBE", "EXPLAIN",   "ANALYZE", "OPTIMIZE", "CHECK",   "CHECKSUM", "REPAIR",   "COMMIT",
        "ROLLBACK", "SAVEPOINT", "RELEASE", "GRANT",    "REVOKE",  "KILL",     "UNLOCK"};
    static constexpr std::array<std::string_view, 5> Leaving = {"SET", "USE", "PREPARE",
                                                                "DEALLOCATE", "LOCK"};
    Token second = tokens.next();
    // BEGIN may begin a compound statement, too, and START a replica.
    if (first.is("BEGIN") || first.is("START")) {
        const bool transaction =
            second.is(first.is("BEGIN") ? "WORK" : "TRANSACTION") ||
            (first.is("BEGIN") && (second.kind == Token::End || second.is(";")));
        return transaction ? Leaves::Nothing : Leaves::Unknown;
    }
    if (first.is("CREATE") || first.is("DROP")) {
        if (second.is("OR")) {
            tokens.next();
            second = tokens.next();
        }
        if (second.is("TEMPORARY")) {
            return first.is("DROP") ? Leaves::Less : Leaves::Something;
        }
    }
    if (first.isOneOf(Leaving)) {
        return first.is("SET") && second.is("STATEMENT") ? Leaves::Unknown : Leaves::Something;
    }
    return first.isOneOf(Ordinary) ? Leaves::Nothing : Leaves::Unknown;
}

// What two statements leave together. If both leave something, one may hide what the other does.
Leaves together(Leaves all, Leaves one)
{
    return all == Leaves::Nothing ? one : one == Leaves::Nothing ? all : Leaves::Unknown;
}

} // namespace

bool isBlank(std::string_view text)
{
    return std::ranges::all_of(text, [](char c) { return isBlank(c); });
}

Leaves leaves(std::string_view text)
{
    static constexpr std::string_view Reports = "SESSION_TRACK";
    static constexpr std::array<std::string_view, 6> Definitions = {"CREATE",   "ALTER", "DROP",
                                                                    "TRUNCATE", "GRANT", "REVOKE"};
    static constexpr std::array<std::string_view, 3> Evaluating = {"SELECT", "VALUES", "VALUE"};
    if (text.empty() || isPlainQuery(text)) {
        return Leaves::Nothing;
    }
    Leaves all = Leaves::Nothing;
    Tokens tokens(text);
    Token before; // the token before `last`, or before the qualified name that `last` ends
    Token last;
    bool qualified = false;
    bool begins = true;    // the next token begins a statement
    bool evaluates = true; // a name before "(" is a call; in a definition it need not be
    for (Token token = tokens.next(); token.kind != Token::End; token = tokens.next()) {
        if (token.kind == Token::Versioned) {
            return Leaves::Unknown;
        }
        if (token.kind == Token::Name) {
            if (begins) {
                all = together(all, leavesByKind(token, tokens));
                evaluates = !token.isOneOf(Definitions);
            } else if (capitalsStartWith(token.text, Reports)) {
                return Leaves::Unknown;
            }
            evaluates = evaluates || token.isOneOf(Evaluating);
            qualified = last.is(".");
            if (!qualified) {
                before = last;
            }
        } else if (token.is("(") && last.kind == Token::Name && evaluates) {
            if (!isKnownCall(before, last, qualified)) {
                return Leaves::Unknown;
            }
        } else if (token.is("@")) {
            // Reading a system variable, @@name, leaves nothing.
            Tokens ahead = tokens;
            if (ahead.next().is("@")) {
                tokens = ahead;
            } else if (all == Leaves::Nothing) {
                return Leaves::Unknown;
            }
        }
        if (all == Leaves::Unknown) {
            break;
        }
        begins = token.is(";") || (begins && token.is("("));
        last = token;
    }
    return all;
}

bool asksAboutEarlier(std::string_view text)
{
    static constexpr std::array<std::string_view, 11> Words = {
        "LAST_INSERT_ID", "IDENTITY", "INSERT_ID", "LASTVAL",     "PREVIOUS",     "ROW_COUNT",
        "FOUND_ROWS",     "ERRORS",   "WARNINGS",  "ERROR_COUNT", "WARNING_COUNT"};
    Tokens tokens(text);
    for (Token token = tokens.next(); token.kind != Token::End; token = tokens.next()) {
        if (token.kind == Token::Name && isOneOf(token.text, Words)) {
            return true;
        }
    }
    return false;
}

bool hasLiterals(std::string_view text)
{
    return text.find_first_of("\"'\\") != std::string_view::npos;
}

} // namespace client
