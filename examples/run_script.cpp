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
    if (connection.enableMultipleStatementsPerQuery() != 0) {
        std::cerr << connection.errorMessage() << '\n';
        return 1;
    }
    QueryFile script(connection, path);
    script.execute();
    connection.dbSelect(database); // whatever session the script left behind is gone
    std::cout << script.batches().size() << " batches\n";
} catch (const Kestro::Exception& e) {
    std::cerr << e.asString().substr(0, 500) << '\n'; // the rest is the batch, up to 1 MiB of it
    return 1;
}
