#include "ScriptedClient.h"

#include <ctime>
#include <db_client.h>
#include <memory>
#include <unistd.h>

namespace scripted {

Client client;

namespace {

struct Result {
    std::vector<Row> rows;
    int rowCount;
    Row* current = nullptr;
};

int answer(const std::string& call, const char* text, void** result)
{
    client.calls.push_back(call + (result != nullptr ? " " : ", no result: ") + text);
    if (client.answers.empty()) {
        return 0;
    }
    const Answer next = client.answers.front();
    client.answers.pop_front();
    if (next.error != 0) {
        client.number = next.error;
        client.message = next.message;
        return 1;
    }
    if (result != nullptr && next.rows) {
        const int count = next.rowCount.value_or(static_cast<int>(next.rows->size()));
        *result = new Result{*next.rows, count};
        ++client.openResults;
    }
    return 0;
}

Result& asResult(void* result)
{
    return *static_cast<Result*>(result);
}

} // namespace
} // namespace scripted

using scripted::client;

void* db_connect_unix(const char* database)
{
    client.calls.push_back(std::string("connect ") + database);
    bool opens = true;
    if (!client.connects.empty()) {
        opens = client.connects.front();
        client.connects.pop_front();
    }
    client.openLinks += opens ? 1 : 0;
    return opens ? &client : nullptr;
}

void db_disconnect(void* /*handle*/)
{
    client.calls.emplace_back("disconnect");
    --client.openLinks;
}

int db_error_number(void* handle)
{
    return handle != nullptr ? client.number : 2002;
}

const char* db_error_message(void* handle)
{
    if (handle != nullptr) {
        return client.message.c_str();
    }
    return client.connectError ? client.connectError->c_str() : nullptr;
}

unsigned long db_escape_string(void* /*handle*/, char* target, const char* source,
                               unsigned long length)
{
    for (unsigned long i = 0; i < length; ++i) { // doubles every byte: the longest there can be
        target[2 * i] = target[2 * i + 1] = source[i];
    }
    target[2 * length] = '\0';
    return 2 * length;
}

int db_enable_multiple_statements_per_query(void* handle)
{
    return handle != nullptr ? 7 : 8;
}

int db_query(void* /*handle*/, const char* text, void** result)
{
    return scripted::answer("query", text, result);
}

int db_use_query(void* /*handle*/, const char* text, void** result)
{
    return scripted::answer("use", text, result);
}

void db_free_result(void* result)
{
    delete &scripted::asResult(result);
    --client.openResults;
}

std::uint64_t db_affected_rows(void* /*handle*/)
{
    return client.affectedRows;
}

std::uint64_t db_lastid(void* /*handle*/)
{
    return client.lastId;
}

int db_result_row_num(void* /*handle*/, void* result)
{
    return scripted::asResult(result).rowCount;
}

int db_result_fields_num(void* /*handle*/, void* result)
{
    return static_cast<int>(scripted::asResult(result).rows.front().size());
}

void* db_result_fetch_row(void* result, int index)
{
    auto& [rows, count, current] = scripted::asResult(result);
    const auto at = static_cast<std::size_t>(index);
    client.calls.push_back("fetch " + std::to_string(index));
    return current = at < rows.size() ? &rows[at] : nullptr;
}

const char* db_result_get_value(void* /*handle*/, void* /*result*/, void* row, int column)
{
    const auto& value = (*static_cast<scripted::Row*>(row))[static_cast<std::size_t>(column)];
    return value ? value->c_str() : nullptr;
}

unsigned long db_result_field_length(void* result, int column)
{
    return (*scripted::asResult(result).current)[static_cast<std::size_t>(column)]->size();
}

// The clock of waitUntilServerReady.
extern "C" KESTRO_API time_t time(time_t* /*target*/)
{
    return client.now;
}

extern "C" KESTRO_API unsigned sleep(unsigned seconds)
{
    client.now += seconds;
    return 0;
}
