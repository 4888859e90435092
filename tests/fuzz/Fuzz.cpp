// The readers of foreign text, each a target that FUZZ_TARGET names: see `./dev fuzz`.

#include "../../platform/client/Link.h"
#include "../../platform/client/Text.h"
#include "../../programs/record/Identifier.h"

#include <KestroDatabase>
#include <KestroTableMap>
#include <algorithm>
#include <cctype>
#include <cstring>
#include <db_client.h>
#include <fstream>
#include <map>
#include <optional>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace Kestro;
using namespace Kestro::Database;

// Ends the program if what must hold of every input does not.
void check(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

// The path of a file with this content. The next call overwrites it.
std::string fileOf(const std::string& content)
{
    static const std::string path = "/proc/self/fd/" + std::to_string(memfd_create("script", 0));
    check(static_cast<bool>(std::ofstream(path) << content));
    return path;
}

enum class Way { Stored, Counted, Streamed, Dropped };

// All values of a result, whose rows stay in memory unless they are streamed.
std::string valuesOf(void* result, Way way)
{
    if (way == Way::Counted) {
        db_result_row_num(nullptr, result);
    }
    const int columns = db_result_fields_num(nullptr, result);
    std::string all;
    std::vector<void*> rows;
    while (void* const row = db_result_fetch_row(result, static_cast<int>(rows.size()))) {
        rows.push_back(row);
        for (int column = -1; column <= columns; ++column) {
            const char* const value = db_result_get_value(nullptr, result, row, column);
            const unsigned long length = db_result_field_length(result, column);
            check(value != nullptr ? value[length] == '\0' : length == 0);
            all += value != nullptr ? std::string(value, length) + ',' : "NULL,";
        }
    }
    check(db_result_row_num(nullptr, result) == static_cast<int>(rows.size()));
    if (way != Way::Streamed && !rows.empty()) {
        const std::size_t middle = rows.size() / 2;
        check(db_result_fetch_row(result, static_cast<int>(middle)) == rows[middle]);
        const char* const value = db_result_get_value(nullptr, result, rows[0], columns - 1);
        check(value == nullptr || all.find(value) != std::string::npos);
    }
    return all;
}

// The values in an answer that is read in one way, or nothing if it fails.
std::optional<std::string> readAnswer(const std::string& packets, Way way)
{
    int ends[2];
    check(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    check(write(ends[1], packets.data(), packets.size()) == static_cast<ssize_t>(packets.size()));
    shutdown(ends[1], SHUT_WR);
    client::Link link("");
    link.attach(ends[0]);
    void* result = nullptr;
    std::string values;
    const auto query = way == Way::Stored ? db_query : db_use_query;
    bool failed = query(&link, "SELECT 1", way == Way::Dropped ? nullptr : &result) != 0;
    check(!failed || result == nullptr);
    if (result != nullptr) {
        try {
            values = valuesOf(result, way);
        } catch (const Exception&) {
            failed = true;
        }
        db_free_result(result);
    }
    close(ends[0]);
    close(ends[1]);
    check(!failed || db_error_number(&link) != 0);
    return failed ? std::nullopt : std::optional(values);
}

// The first byte says whether the rest are packets as they are, or contents that get correct heads.
// Its length stands before each content.
void answer(std::string_view text)
{
    client::Fields input(text.data(), text.size());
    const bool whole = input.fixed(1) != 0;
    std::string packets(input.text(whole ? input.left() : 0));
    for (char number = 1; input.left() != 0; ++number) {
        const std::string_view content = input.text();
        packets += {static_cast<char>(content.size()), static_cast<char>(content.size() >> 8), '\0',
                    number};
        packets += content;
    }
    // What can be stored can be read in every way. The reverse does not hold: only storing rows
    // shows that other answers follow them.
    const std::optional<std::string> stored = readAnswer(packets, Way::Stored);
    for (const Way way : {Way::Counted, Way::Streamed, Way::Dropped}) {
        const std::optional<std::string> values = readAnswer(packets, way);
        check(!stored || values == (way == Way::Dropped ? "" : stored));
    }
}

bool isIdentifier(std::string_view name)
{
    return !name.empty() && std::isdigit(static_cast<unsigned char>(name[0])) == 0 &&
           std::ranges::all_of(
               name, [](unsigned char c) { return c == '_' || c >= 0x80 || std::isalnum(c) != 0; });
}

// What a literal with these bytes between its quotation marks says; fails on a bare mark.
std::string unescaped(std::string_view text)
{
    constexpr std::string_view Letters = "0tnrZ\"'\\";
    constexpr std::string_view Bytes("\0\t\n\r\x1a\"'\\", 8);
    std::string all;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool plain = text[i] != '\\';
        check(plain || ++i < text.size());
        const std::size_t found = (plain ? Bytes : Letters).find(text[i]);
        check(plain == (found == std::string_view::npos));
        all += plain ? text[i] : Bytes[found];
    }
    return all;
}

void escape(std::string_view input)
{
    std::string escaped(2 * input.size() + 1, '?');
    const unsigned long length =
        db_escape_string(nullptr, escaped.data(), input.data(), input.size());
    check(length < escaped.size() && escaped[length] == '\0');
    check(unescaped({escaped.data(), length}) == input);
}

void identifiers(std::string_view input)
{
    const std::string name = className(input);
    check(!isClassName(name) || isIdentifier(name));
    VariableNames names(name);
    const std::string first = names.add(input);
    const std::string second = names.add(input.substr(0, input.find(',')));
    check(isIdentifier(first) && isIdentifier(second));
    check(first != name && second != name && first != second);
    check(escaped(input).find_first_of("\n\r") == std::string::npos);
    check(width(shortened(input, 10)) <= 10);
}

void list(std::string_view input)
{
    const char separator = input.empty() ? ',' : input.front();
    std::list<std::string> pieces;
    string2list(pieces, std::string(input), separator, false);
    std::string joined;
    for (const std::string& piece : pieces) {
        joined += piece + separator;
    }
    check(input.empty() ? pieces.empty() : joined == std::string(input) + separator);
}

// The input lies where a batch may have to end.
void script(std::string_view input)
{
    constexpr std::size_t Limit = 1'048'576;
    static const std::string before(Limit - 6000, 'x');
    static const std::string between(7000, 'x');
    const std::string content = before + std::string(input) + between + std::string(input);
    alignas(Connection) static char place[sizeof(Connection)]; // not used before execute()
    std::string joined;
    for (const std::string& batch :
         QueryFile(reinterpret_cast<Connection&>(place), fileOf(content)).batches()) {
        joined += batch;
        check(joined.size() == content.size() || batch.ends_with(";\n"));
    }
    check(joined == content);
}

// The statements are pieces of the script, in its order.
void scriptReader(std::string_view input)
{
    std::string content = std::string(input) + '\n'; // the last line gets an end
    std::erase(content, '\r');                       // before a line feed it is left out
    constexpr std::string_view Word = "source";
    const auto word = std::search(content.begin(), content.end(), Word.begin(), Word.end(),
                                  [](unsigned char a, char b) { return std::tolower(a) == b; });
    if (word != content.end() || content.find("\\.") != std::string::npos) {
        return; // they would read files of this machine
    }
    ScriptReader reader(fileOf(std::string(input)));
    std::size_t at = 0;
    for (bool more = true; more;) {
        std::string text;
        try {
            more = reader.next(text);
            check(more != text.empty());
        } catch (const DatabaseException&) {
            check(text.empty());
        }
        std::erase(text, '\r');
        at = content.find(text, at);
        check(at != std::string::npos);
        at += text.size();
    }
    check(reader.bytes() == input.size() && reader.size() == input.size());
}

// Taken apart word by word, a text never leaves less than a short look says.
void statement(std::string_view input)
{
    const client::Leaves all = client::leaves(input);
    check(client::leaves("/**/" + std::string(input)) >= all);
    check(!client::isBlank(input) ||
          (all == client::Leaves::Nothing && !client::asksAboutEarlier(input)));
}

void tableName(std::string_view input)
{
    const std::string text(input);
    check(TableName(text, false).fqn() == "ky_" + text && TableName(text, false).name() == text);
    const TableName full(text, true);
    check(full.fqn() == text && full.name() == (text.starts_with("ky_") ? text.substr(3) : ""));
}

void value(std::string_view input)
{
    const std::string text(input);
    long number = 0;
    int low = 0;
    std::string bytes;
    char buffer[9];
    for (const KYVarRef& variable :
         {KYVarRef(number), KYVarRef(low), KYVarRef(bytes), KYVarRef(buffer, sizeof buffer)}) {
        variable->assign(text);
    }
    check(low == static_cast<int>(number) && bytes == text);
    check(std::string_view(buffer) == std::string_view(text.c_str()).substr(0, sizeof buffer - 1));
    std::string escaped;
    KYVarRef(bytes)->append(escaped);
    check(unescaped(escaped) == text && literal(text) == '"' + escaped + '"');
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static const std::map<std::string_view, void (*)(std::string_view)> targets = {
        {"answer", answer},       {"escape", escape}, {"identifiers", identifiers},
        {"list", list},           {"script", script}, {"script_reader", scriptReader},
        {"statement", statement}, {"value", value},   {"table_name", tableName}};
    const char* const name = std::getenv("FUZZ_TARGET");
    targets.at(name != nullptr ? name : "")({reinterpret_cast<const char*>(data), size});
    return 0;
}
