// Writes a data file and replaces a table's rows with it, in one moment.
//
//     bulk_load [FILE]

#include <KestroDatabase>
#include <fstream>
#include <iostream>

using namespace Kestro::Database;

void run(Connection& connection, const std::string& statement)
{
    Query query(connection);
    query << statement;
    query.execute();
}

int main(int argc, char** argv)
try {
    const std::string path = argc > 1 ? argv[1] : "/tmp/article.txt"; // the server opens it
    Connection connection("");
    if (!connection.dbSelectIfExists("shop")) {
        connection.dbCreate("shop");
        connection.dbSelect("shop");
    }
    run(connection, "CREATE TABLE IF NOT EXISTS article (id INT PRIMARY KEY, name VARCHAR(40))");

    std::ofstream file(path);
    file << 1 << '\t' << connection.escapeString("tab\tand \"quotes\"") << '\n';
    file << 2 << "\t\\N\n"; // NULL
    file.close();
    if (!file) {
        std::cerr << path << " was not written completely\n";
        return 1;
    }

    run(connection, "CREATE OR REPLACE TABLE article_new LIKE article");
    QueryLoadData(connection, "shop", "article_new", path); // article is as it was if this throws
    run(connection, "DROP TABLE IF EXISTS article_old");
    run(connection, "RENAME TABLE article TO article_old, article_new TO article");
    run(connection, "DROP TABLE article_old");
    std::cout << QueryCount(connection, "SELECT COUNT(*) FROM article").count() << " rows\n";
} catch (const Kestro::Exception& e) {
    std::cerr << e.asString() << '\n';
    return 1;
}
