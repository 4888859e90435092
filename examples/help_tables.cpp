// Loads the help texts that the server package ships, 2.4 MB of SQL, and asks questions about them.
//
//     help_tables [SCRIPT]     SCRIPT is /usr/share/mysql/fill_help_tables.sql by default

#include <KestroDatabase>
#include <fstream>
#include <iomanip>
#include <iostream>

using namespace Kestro::Database;

namespace {

void execute(Connection& connection, const std::string& statement)
{
    Query query(connection);
    query << statement;
    query.execute();
}

// The script is written line by line into one query, which sends it as one text of some thousand
// statements. It wants to fill the server's own help tables: without its "use" it fills ours.
void loadHelp(Connection& connection, const std::string& path)
{
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    connection.enableMultipleStatementsPerQuery();
    for (const char* table : {"help_topic", "help_category", "help_keyword", "help_relation"}) {
        Query create(connection);
        create << "CREATE TABLE " << table << " LIKE mysql." << table;
        create.execute();
    }
    Query script(connection);
    std::size_t statements = 0;
    for (std::string line; std::getline(file, line);) {
        if (line != "use mysql;") {
            script << line << '\n';
            statements += line.ends_with(';') ? 1U : 0U;
        }
    }
    script.execute();
    std::cout << "Loaded " << path << ": " << script.sql().size() << " bytes, " << statements
              << " statements, one call.\n";
}

// A row object of one's own reads its columns by number.
struct Category : RowImpl {
    std::string name;
    int topics = 0;
    bool parse(void* connection, void* result, void* row) override
    {
        name = column(connection, result, row, 0).value_or("");
        topics = std::stoi(std::string(column(connection, result, row, 1).value_or("0")));
        return true;
    }
};

void largestCategories(Connection& connection)
{
    std::cout << "\nWhich categories have the most topics?  (KyRowParser: a Category of every "
                 "row, kept in a container)\n";
    RowContainer categories;
    KyRowParser<Category> parser(categories);
    Query query(connection, &parser);
    query << "SELECT c.name, COUNT(*) AS topics FROM help_category c "
             "JOIN help_topic t USING (help_category_id) "
             "GROUP BY c.name ORDER BY topics DESC, c.name";
    query.execute();
    int shown = 0;
    for (const auto& row : categories.rows()) {
        const auto& category = static_cast<const Category&>(*row);
        if (++shown <= 5) {
            std::cout << std::setw(8) << category.topics << "  " << category.name << '\n';
        }
    }
    std::cout << "  " << categories.rows().size() << " rows, the first 5 shown\n";
}

// One object sees the rows in turn and says when it has seen enough.
struct FirstMentions : RowImpl {
    int seen = 0;
    int found = 0;
    bool parse(void* connection, void* result, void* row) override
    {
        ++seen;
        const std::string_view text = column(connection, result, row, 1).value_or("");
        const auto at = text.find("character set");
        if (at != std::string_view::npos) {
            const auto from = text.rfind('\n', at) + 1;
            std::cout << "  " << column(connection, result, row, 0).value_or("") << ": "
                      << text.substr(from, text.find('\n', at) - from).substr(0, 90) << '\n';
            ++found;
        }
        return found < 3;
    }
};

void firstMentions(Connection& connection)
{
    std::cout << "\nWhich topics speak of a character set first?  (OneRowParser over streamed "
                 "rows, stopped at the third)\n";
    FirstMentions mentions;
    OneRowParser parser(mentions);
    Query query(connection, &parser, false);
    query << "SELECT name, description FROM help_topic ORDER BY help_topic_id";
    query.execute();
    std::cout << "  " << mentions.found << " found in the first " << mentions.seen << " rows\n";
}

void refusedStatement(Connection& connection)
{
    std::cout << "\nWhat does a refused statement look like?\n";
    Query query(connection);
    query << "SELECT title FROM help_topic";
    try {
        query.execute();
    } catch (const DatabaseException& e) {
        std::cout << "  what():             " << e.what()
                  << "\n  get_error_number(): " << query.get_error_number()
                  << "\n  the connection:     "
                  << (connection.state() == Connection::Connected ? "still open\n" : "closed\n");
    }
}

} // namespace

int main(int argc, char** argv)
try {
    const std::string script = argc > 1 ? argv[1] : "/usr/share/mysql/fill_help_tables.sql";
    const std::string database = "kestro_help_demo";

    Connection connection("");
    execute(connection, "DROP DATABASE IF EXISTS " + database);
    connection.dbCreate(database);
    connection.dbSelect(database);
    loadHelp(connection, script);
    // The script changed the session's character set: a fresh link starts with our own.
    connection.dbSelect(database);

    largestCategories(connection);
    firstMentions(connection);
    refusedStatement(connection);
    connection.dbDelete(database);
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
}
