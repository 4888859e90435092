// Lists the tables of a database with their columns and numbers of rows.
//
//     catalog DATABASE [TABLE]

#include <KestroDatabase>
#include <iostream>

using namespace Kestro::Database;

int main(int argc, char** argv)
try {
    if (argc != 2 && argc != 3) {
        std::cerr << "usage: catalog DATABASE [TABLE]\n";
        return 2;
    }
    Connection connection(argv[1]);
    for (const std::string& table : QueryTableNames(connection).names()) {
        if (argc == 3 && table != argv[2]) {
            continue;
        }
        std::cout << table << ": "
                  << QueryCount(connection, "SELECT COUNT(*) FROM " + identifier(table)).count()
                  << " rows\n";
        for (const auto& field : QueryDescribeTable(connection, identifier(table)).fields()) {
            std::cout << "    " << field.name << ' ' << field.type << '\n';
        }
    }
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
}
