// Writes record classes for tables; see docs/kestro-record.md.

#include "Identifier.h"
#include "Program.h"
#include "RecordClass.h"
#include "StatusLine.h"

#include <Kestro/Database/Connection.h>
#include <Kestro/Database/Literal.h>
#include <Kestro/Database/Query.h>
#include <Kestro/Database/QueryTableNames.h>
#include <Kestro/Database/RowContainer.h>
#include <Kestro/Database/Scalar.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <getopt.h>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using namespace Kestro::Database;

namespace {

constexpr programs::Program Self = {"kestro-record",
                                    R"(Usage: kestro-record DATABASE TABLE [CLASS]
  or:  kestro-record --all=FOLDER DATABASE
  or:  kestro-record --help | --version

Writes a C++ header with a record class for the table, or view, to standard
output. The class is named CLASS, or else after the table: HelpTopic for
help_topic. The server is the local one, or the one whose socket MYSQL_UNIX_PORT
names.

Options:
  --all=FOLDER  write a header for each table and view of the database into
                FOLDER: HelpTopic.h for help_topic; a file that exists is never
                changed
  --help        print this text
  --version     print the version

Exit status:
  0  every class was written, or was in its file already
  1  a class could not be written
  2  wrong usage
)"};

constexpr char Advice[] = "fetchAll() works, and the class says in its comment what else does";

struct ColumnRows : RowImpl {
    std::vector<Column> columns;

    bool parse(void* connection, void* result, void* row) override
    {
        enum { Name, Type, Null, Key, Default, Extra };
        const auto text = [&](int index) {
            return std::string(column(connection, result, row, index).value_or(""));
        };
        const std::string extra = text(Extra);
        const bool generated = extra.find("GENERATED") != std::string::npos;
        columns.push_back({.name = text(Name),
                           .type = text(Type),
                           .nullable = text(Null) == "YES",
                           // A versioned table's primary key has the end of the period in it too.
                           .key = text(Key) == "PRI" && !generated,
                           .generated = generated,
                           .numbered = extra.find("auto_increment") != std::string::npos});
        return true;
    }
};

// What information_schema calls the kind of the table: BASE TABLE, VIEW, SEQUENCE and others.
std::string typeOf(Connection& connection, const std::string& table)
{
    const auto type = scalar<std::optional<std::string>>(
        connection, "SELECT MAX(table_type) FROM information_schema.tables "
                    "WHERE table_schema=DATABASE() AND table_name=" +
                        literal(table));
    return type.value_or("");
}

Table describe(Connection& connection, const std::string& name)
{
    ColumnRows rows;
    OneRowParser parser(rows);
    Query query(connection, &parser);
    query << "desc " << identifier(name);
    try {
        query.execute();
    } catch (const DatabaseException&) { // without the statement, which means nothing to the user
        throw std::runtime_error(query.get_error_message());
    }
    return {name, typeOf(connection, name).ends_with("VIEW"), std::move(rows.columns)};
}

bool holds(const std::filesystem::path& path, const std::string& text)
{
    if (!std::filesystem::is_regular_file(path)) { // reading another kind might never end
        return false;
    }
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.view() == text;
}

// Writes a file that does not exist yet, or has this text already.
void create(const std::filesystem::path& path, const std::string& text)
{
    std::FILE* const file = std::fopen(path.c_str(), "wxe");
    if (file == nullptr) {
        if (errno != EEXIST) {
            throw std::runtime_error(path.string() + ": " + std::strerror(errno));
        }
        if (!holds(path, text)) {
            throw std::runtime_error(path.string() +
                                     " exists with another text; it stays as it is");
        }
        return;
    }
    const bool taken = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    if (std::fclose(file) != 0 || !taken) {
        std::filesystem::remove(path);
        throw std::runtime_error(path.string() + " cannot be written completely");
    }
}

// Writes the classes of a database into a folder.
class Folder {
public:
    Folder(Connection& connection, std::filesystem::path folder)
        : m_connection(connection), m_folder(std::move(folder))
    {}

    int write()
    {
        const std::set<std::string> names = QueryTableNames(m_connection).names();
        std::filesystem::create_directories(m_folder);
        std::size_t done = 0;
        for (const std::string& name : names) {
            if (m_line.isDue()) {
                m_line.show(std::to_string(done) + " of " + std::to_string(names.size()));
            }
            ++done;
            write(name);
        }
        m_line.clear();
        if (m_views != 0) {
            Self.tell("views without a key: " + std::to_string(m_views) + "; " + Advice);
        }
        const std::string count =
            std::to_string(m_classes) + " classes are in " + m_folder.string();
        if (m_failures != 0) {
            return Self.fail(count + ", " + std::to_string(m_failures) + " failed");
        }
        if (m_line.isTerminal()) {
            Self.tell(count);
        }
        return programs::Success;
    }

private:
    void write(const std::string& name)
    try {
        if (typeOf(m_connection, name) == "SEQUENCE") {
            return;
        }
        const std::string ofClass = className(name);
        const auto [other, isNew] = m_tables.emplace(ofClass, name);
        if (!isNew) {
            throw std::runtime_error(
                "the table " + other->second + " has the class " + ofClass +
                " already; kestro-record DATABASE TABLE CLASS gives it another name");
        }
        const Table table = describe(m_connection, name);
        create(m_folder / (ofClass + ".h"), recordClass(table, ofClass));
        ++m_classes;
        m_views += table.view ? 1 : 0;
    } catch (const std::exception& e) {
        ++m_failures;
        m_line.clear();
        Self.tell(programs::onOneLine(name + ": " + e.what()));
    }

    Connection& m_connection;
    const std::filesystem::path m_folder;
    programs::StatusLine m_line;
    std::map<std::string, std::string> m_tables; // by class
    std::size_t m_classes = 0;
    std::size_t m_views = 0;
    std::size_t m_failures = 0;
};

int writeOne(Connection& connection, const std::string& name, const std::string& ofClass)
{
    const Table table = describe(connection, name);
    std::cout << recordClass(table, ofClass) << std::flush;
    if (table.view) {
        Self.tell(programs::onOneLine(name) + " is a view, without a key; " + Advice);
    }
    return std::cout ? programs::Success : Self.fail("the class was not written completely");
}

struct Options {
    std::optional<std::string> folder;
    std::vector<std::string> names;
};

std::optional<Options> parse(int argc, char** argv)
{
    static const option Known[] = {{"all", required_argument, nullptr, 'a'},
                                   {nullptr, 0, nullptr, 0}};
    Options options;
    opterr = 0; // the message is ours
    for (int found; (found = getopt_long(argc, argv, ":", Known, nullptr)) != -1;) {
        if (found != 'a') {
            Self.misused(std::string("not an option, or one without its value: ") +
                         argv[optind - 1]);
            return std::nullopt;
        }
        options.folder = optarg;
    }
    options.names.assign(argv + optind, argv + argc);
    const std::size_t count = options.names.size();
    if (options.folder ? count != 1 : count < 2 || count > 3) {
        Self.misused(options.folder ? "--all takes a database"
                                    : "a database and a table are wanted, and perhaps a class");
        return std::nullopt;
    }
    if (count == 3 && !isClassName(options.names[2])) {
        Self.misused("no name for a record's class: " + options.names[2]);
        return std::nullopt;
    }
    return options;
}

} // namespace

int main(int argc, char** argv)
try {
    if (Self.answers(argc, argv)) {
        return programs::Success;
    }
    const std::optional<Options> options = parse(argc, argv);
    if (!options) {
        return programs::WrongUsage;
    }
    const std::vector<std::string>& names = options->names;
    std::optional<Connection> connection;
    try {
        connection.emplace(names[0]);
    } catch (const DatabaseException& e) {
        return Self.failToConnect(e.stringParameter());
    }
    return options->folder ? Folder(*connection, *options->folder).write()
                           : writeOne(*connection, names[1],
                                      names.size() == 3 ? names[2] : className(names[1]));
} catch (const Kestro::Exception& e) {
    return Self.fail(e.stringParameter());
} catch (const std::exception& e) {
    return Self.fail(e.what());
}
