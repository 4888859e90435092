// Imports orders from lines of text, each order with its items in one transaction. A wrong line is
// reported with its number, and nothing of its order is imported.
//
//     order_import [FILE]

#include <KestroDatabase>
#include <charconv>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <vector>

using namespace Kestro::Database;

namespace {

constexpr char Sample[] = "order;Ann \"Annie\" O'Hara;2026-11-03;\n"
                          "item;tea;2;3.15\n"
                          "item;cup;1;1234567.89\n"
                          "order;Ben;2026-11-31;no such day\n"
                          "item;tea;1;3.15\n"
                          "order;Zoë;2026-11-04;leave it at the door\n"
                          "item;pot;0;19.90\n"
                          "order;Cy;2026-11-05;\n"
                          "item;tea;4;3.15\n";

struct Item {
    std::string name;
    int pieces = 0;
    double price = 0;
};

struct Order {
    int line = 0;
    std::string customer;
    std::string day;
    std::optional<std::string> note;
    std::vector<Item> items;
};

std::vector<std::string> fieldsOf(const std::string& line)
{
    std::istringstream stream(line);
    std::vector<std::string> fields;
    for (std::string field; std::getline(stream, field, ';');) {
        fields.push_back(field);
    }
    fields.resize(4);
    return fields;
}

std::vector<Order> ordersOf(std::istream& text)
{
    std::vector<Order> orders;
    int number = 0;
    for (std::string line; std::getline(text, line);) {
        ++number;
        const std::vector<std::string> fields = fieldsOf(line);
        if (fields[0] == "order") {
            orders.push_back({number, fields[1], fields[2], {}, {}});
            if (!fields[3].empty()) {
                orders.back().note = fields[3];
            }
        } else if (fields[0] == "item" && !orders.empty()) {
            orders.back().items.push_back({fields[1], std::stoi(fields[2]), std::stod(fields[3])});
        } else {
            throw std::runtime_error("line " + std::to_string(number) +
                                     " is neither order nor item");
        }
    }
    return orders;
}

void import(Connection& connection, const Order& order)
{
    Transaction transaction(connection);
    Query insert(connection);
    insert << "INSERT INTO orders (customer, day, note) VALUES (" << literal(order.customer) << ", "
           << literal(order.day) << ", " << literal(order.note) << ")";
    insert.execute();
    for (const Item& item : order.items) {
        connection.execute("INSERT INTO item VALUES (" + literal(insert.get_lastid()) + ", " +
                           literal(item.name) + ", " + literal(item.pieces) + ", " +
                           literal(item.price) + ")");
    }
    transaction.commit();
}

} // namespace

int main(int argc, char** argv)
try {
    std::istringstream sample(Sample);
    std::ifstream file(argc > 1 ? argv[1] : "");
    const std::vector<Order> orders =
        ordersOf(argc > 1 ? static_cast<std::istream&>(file) : sample);

    Connection connection("");
    connection.dbCreate("kestro_example");
    connection.dbSelect("kestro_example");
    connection.execute("CREATE TABLE orders (id INT AUTO_INCREMENT PRIMARY KEY, "
                       "customer VARCHAR(60) NOT NULL, day DATE NOT NULL, note TEXT)");
    connection.execute("CREATE TABLE item (order_id INT NOT NULL REFERENCES orders (id), "
                       "name VARCHAR(60), pieces INT CHECK (pieces > 0), price DECIMAL(10,2))");
    for (const Order& order : orders) {
        try {
            import(connection, order);
        } catch (const DatabaseException& e) { // what was done of this order is rolled back
            std::cout << "order of line " << order.line << " refused, error " << e.errorNumber()
                      << '\n';
        }
    }
    std::cout << scalar<std::int64_t>(connection, "SELECT COUNT(*) FROM orders") << " orders worth "
              << scalar<std::string>(connection, "SELECT SUM(pieces * price) FROM item") << '\n';
    connection.dbDelete("kestro_example");
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
}
