// A record with a 64-bit number, a double, dates and columns that may be NULL, and all records of
// the class at once.

#include <KestroTableMap>
#include <chrono>
#include <iostream>
#include <limits>
#include <optional>

using namespace Kestro;
using namespace std::chrono;

namespace {

struct Invoice : KYDBTableSimple {
    KYDBDatabase& database;
    std::uint64_t number = 0;
    double amount = 0;
    year_month_day issued = 2026y / January / 1;
    std::optional<year_month_day> paid; // empty for NULL
    std::optional<std::string> note;
    std::string scan; // a picture: any bytes

    explicit Invoice(KYDBDatabase& handle) : database(handle) {}

protected:
    void dbmap_init() override
    {
        if (dbmap_size() == 0) {
            table_name("invoice");
            DBDatabase(&database);
            m_dbmap.push_back("number", number, KYDB_FLAG_KEY | KYDB_FLAG_SAVE)
                .push_back("amount", amount, KYDB_FLAG_SAVE)
                .push_back("issued", issued, KYDB_FLAG_SAVE)
                .push_back("paid", paid, KYDB_FLAG_SAVE)
                .push_back("note", note, KYDB_FLAG_SAVE)
                .push_back("scan", KYVarRef::exact(scan), KYDB_FLAG_SAVE);
        }
    }
};

void save(Invoice& invoice)
{
    if (invoice.save(true) != 0) {
        std::cout << "not saved: " << invoice.get_error_message() << '\n';
    }
}

} // namespace

int main()
try {
    KYDBDatabase database;
    database.selectDB("kestro_example");
    database.selectDB("kestro_example");
    database.execute("CREATE OR REPLACE TABLE invoice (number BIGINT UNSIGNED PRIMARY KEY, "
                     "amount DOUBLE NOT NULL, issued DATE NOT NULL, paid DATE, note VARCHAR(50), "
                     "scan LONGBLOB NOT NULL)");

    Invoice invoice(database);
    invoice.number = 18'446'744'073'709'551'615U;
    invoice.amount = 1'234'567.89;
    invoice.scan = std::string("GIF89a\0\1", 8);
    save(invoice);
    invoice.number = 2;
    invoice.amount = 0.1;
    invoice.note = "\"urgent\"";
    save(invoice);
    invoice.number = 3;
    invoice.paid = 2026y / January / 31;
    save(invoice);
    invoice.amount = std::numeric_limits<double>::quiet_NaN();
    save(invoice);

    for (const Invoice& open : fetchAll<Invoice>(database, "paid IS NULL ORDER BY amount")) {
        std::cout << open.number << ' ' << open.note.value_or("no note") << ", " << open.scan.size()
                  << " bytes\n";
    }

    // A column that does not fit its variable is a failure, and names itself.
    database.execute("UPDATE invoice SET paid=0 WHERE number=3");
    try {
        (void)fetchAll<Invoice>(database);
    } catch (const Exception& e) {
        std::cout << e.stringParameter() << '\n';
    }
    database.DBConnection().dbDelete("kestro_example");
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
}
