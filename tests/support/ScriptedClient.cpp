#include "ScriptedClient.h"

#include <Kestro/Api.h>
#include <ctime>
#include <db_client.h>
#include <stdexcept>
#include <unistd.h>

ScriptedClient client;

namespace {

bool next(std::deque<bool>& script)
{
    script.push_back(true);
    const bool succeeds = script.front();
    script.pop_front();
    return succeeds;
}

int run(const std::string& call, const char* text, void** result)
{
    if (client.thrown) {
        throw std::runtime_error("of the client's own");
    }
    client.calls.push_back(call + (result != nullptr ? " " : ", no result: ") + text);
    if (result != nullptr && client.results) {
        *result = &++client.open;
    }
    return next(client.statements) ? 0 : 1;
}

} // namespace

void* db_connect_unix(const char* database)
{
    client.calls.push_back(std::string("connect ") + database);
    return next(client.connects) ? &++client.open : nullptr;
}

void db_disconnect(void* /*handle*/)
{
    client.calls.emplace_back("disconnect");
    --client.open;
}

int db_error_number(void* /*handle*/)
{
    return client.errorNumber;
}

const char* db_error_message(void* /*handle*/)
{
    return client.error;
}

int db_query(void* /*handle*/, const char* text, void** result)
{
    return run("query", text, result);
}

int db_use_query(void* /*handle*/, const char* text, void** result)
{
    return run("use", text, result);
}

void db_free_result(void* /*result*/)
{
    --client.open;
}

std::uint64_t db_affected_rows(void* /*handle*/)
{
    return 0x500000003;
}

int db_enable_multiple_statements_per_query(void* /*handle*/)
{
    return 0;
}

int db_answer_count(void* /*handle*/)
{
    return client.answers;
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
