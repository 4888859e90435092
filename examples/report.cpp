// A report: records that are read all at once, and rows of a query as objects of their own.

#include <KestroDatabase>
#include <KestroTableMap>
#include <chrono>
#include <iomanip>
#include <iostream>
#include <optional>

using namespace Kestro;
using namespace Kestro::Database;

namespace {

/// A row of the table "sale".
struct Sale : KYDBTableSimple {
    std::uint64_t id = 0;
    std::optional<std::string> customer;
    std::chrono::year_month_day day{};
    double amount = 0;
    std::optional<bool> paid;

protected:
    void dbmap_init() override
    {
        if (dbmap_size() == 0) {
            table_name("sale");
            m_dbmap.push_back("id", id, KYDB_FLAG_KEY | KYDB_FLAG_SAVE)
                .push_back("customer", customer, KYDB_FLAG_SAVE)
                .push_back("day", day, KYDB_FLAG_SAVE)
                .push_back("amount", amount, KYDB_FLAG_SAVE)
                .push_back("paid", paid, KYDB_FLAG_SAVE);
        }
    }
};

/// What one customer bought.
struct Total : RowImpl {
    std::optional<std::string> customer;
    double amount = 0;

    bool parse(void* connection, void* result, void* row) override
    {
        customer = column<std::optional<std::string>>(connection, result, row, 0);
        amount = column<double>(connection, result, row, 1);
        return true;
    }
};

void save(KYDBDatabase& database)
{
    using std::chrono::November;
    using namespace std::chrono_literals;
    Sale sale;
    sale.DBDatabase(&database);
    KYDBTransaction transaction(database);
    for (const auto& [customer, amount] :
         {std::pair{"Ann", 19.9}, {"Ben", 0.1}, {"Ann", 1234567.89}}) {
        ++sale.id;
        sale.customer = customer;
        sale.day = 2026y / November / std::chrono::day(static_cast<unsigned>(sale.id));
        sale.amount = amount;
        sale.paid = sale.id == 1 ? std::optional(true) : std::nullopt;
        if (sale.save(false) != 0) {
            throw std::runtime_error(sale.get_error_message());
        }
    }
    transaction.commit();
}

} // namespace

int main()
try {
    KYDBDatabase database;
    database.selectDB("kestro_example");
    database.selectDB("kestro_example");
    database.execute("CREATE TABLE sale (id BIGINT UNSIGNED PRIMARY KEY, customer VARCHAR(60), "
                     "day DATE NOT NULL, amount DOUBLE NOT NULL, paid BOOL)");
    save(database);

    std::cout << std::fixed << std::setprecision(2);
    for (const Sale& sale : fetchAll<Sale>(database, "paid IS NULL ORDER BY day DESC")) {
        std::cout << "unpaid: " << sale.customer.value_or("-") << ' ' << sale.amount << '\n';
    }
    RowContainer totals;
    KyRowParser<Total> parser(totals);
    database.execute("SELECT customer, SUM(amount) FROM sale GROUP BY customer ORDER BY 2 DESC",
                     &parser);
    for (const Total& total : rows<Total>(totals)) {
        std::cout << std::setw(12) << total.amount << ' ' << total.customer.value_or("-") << '\n';
    }
    database.DBConnection().dbDelete("kestro_example");
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
}
