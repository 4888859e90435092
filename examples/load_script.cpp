// Runs a script as it is found in the world, with DELIMITER and source lines, and goes on after
// statements that fail.
//
//     load_script DATABASE SCRIPT

#include <KestroDatabase>
#include <iostream>

using namespace Kestro::Database;

int main(int argc, char** argv)
try {
    Connection connection(argc > 1 ? argv[1] : ""); // for the script alone
    Script script(argc > 2 ? argv[2] : "-", connection);
    int failures = 0;
    for (bool more = true; more;) {
        try {
            more = script.step();
        } catch (const DatabaseException& e) {
            ++failures;
            std::cerr << e.fileName() << ':' << e.lineNumber() << ": " << e.stringParameter()
                      << '\n';
        }
    }
    std::cout << script.statements() << " statements, " << failures << " failures\n";
} catch (const Kestro::Exception& e) { // no server, or no such file
    std::cerr << e.asString() << '\n';
    return 1;
}
