// Runs a file of SQL statements on a database.
//
//     run_script DATABASE SCRIPT

#include <KestroDatabase>
#include <iostream>

using namespace Kestro::Database;

int main(int argc, char** argv)
try {
    if (argc != 3) {
        std::cerr << "usage: run_script DATABASE SCRIPT\n";
        return 2;
    }
    Connection connection(argv[1]);
    connection.enableMultipleStatementsPerQuery(); // a batch holds many statements
    QueryFile script(connection, argv[2]);
    if (script.batches().empty()) {
        std::cerr << argv[2] << " is empty or cannot be read\n";
        return 1;
    }
    script.execute();
    std::cout << "ran " << script.batches().size() << " batch(es)\n";
} catch (const std::exception& e) { // the server's text, and the whole batch behind it
    std::cerr << std::string(e.what()).substr(0, 500) << '\n';
    return 1;
}
