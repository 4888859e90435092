#include "ServerTest.h"

#include <KestroDatabase>
#include <KestroTableMap>
#include <cstring>
#include <fstream>
#include <thread>
#include <unistd.h>

namespace {

using namespace Kestro;

struct Item : KYDBTableSimple {
    KYDBDatabase* database;
    long id = 0;
    std::string name;
    char note[300] = "";

    explicit Item(KYDBDatabase* handle) : database(handle) {}

protected:
    void dbmap_init() override
    {
        if (dbmap_size() == 0) {
            table_name("item");
            DBDatabase(database);
            m_dbmap.push_back("id", id, KYDB_FLAG_SAVE)
                .push_back("name", name, KYDB_FLAG_KEY | KYDB_FLAG_SAVE)
                .push_back("note", note, sizeof note, KYDB_FLAG_SAVE);
        }
    }
};

class Records : public ServerTest {
protected:
    KYDBDatabase handle;
    Records()
    {
        handle.selectDB(database);
        run("CREATE TABLE item (id BIGINT, name VARBINARY(600) PRIMARY KEY, note VARBINARY(300))");
    }
};

TEST_F(Records, ValuesNeverLeaveTheirLiterals)
{
    const std::string bytes = everyByte().substr(1);
    const std::vector<std::string> values = {"name", "\" OR \"\"=\"", "a\\\tb\nc\r\x1a",  "",
                                             "\\N",  bytes,           bytes + everyByte()};
    const std::string before = value("SELECT @@GLOBAL.sql_mode");
    run("SET GLOBAL sql_mode=\"ANSI_QUOTES,NO_BACKSLASH_ESCAPES\"");
    KYDBDatabase own;
    own.selectDB(database);
    std::string file;
    for (std::size_t i = 0; i < values.size(); ++i) {
        Item item(&own);
        item.id = static_cast<long>(i);
        item.name = values[i];
        std::strncpy(item.note, values[i].c_str(), sizeof item.note - 1);
        EXPECT_EQ(item.save(true), 0) << item.get_error_message();
        file += item.sql_valuesforfile(KYDB_FLAG_ALL);

        Item found(&own);
        found.name = values[i];
        KYDBRecordParser parser(found);
        EXPECT_EQ(found.get(&parser), 0);
        EXPECT_EQ(found.id, item.id);
        EXPECT_STREQ(found.note, item.note);
    }
    const std::string sum =
        "SELECT CONCAT(COUNT(*), '|', SUM(CRC32(CONCAT_WS('|', id, name, note)))) FROM item";
    const std::string saved = value(sum);
    EXPECT_EQ(saved.find(std::to_string(values.size()) + '|'), 0U);
    const std::string path = testing::TempDir() + "kestro_records." + std::to_string(getpid());
    std::ofstream(path) << file;
    Database::Connection connection("");
    Database::QueryLoadData(connection, database, "item", path);
    unlink(path.c_str());
    EXPECT_EQ(value(sum), saved);
    for (const std::string& name : values) {
        Item gone(&own);
        gone.name = name;
        EXPECT_EQ(gone.remove(), 0);
    }
    EXPECT_EQ(value("SELECT COUNT(*) FROM item"), "0");
    run("SET GLOBAL sql_mode=\"" + before + "\"");
}

TEST_F(Records, AreFilledFromTheFirstRowAndLeftByNull)
{
    run("INSERT INTO item VALUES (NULL, \"n\", REPEAT(\"x\", 300))");
    Item item(&handle);
    item.id = 7;
    item.name = "n";
    KYDBRecordParser parser(item);
    EXPECT_EQ(item.get(&parser), 0);
    EXPECT_TRUE(parser.found());
    EXPECT_EQ(item.id, 7);
    EXPECT_EQ(std::strlen(item.note), 299U);
    item.name = "none";
    EXPECT_EQ(item.get(&parser), 0);
    EXPECT_FALSE(parser.found());
}

// Asks the handle for its database from within a parser.
struct Current : Database::RowImpl {
    KYDBDatabase* handle;
    std::string name;
    explicit Current(KYDBDatabase& asked) : handle(&asked)
    {
        Database::OneRowParser parser(*this);
        EXPECT_EQ(handle->Query("SELECT DATABASE()", &parser), 0);
    }
    bool parse(void* connection, void* result, void* row) override
    {
        name = column(connection, result, row, 0).value_or("");
        name += handle->Query("DO 1", nullptr) == 0 ? "" : " and a refusal";
        // Another thread looks at the error record without waiting for this statement.
        std::thread([this] { name += handle->get_error_message(); }).join();
        return true;
    }
};

TEST_F(Records, HandleSelectsReopensAndLetsParsersQuery)
{
    const std::string fresh = database + "_new";
    handle.selectDB(fresh); // creates it and stays
    EXPECT_EQ(Current(handle).name, database);
    handle.selectDB(fresh);
    EXPECT_EQ(Current(handle).name, fresh);
    std::thread([&] { handle.DBConnection().disconnect(); }).join();
    EXPECT_EQ(handle.Query("DO 1; DO 2", nullptr), 0); // still allowed, on another thread
    EXPECT_EQ(Current(handle).name, fresh);
    handle.DBConnection().dbDelete(fresh);
}

TEST_F(Records, ThreadsThatShareAHandleSeeTheirOwnFailures)
{
    run("INSERT INTO item (name) VALUES (\"taken\")");
    std::vector<std::thread> threads;
    for (int number = 0; number < 8; ++number) {
        threads.emplace_back([&, number] {
            for (int round = 0; round < 30; ++round) {
                Item item(&handle);
                item.name =
                    number % 2 == 0 ? "taken" : "free" + std::to_string(number * 100 + round);
                const bool missing = number % 4 == 0;
                if (missing) {
                    (void)item.table_name();
                    item.table_name("missing");
                }
                EXPECT_EQ(item.save(false), number % 2 == 0 ? -1 : 0);
                EXPECT_EQ(item.get_error_number(), number % 2 != 0 ? 0 : missing ? 1146 : 1062);
                const std::string message = handle.get_error_message();
                EXPECT_TRUE(message.empty() ||
                            message == "Table '" + database + ".missing' doesn't exist" ||
                            message == "Duplicate entry 'taken' for key 'PRIMARY'")
                    << message;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(value("SELECT COUNT(*) FROM item"), "121");
}

} // namespace
