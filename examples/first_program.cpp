#include <KestroTableMap>
#include <iostream>

using namespace Kestro;

struct Note : KYDBTableSimple { // a row of the table "note"
    KYDBDatabase& database;
    int id = 0;
    std::string text;

    explicit Note(KYDBDatabase& handle) : database(handle) {}

protected:
    void dbmap_init() override // binds the columns to the variables, once
    {
        if (dbmap_size() == 0) {
            table_name("note");
            DBDatabase(&database);
            m_dbmap.push_back("id", id, KYDB_FLAG_KEY | KYDB_FLAG_SAVE)
                .push_back("text", text, KYDB_FLAG_SAVE);
        }
    }
};

int main()
try {
    KYDBDatabase database;         // the local server, for all records and threads
    database.selectDB("notebook"); // creates it the first time,
    database.selectDB("notebook"); // and works on it once it is there
    database.execute("CREATE TABLE IF NOT EXISTS note (id INT PRIMARY KEY, text TEXT)");

    Note note(database);
    note.id = 1;
    note.text = "It's a \"first\" note";
    if (note.save(true) != 0) { // inserts the row, or updates it
        std::cerr << note.get_error_message() << '\n';
        return 1;
    }

    Note found(database);
    found.id = 1;
    KYDBRecordParser parser(found);
    if (found.get(&parser) == 0 && parser.found()) {
        std::cout << found.text << '\n';
    }
} catch (const std::exception& e) { // no server, or no right to use it
    std::cerr << e.what() << '\n';
    return 1;
}
