// What tests/cluster has done on a node of a cluster: the one whose socket MYSQL_UNIX_PORT names.
//
//     cluster_client create            makes the database and its tables, and saves a record
//     cluster_client find              prints the record's text, fetched as a record
//     cluster_client count TIMES       adds to one row so often; prints how often it had to repeat
//     cluster_client load FILE ROWS    writes a data file and loads it
//     cluster_client write FIRST       saves numbered records until its input ends; prints each one
//                                      that is acknowledged, and "doubt N" for one that may be
//                                      there
//     cluster_client refused NUMBER    waits until a save is refused with this number
//     cluster_client accepted          waits until a save is accepted

#include "Item.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <poll.h>
#include <stdexcept>
#include <thread>
#include <unistd.h>

using namespace Kestro;
using Kestro::Database::Connection;
using Kestro::Database::DatabaseException;

namespace {

constexpr char Name[] = "kestro_cluster";
constexpr int Deadlock = 1213; // what the loser of a conflict between nodes gets
constexpr int NoQuorum = 1047;
constexpr int NotSent = 2006;
constexpr int PerhapsDone = 2013;
constexpr std::chrono::milliseconds Pause{20};

void create()
{
    KYDBDatabase database;
    database.selectDB(Name);
    database.selectDB(Name);
    Connection connection(Name);
    execute(connection, "CREATE TABLE item (number BIGINT PRIMARY KEY, text VARCHAR(60))");
    execute(connection, "CREATE TABLE counter (name VARCHAR(20) PRIMARY KEY, value BIGINT)");
    execute(connection, "CREATE TABLE loaded (id INT PRIMARY KEY, text VARCHAR(40))");
    Item item(database);
    item.text = "saved on one node";
    if (item.save(false) != 0) {
        throw std::runtime_error(item.get_error_message());
    }
}

void find()
{
    KYDBDatabase database;
    database.selectDB(Name);
    // Waits for what the other nodes had committed before.
    database.execute("SET SESSION wsrep_sync_wait = 15");
    Item item(database);
    KYDBRecordParser parser(item);
    const bool isFound = item.get(&parser) == 0 && parser.found();
    std::cout << (isFound ? item.text : "nothing") << '\n';
}

void count(int times)
{
    Connection connection(Name);
    int repeats = 0;
    for (int i = 0; i < times; ++i) {
        Database::Query add(connection);
        add << "INSERT INTO counter VALUES ('hot', 1) ON DUPLICATE KEY UPDATE value = value + 1";
        for (bool done = false; !done;) {
            try {
                add.execute();
                done = true;
            } catch (const DatabaseException&) {
                if (add.get_error_number() != Deadlock) {
                    throw;
                }
                ++repeats;
            }
        }
    }
    std::cout << repeats << '\n';
}

void load(const std::string& path, int rows)
{
    Connection connection(Name);
    std::ofstream file(path);
    for (int id = 0; id < rows; ++id) {
        file << id << '\t' << connection.escapeString("a text with a \t, number ") << id << '\n';
    }
    file.close();
    Database::QueryLoadData(connection, Name, "loaded", path);
}

bool inputEnded()
{
    pollfd input{STDIN_FILENO, POLLIN, 0};
    return poll(&input, 1, 0) == 1;
}

// The handle, once its server is there.
std::unique_ptr<KYDBDatabase> awaitDatabase()
{
    for (;;) {
        try {
            auto database = std::make_unique<KYDBDatabase>();
            database->selectDB(Name);
            return database;
        } catch (const Exception&) {
            std::this_thread::sleep_for(Pause);
        }
    }
}

void write(long first)
{
    const std::unique_ptr<KYDBDatabase> database = awaitDatabase();
    for (long number = first; !inputEnded(); ++number) {
        Item item(*database);
        item.number = number;
        while (item.save(false) != 0) {
            const int refusal = item.get_error_number();
            if (refusal == PerhapsDone) {
                std::cout << "doubt " << number << std::endl;
                break;
            }
            if (refusal != NotSent && refusal != Deadlock && refusal != NoQuorum) {
                throw std::runtime_error(item.get_error_message());
            }
            if (inputEnded()) {
                return;
            }
            std::this_thread::sleep_for(Pause);
        }
        if (item.get_error_number() != PerhapsDone) {
            std::cout << number << std::endl;
        }
    }
}

// Saves until a save ends with this number, 0 for success.
void await(int number)
{
    const std::unique_ptr<KYDBDatabase> database = awaitDatabase();
    for (;;) {
        Item item(*database);
        item.text = "saved again";
        if (item.save(true) == 0 ? number == 0 : item.get_error_number() == number) {
            return;
        }
        std::this_thread::sleep_for(Pause);
    }
}

} // namespace

int main(int argc, char** argv)
try {
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "create") {
        create();
    } else if (command == "find") {
        find();
    } else if (command == "count" && argc == 3) {
        count(std::atoi(argv[2]));
    } else if (command == "load" && argc == 4) {
        load(argv[2], std::atoi(argv[3]));
    } else if (command == "write" && argc == 3) {
        write(std::atol(argv[2]));
    } else if (command == "refused" && argc == 3) {
        await(std::atoi(argv[2]));
    } else if (command == "accepted") {
        await(0);
    } else {
        std::cerr << "see the comment in cluster_client.cpp\n";
        return 2;
    }
} catch (const std::exception& e) {
    std::cerr << argv[1] << ": " << e.what() << '\n';
    return 1;
}
