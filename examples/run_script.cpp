// Runs a file of SQL statements on a database.
//
//     run_script DATABASE SCRIPT

#include <KestroDatabase>
#include <fstream>
#include <iostream>

using namespace Kestro::Database;

int main(int argc, char** argv)
try {
    const std::string database = argc > 1 ? argv[1] : "";
    const std::string path = argc > 2 ? argv[2] : "";
    if (!std::ifstream(path)) { // QueryFile does not tell
        std::cerr << path << " cannot be opened\n";
        return 1;
    }
    Connection connection(database);
    QueryFile script(connection, path);
    script.executeInOwnSession();
    std::cout << script.batches().size() << " batches\n";
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
}
