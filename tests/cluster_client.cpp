// A program on one node of tests/cluster, the one whose socket MYSQL_UNIX_PORT names.
//
//     cluster_client save ERROR     saves a record until that fails with this number, 0 for success
//     cluster_client count TIMES    adds to one row so often; prints how often it had to repeat
//     cluster_client write FIRST    saves numbered records until its input ends; prints each one
//     that
//                                   is acknowledged, and "doubt N" for one that may be there

#include "Item.h"

#include <algorithm>
#include <iostream>
#include <poll.h>
#include <unistd.h>

using namespace Kestro;
using Kestro::Database::DatabaseException;

namespace {

constexpr char Name[] = "kestro_cluster";
constexpr int Deadlock = 1213; // what the loser of a conflict between nodes gets
constexpr int NoQuorum = 1047;
constexpr int NotSent = 2006;
constexpr int PerhapsDone = 2013;
constexpr unsigned Pause = 20'000; // microseconds

// Connects once the node lets it.
void open(KYDBDatabase& database)
{
    for (;;) {
        try {
            return database.DBConnection().dbSelect(Name);
        } catch (const Exception&) {
            ks_usleep(Pause, 0);
        }
    }
}

// Saves a record until that ends with one of these numbers, and returns which.
int save(KYDBDatabase& database, long number, std::initializer_list<int> ends)
{
    Item item(&database);
    item.number = number;
    item.text = std::to_string(number);
    for (;;) {
        const int error = item.save(number == 0) == 0 ? 0 : item.get_error_number();
        if (std::ranges::count(ends, error) > 0) {
            return error;
        }
        if (error != 0 && error != NotSent && error != Deadlock && error != NoQuorum) {
            throw std::runtime_error(item.get_error_message());
        }
        ks_usleep(Pause, 0);
    }
}

bool inputEnded()
{
    pollfd input{STDIN_FILENO, POLLIN, 0};
    return poll(&input, 1, 0) == 1;
}

} // namespace

int main(int argc, char** argv)
try {
    const std::string verb = argc == 3 ? argv[1] : "";
    const std::string argument = argc == 3 ? argv[2] : "";
    KYDBDatabase database;
    open(database);
    if (verb == "save") {
        save(database, 0, {std::stoi(argument)});
    } else if (verb == "count") {
        int repeats = 0;
        for (int left = std::stoi(argument); left > 0;) {
            try {
                database.execute("INSERT INTO counter VALUES ('hot', 1) "
                                 "ON DUPLICATE KEY UPDATE value = value + 1");
                --left;
            } catch (const DatabaseException& e) {
                if (e.errorNumber() != Deadlock) {
                    throw;
                }
                ++repeats;
            }
        }
        std::cout << repeats << '\n';
    } else if (verb == "write") {
        for (long number = std::stol(argument); !inputEnded(); ++number) {
            const bool done = save(database, number, {0, PerhapsDone}) == 0;
            std::cout << (done ? "" : "doubt ") << number << std::endl;
        }
    } else {
        throw std::invalid_argument("no such verb");
    }
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
}
