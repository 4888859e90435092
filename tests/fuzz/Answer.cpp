#include "Fuzz.h"

#include "../../platform/client/Link.h"

#include <Kestro/Exception.h>
#include <cstring>
#include <db_client.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Reads every byte that is handed out.
void readRows(void* result, bool backwards)
{
    const int columns = db_result_fields_num(nullptr, result);
    check(columns > 0);
    unsigned sum = 0;
    void* first = nullptr;
    int index = 0;
    for (void* row; (row = db_result_fetch_row(result, index)) != nullptr; ++index) {
        for (int column = -1; column <= columns; ++column) {
            const char* const value = db_result_get_value(nullptr, result, row, column);
            const unsigned long length = db_result_field_length(result, column);
            check(value != nullptr || length == 0);
            check(value == nullptr || value[length] == '\0');
            for (unsigned long i = 0; i < length; ++i) {
                sum += static_cast<unsigned char>(value[i]);
            }
        }
        first = index == 0 ? row : first;
    }
    if (backwards && index > 0) {
        check(db_result_fetch_row(result, index / 2) != nullptr);
        const char* const value = db_result_get_value(nullptr, result, first, columns - 1);
        check(value == nullptr || std::strlen(value) + sum >= 0);
        check(db_result_row_num(nullptr, result) == index);
    }
}

} // namespace

// The first byte says how the answer is read, and whether the rest are packets as they are, or
// contents that get heads which are right: a length of one or two bytes, then so many.
void answer(std::string_view text)
{
    constexpr std::size_t SocketRoom = 100'000;
    if (text.empty() || text.size() > SocketRoom) {
        return;
    }
    const auto how = static_cast<unsigned char>(text.front());
    text.remove_prefix(1);
    std::string packets;
    client::Fields input(text.data(), text.size());
    if ((how & 1) != 0) {
        packets = input.text(input.left());
    }
    for (unsigned char number = 1; input.left() != 0; ++number) {
        const std::string_view content = input.text(input.number() & 0xffff);
        const std::size_t length = content.size();
        packets += {static_cast<char>(length), static_cast<char>(length >> 8), '\0',
                    static_cast<char>(number)};
        packets += content;
    }
    int ends[2];
    check(socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0);
    check(write(ends[1], packets.data(), packets.size()) == static_cast<ssize_t>(packets.size()));
    shutdown(ends[1], SHUT_WR);
    {
        client::Link link("");
        link.attach(ends[0]);
        void* result = nullptr;
        const bool store = (how & 2) != 0;
        const bool wanted = (how & 4) != 0;
        const int failed =
            (store ? db_query : db_use_query)(&link, "SELECT 1", wanted ? &result : nullptr);
        check(failed == 0 || db_error_number(&link) != 0);
        check(failed == 0 || result == nullptr);
        if (result != nullptr) {
            try {
                const bool counts = (how & 8) != 0;
                if (counts) {
                    db_result_row_num(nullptr, result);
                }
                readRows(result, store || counts);
            } catch (const Kestro::Exception&) {
                check(db_error_number(&link) != 0);
            }
            db_free_result(result);
        }
    }
    close(ends[0]);
    close(ends[1]);
}
