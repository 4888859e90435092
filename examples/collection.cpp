// A collection: an object for what concerns a whole table rather than one row.

#include <KestroDatabase>
#include <KestroTableMap>
#include <iostream>

using namespace Kestro;

namespace {

class Articles : public KYDBCollectionBase {
public:
    explicit Articles(KYDBDatabase& handle) : m_database(handle) {}

    // How many articles cost less; -1 if the server refuses.
    int cheaperThan(int price)
    {
        Database::RowContainer rows;
        Database::KyRowParser<Database::CountRow> parser(rows);
        Database::Query query(DBConnection(), &parser);
        query << "SELECT COUNT(*) FROM article WHERE price < " << price;
        if (execute(query) != 0) {
            return -1;
        }
        return static_cast<const Database::CountRow&>(*rows.rows().front()).count;
    }

protected:
    void collection_init() override
    {
        table_name("article");
        DBDatabase(&m_database);
    }

private:
    KYDBDatabase& m_database;
};

} // namespace

int main()
try {
    KYDBDatabase database;
    database.selectDB("kestro_example");
    database.selectDB("kestro_example");
    Articles articles(database);
    if (articles.cheaperThan(10) < 0) {
        std::cout << articles.get_error_number() << ' ' << articles.get_error_message() << '\n';
    }
    database.execute("CREATE TABLE article (price INT); INSERT INTO article VALUES (5), (9), (12)");
    std::cout << articles.cheaperThan(10) << " cost less than 10\n";
    database.DBConnection().dbDelete("kestro_example");
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
}
