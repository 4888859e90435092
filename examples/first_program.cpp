#include <KestroDatabase>
#include <iostream>

using namespace Kestro::Database;

struct Note : RowImpl { // reads the columns that it wants from one row
    std::string text;
    bool parse(void* connection, void* result, void* row) override
    {
        text = column(connection, result, row, 0).value_or("(nothing)");
        return true; // on to the next row
    }
};

int main()
try {
    Connection connection(""); // to the local server, on no database yet
    if (!connection.dbSelectIfExists("notebook")) {
        connection.dbCreate("notebook");
        connection.dbSelect("notebook");
    }
    Query create(connection); // a query is a stream: write its text, then execute it
    create << "CREATE OR REPLACE TABLE note (id INT PRIMARY KEY, text TEXT)";
    create.execute();

    Query insert(connection);
    insert << "INSERT INTO note VALUES (" << 1 << ", \""
           << connection.escapeString("It's a \"first\" note") << "\"), (2, NULL)";
    insert.execute();

    RowContainer notes;
    KyRowParser<Note> parser(notes); // makes a Note of every row
    Query select(connection, &parser);
    select << "SELECT text FROM note ORDER BY id";
    select.execute();
    for (const auto& row : notes.rows()) {
        std::cout << static_cast<const Note&>(*row).text << '\n';
    }
} catch (const std::exception& e) { // a refusal carries the server's text and the statement
    std::cerr << e.what() << '\n';
    return 1;
}
