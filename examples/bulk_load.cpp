// Writes a data file and replaces a table's rows with it, in one moment.
//
//     bulk_load [FILE]

#include <KestroDatabase>
#include <fstream>
#include <iostream>

using namespace Kestro::Database;

int main(int argc, char** argv)
try {
    const std::string path = argc > 1 ? argv[1] : "/tmp/article.txt"; // the server opens it
    Connection connection("");
    if (!connection.dbSelectIfExists("shop")) {
        connection.dbCreate("shop");
        connection.dbSelect("shop");
    }
    connection.execute("CREATE TABLE IF NOT EXISTS article (id INT PRIMARY KEY, name VARCHAR(40))");

    std::ofstream file(path);
    file << 1 << '\t' << connection.escapeString("tab\tand \"quotes\"") << '\n';
    file << 2 << "\t\\N\n"; // NULL
    file.close();
    if (!file) {
        std::cerr << path << " was not written completely\n";
        return 1;
    }

    connection.execute("CREATE OR REPLACE TABLE article_new LIKE article");
    QueryLoadData(connection, "shop", "article_new", path); // article is as it was if this throws
    connection.execute("DROP TABLE IF EXISTS article_old");
    connection.execute("RENAME TABLE article TO article_old, article_new TO article");
    connection.execute("DROP TABLE article_old");
    std::cout << QueryCount(connection, "SELECT COUNT(*) FROM article").count() << " rows\n";
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
}
