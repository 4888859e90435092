#include "Link.h"
#include "Result.h"
#include "Text.h"

#include <db_client.h>

#include <memory>
#include <string_view>

namespace client {

namespace {

enum class Reading { Store, DecideLate };

// Reads the rows of the current result set and counts them.
int discardRows(Link& link)
{
    std::uint64_t count = 0;
    std::size_t size;
    while (link.readRow(size) != nullptr) {
        ++count;
    }
    if (link.answerFailed()) {
        return 1;
    }
    link.ended(count);
    return 0;
}

// Reads the answers to all statements of the text that was sent. The first result set goes to
// `result`, unless that is null.
int readAnswers(Link& link, std::unique_ptr<Result>* result, Reading reading)
{
    do {
        const int columns = link.readHead();
        if (columns < 0) {
            return 1;
        }
        if (columns == 0) {
            link.ended(link.changedRows());
        } else if (result == nullptr || *result != nullptr) {
            if (const int failed = discardRows(link)) {
                return failed;
            }
        } else {
            const bool more = link.moreAnswers();
            *result = std::make_unique<Result>(link, columns);
            if (reading == Reading::DecideLate && !more) {
                return 0;
            }
            if (const int failed = (*result)->store()) {
                return failed;
            }
        }
    } while (link.moreAnswers());
    return 0;
}

int query(void* handle, std::string_view text, void** result, Reading reading)
{
    if (result != nullptr) {
        *result = nullptr;
    }
    if (handle == nullptr) {
        return failNotConnected();
    }
    Link& link = *static_cast<Link*>(handle);
    if (isBlank(text)) {
        link.nothingAsked();
        return 0;
    }
    if (const int failed = link.send(text)) {
        return failed;
    }
    std::unique_ptr<Result> first;
    if (const int failed = readAnswers(link, result != nullptr ? &first : nullptr, reading)) {
        return failed;
    }
    if (result != nullptr) {
        *result = first.release();
    }
    return 0;
}

} // namespace

} // namespace client

using client::Link;

int db_query(void* handle, const char* text, void** result)
{
    return client::query(handle, text, result, client::Reading::Store);
}

int db_use_query(void* handle, const char* text, void** result)
{
    return client::query(handle, text, result, client::Reading::DecideLate);
}

std::uint64_t db_affected_rows(void* handle)
{
    return handle != nullptr ? static_cast<Link*>(handle)->affectedRows() : 0;
}

std::uint64_t db_lastid(void* handle)
{
    return handle != nullptr ? static_cast<Link*>(handle)->lastId() : 0;
}

int db_answer_count(void* handle)
{
    return handle != nullptr ? static_cast<Link*>(handle)->answers() : 0;
}
