// Loads real data into a database of its own and asks questions about it: the help texts that the
// server package ships, 2.4 MB of SQL, and the system's table of time zones.
//
//     demo [SCRIPT [ZONES]]

#include <KestroDatabase>
#include <KestroTableMap>
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace Kestro::Database;

namespace {

constexpr char HelpScript[] = "/usr/share/mysql/fill_help_tables.sql";
constexpr char ZoneTable[] = "/usr/share/zoneinfo/zone.tab";
constexpr char Demo[] = "kestro_demo";

std::ifstream open(const std::string& path)
{
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    return file;
}

// A file of our own, gone with this object. The server reads one of them too.
struct TemporaryFile {
    std::string path = std::filesystem::temp_directory_path() / "kestro_demo.XXXXXX";
    std::ofstream stream;

    TemporaryFile()
    {
        close(mkstemp(path.data()));
        std::filesystem::permissions(path, std::filesystem::perms(0644));
        stream.open(path);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() { std::filesystem::remove(path); }
};

// The script wants to fill the server's own help tables: without its "use" it fills ours.
void loadHelp(Connection& connection, const std::string& path)
{
    for (const char* table : {"help_topic", "help_category", "help_keyword", "help_relation"}) {
        connection.execute(std::string("CREATE TABLE ") + table + " LIKE mysql." + table);
    }
    std::ifstream script = open(path);
    TemporaryFile ours;
    for (std::string line; std::getline(script, line);) {
        if (line != "use mysql;") {
            ours.stream << line << '\n';
        }
    }
    ours.stream.close();

    QueryFile file(connection, ours.path);
    file.executeInOwnSession(); // it changes the session's character set
    std::cout << "Ran " << path << " with QueryFile: " << std::filesystem::file_size(ours.path)
              << " bytes in " << file.batches().size() << " batches.\n";
}

// zone.tab has three or four columns, divided by tabs: the loader wants all four, with \N for none.
void loadZones(Connection& connection, const std::string& path)
{
    connection.execute("CREATE TABLE zone (country CHAR(2), position VARCHAR(20), "
                       "name VARCHAR(60) PRIMARY KEY, comment VARCHAR(200))");
    std::ifstream zones = open(path);
    TemporaryFile data;
    int written = 0;
    for (std::string line; std::getline(zones, line);) {
        if (!line.starts_with('#')) {
            const bool comment = std::count(line.begin(), line.end(), '\t') == 3;
            data.stream << line << (comment ? "\n" : "\t\\N\n");
            ++written;
        }
    }
    data.stream.close();

    QueryLoadData(connection, Demo, "zone", data.path);
    const auto loaded = QueryCount(connection, "SELECT COUNT(*) FROM zone").count();
    std::cout << "Loaded " << path << " with QueryLoadData: " << written << " lines written, "
              << loaded << " rows counted.\n";
    if (loaded != written) {
        throw std::runtime_error("rows were lost");
    }
}

void showTables(Connection& connection)
{
    std::cout << "\nWhat is in the database now?  (QueryTableNames, QueryCount, "
                 "QueryDescribeTable)\n";
    for (const std::string& table : QueryTableNames(connection).names()) {
        std::cout << std::setw(8) << QueryCount(connection, "SELECT COUNT(*) FROM " + table).count()
                  << "  " << table << ':';
        for (const auto& field : QueryDescribeTable(connection, table).fields()) {
            std::cout << ' ' << field.name << ' ' << field.type << ';';
        }
        std::cout << '\n';
    }
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

// A row of the zone table as an object that fetches, saves and removes itself.
struct Zone : Kestro::KYDBTableSimple {
    Kestro::KYDBDatabase& database;
    std::string name;
    std::string country;
    char position[21] = "";
    std::string comment;

    Zone(Kestro::KYDBDatabase& handle, std::string key) : database(handle), name(std::move(key)) {}

    bool fetch()
    {
        Kestro::KYDBRecordParser parser(*this);
        return get(&parser) == 0 && parser.found();
    }
    void write(bool update)
    {
        if (save(update) != 0) {
            throw std::runtime_error(get_error_message());
        }
    }

protected:
    void dbmap_init() override
    {
        using namespace Kestro;
        if (dbmap_size() == 0) {
            table_name("zone");
            DBDatabase(&database);
            m_dbmap.push_back("name", name, KYDB_FLAG_KEY | KYDB_FLAG_SAVE)
                .push_back("country", country, KYDB_FLAG_SAVE)
                .push_back("position", position, sizeof position, KYDB_FLAG_SAVE)
                .push_back("comment", comment, KYDB_FLAG_SAVE);
        }
    }
};

void records(Kestro::KYDBDatabase& database)
{
    std::cout << "\nA row as an object  (KYDBTableSimple)\n";
    Zone zone(database, "Europe/Berlin");
    std::cout << "  get:           " << (zone.fetch() ? "found" : "not found") << ", country "
              << zone.country << ", position " << zone.position << '\n';
    zone.comment = "the \"capital\" one";
    zone.write(true);
    Zone again(database, "Europe/Berlin");
    again.fetch();
    std::cout << "  save(true):    its comment is now: " << again.comment << '\n';
    Zone fresh(database, "Moon/Tranquility");
    fresh.country = "XX";
    fresh.write(false);
    std::cout << "  save(false):   a new one, " << fresh.name << "; once more: ";
    std::cout << fresh.save(false) << ", " << fresh.get_error_number() << ' '
              << fresh.get_error_message() << '\n';
    const bool isGone = fresh.remove() == 0 && !fresh.fetch();
    std::cout << "  remove():      " << (isGone ? "gone" : "still there") << '\n';

    std::vector<std::thread> threads;
    std::atomic<int> failed = 0;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([&database, &failed, number] {
            for (int round = 0; round < 50; ++round) {
                Zone own(database, "Thread/" + std::to_string(number));
                own.comment = std::to_string(round);
                failed += own.save(true) == 0 ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::cout << "  4 threads through one handle, 50 saves each: " << failed << " failed, "
              << QueryCount(database.DBConnection(),
                            "SELECT COUNT(*) FROM zone WHERE name LIKE 'Thread/%' AND comment='49'")
                     .count()
              << " rows, each with its last value\n";
}

} // namespace

int main(int argc, char** argv)
try {
    Connection connection("");
    connection.execute(std::string("DROP DATABASE IF EXISTS ") + Demo);
    connection.dbCreate(Demo);
    connection.dbSelect(Demo);
    loadHelp(connection, argc > 1 ? argv[1] : HelpScript);
    loadZones(connection, argc > 2 ? argv[2] : ZoneTable);

    showTables(connection);
    largestCategories(connection);
    firstMentions(connection);
    refusedStatement(connection);

    Kestro::KYDBDatabase database;
    database.selectDB(Demo);
    records(database);
    connection.dbDelete(Demo);
} catch (const std::exception& e) {
    std::cerr << e.what() << '\n';
    return 1;
}
