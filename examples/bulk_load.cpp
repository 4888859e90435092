// Writes a data file and replaces a table's rows with it.

#include <KestroDatabase>
#include <filesystem>
#include <fstream>
#include <iostream>

using namespace Kestro::Database;

int main()
try {
    Connection connection("");
    if (!connection.dbSelectIfExists("kestro_load")) {
        connection.dbCreate("kestro_load");
        connection.dbSelect("kestro_load");
    }
    Query create(connection);
    create << "CREATE OR REPLACE TABLE sample (id INT PRIMARY KEY, text VARCHAR(100))";
    create.execute();

    // The server opens the file: by its full path, and with its own rights.
    const std::string path = std::filesystem::temp_directory_path() / "kestro_load.txt";
    std::ofstream file(path);
    const std::string awkward = "a tab\t, a line\n, a \\ and \"quotes\"";
    file << 1 << '\t' << connection.escapeString(awkward) << '\n'; // values are escaped,
    file << 2 << '\t' << "\\N" << '\n';                            // and \N is NULL
    file << 2 << '\t' << "of two rows with one key the later stays" << '\n';
    file.close();

    QueryLoadData(connection, "kestro_load", "sample", path);
    std::filesystem::remove(path);
    std::cout << QueryCount(connection, "SELECT COUNT(*) FROM sample").count() << " rows\n";
    connection.dbDelete("kestro_load");
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
}
