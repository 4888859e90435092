#include "Item.h"
#include "ServerTest.h"

#include <chrono>
#include <cmath>
#include <cstring>
#include <fstream>
#include <gmock/gmock-matchers.h>
#include <limits>
#include <optional>
#include <thread>

namespace {

using namespace Kestro;
using namespace testing;

class Records : public ServerTest {
protected:
    KYDBDatabase handle;
    Records()
    {
        handle.selectDB(database);
        run("CREATE TABLE item (number BIGINT, text VARBINARY(600) PRIMARY KEY, "
            "note VARBINARY(300))");
    }
};

TEST_F(Records, ValuesNeverLeaveTheirLiterals)
{
    run("INSERT INTO item (text) VALUES (\"another\")");
    for (const std::string& text :
         {std::string(), everyByte().substr(1) + everyByte(), std::string(600, '"')}) {
        Item item(&handle);
        item.text = text;
        std::strncpy(item.note, text.c_str(), sizeof item.note - 1);
        EXPECT_EQ(item.save(true), 0) << item.get_error_message();
        Item found(&handle);
        found.text = text;
        KYDBRecordParser parser(found);
        EXPECT_EQ(found.get(&parser), 0);
        EXPECT_STREQ(found.note, item.note);
        EXPECT_EQ(value("SELECT text FROM item WHERE text <> 'another'"), text);
        EXPECT_EQ(item.remove(), 0);
        EXPECT_EQ(value("SELECT GROUP_CONCAT(text) FROM item"), "another");
    }
}

TEST_F(Records, AreFilledFromTheFirstRowAndLeftByNull)
{
    run("INSERT INTO item VALUES (NULL, \"n\", REPEAT(\"x\", 300)), (8, \"m\", \"\")");
    Item item(&handle);
    item.number = 7;
    KYDBRecordParser parser(item);
    for (const std::string text : {"n", "none"}) {
        item.text = text;
        EXPECT_EQ(item.get(&parser), 0);
        EXPECT_EQ(parser.found(), text == "n");
    }
    EXPECT_EQ(item.number, 7);
    EXPECT_EQ(item.note, std::string(299, 'x'));
    std::vector<Item> all = fetchAll<Item>(handle, "TRUE ORDER BY text");
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(&all[0].DBConnection(), &handle.DBConnection());
    EXPECT_EQ(all[0].number, 8);
    EXPECT_EQ(all[1].number, 0); // a NULL leaves the default, not the value of the row before
}

struct Exact : KYDBTableSimple {
    std::uint64_t id = 0;
    float part = 0.1F;
    std::optional<unsigned> count;
    std::optional<std::chrono::sys_time<std::chrono::microseconds>> at;
    std::string bytes;

    explicit Exact(KYDBDatabase& handle) { DBDatabase(&handle); }

protected:
    void dbmap_init() override
    {
        if (dbmap_size() == 0) {
            constexpr int Save = KYDB_FLAG_SAVE;
            constexpr int Key = KYDB_FLAG_KEY | Save;
            table_name("exact");
            m_dbmap.push_back("id", id, Key).push_back("part", part, Key);
            m_dbmap.push_back("count", count, Save).push_back("at", at, Save);
            m_dbmap.push_back("bytes", KYVarRef::exact(bytes), Save);
        }
    }
};

TEST_F(Records, WithExactReferencesComeBackAsTheyWere)
{
    run("CREATE TABLE exact (id BIGINT UNSIGNED, part FLOAT, count BIGINT, at DATETIME(6), "
        "bytes BLOB NOT NULL)");
    Exact full(handle);
    full.id = std::numeric_limits<std::uint64_t>::max();
    full.count = std::numeric_limits<unsigned>::max();
    full.at.emplace(std::chrono::microseconds(1'700'000'000'000'001));
    full.bytes = everyByte();
    std::string written;
    for (Exact record : {Exact(handle), full}) {
        EXPECT_EQ(record.save(false), 0) << record.get_error_message();
        written += record.sql_valuesforfile(KYDB_FLAG_ALL);
        Exact found(handle);
        found.id = record.id;
        found.count = 1; // which NULL must empty
        KYDBRecordParser parser(found);
        EXPECT_EQ(found.get(&parser), 0) << found.get_error_message();
        EXPECT_EQ(found.sql_values(KYDB_FLAG_ALL), record.sql_values(KYDB_FLAG_ALL));
    }
    std::ofstream(directory + "/exact.txt") << written;
    Database::QueryLoadData(handle.DBConnection(), database, "exact", directory + "/exact.txt");
    std::string loaded;
    for (Exact& record : fetchAll<Exact>(handle, "TRUE ORDER BY id")) {
        loaded += record.sql_valuesforfile(KYDB_FLAG_ALL);
    }
    EXPECT_EQ(loaded, written);
}

TEST_F(Records, RefuseWhatDoesNotFitAndSayWhy)
{
    run("CREATE TABLE exact (id INT PRIMARY KEY, part FLOAT, count INT, at INT, bytes BLOB)");
    run("INSERT INTO exact VALUES (0, 0.1, -1, NULL, NULL)");
    const std::string misfit = "column count: the value \"-1\" does not fit its variable";
    Exact record(handle);
    KYDBRecordParser parser(record);
    EXPECT_EQ(record.get(&parser), -1);
    EXPECT_EQ(record.get_error_message(), misfit);
    EXPECT_EQ(record.get_error_number(), 2000);
    EXPECT_FALSE(record.count);
    EXPECT_EQ(record.save(false), -1);
    EXPECT_EQ(record.get_error_number(), 1062);
    EXPECT_THAT(failureOf([&] { (void)fetchAll<Exact>(handle); }), HasSubstr(misfit));
    EXPECT_THAT(failureOf([&] { (void)fetchAll<Exact>(handle, "none = 1"); }),
                StartsWith("DatabaseException (4) at Query:75: Unknown column 'none'"));

    record.part = NAN;
    EXPECT_EQ(record.save(false) + record.get(&parser) + record.remove(), -3);
    EXPECT_EQ(record.get_error_message(), "column part: SQL has no NaN");
    EXPECT_EQ(record.assign("count", std::string(101, 'x')), -1);
    EXPECT_THAT(record.get_error_message(), HasSubstr('"' + std::string(100, 'x') + '"'));
}

TEST_F(Records, HandleSelectsReopensAndLetsParsersQuery)
{
    // Asks the handle for its database, and runs two more statements while it reads the answer.
    struct Current : Database::RowImpl {
        KYDBDatabase& handle;
        std::string name;
        explicit Current(KYDBDatabase& asked) : handle(asked)
        {
            Database::OneRowParser parser(*this);
            EXPECT_EQ(handle.Query("SELECT DATABASE()", &parser), 0);
        }
        bool parse(void* connection, void* result, void* row) override
        {
            name = column<std::string>(connection, result, row, 0);
            EXPECT_EQ(handle.Query("DO 1; DO 2", nullptr), 0);
            // Another thread reads the last failure without waiting for this statement.
            std::jthread([this] { name += handle.get_error_message(); }).join();
            return true;
        }
    };
    const std::string fresh = database + "_new";
    handle.selectDB(fresh); // creates it, and does not open it
    EXPECT_EQ(Current(handle).name, database);
    handle.selectDB(fresh);
    EXPECT_EQ(Current(handle).name, fresh);
    std::jthread([&] { handle.DBConnection().disconnect(); }).join();
    EXPECT_EQ(Current(handle).name, fresh);
    handle.DBConnection().dbDelete(fresh);
}

TEST_F(Records, ThreadsThatShareAHandleSeeTheirOwnFailures)
{
    run("INSERT INTO item (text) VALUES (\"taken\")");
    std::vector<std::jthread> threads;
    for (const int error : {0, 1062, 0, 1146, 0, 1062, 0, 1146}) {
        threads.emplace_back([&, error, first = threads.size() * 100] {
            for (std::size_t round = 0; round < 30; ++round) {
                Item item(&handle);
                item.text = error == 0 ? std::to_string(first + round) : "taken";
                (void)item.table_name(); // sets the name, which a later first use would do again
                item.table_name(error == 1146 ? "missing" : "item");
                EXPECT_EQ(item.save(false), error == 0 ? 0 : -1);
                EXPECT_EQ(item.get_error_number(), error);
                // The handle keeps the last failure of all threads.
                EXPECT_THAT(handle.get_error_number(), AnyOf(0, 1062, 1146));
                EXPECT_THAT(handle.get_error_message(),
                            AnyOf("", "Duplicate entry 'taken' for key 'PRIMARY'",
                                  "Table '" + database + ".missing' doesn't exist"));
            }
        });
    }
    threads.clear();
    EXPECT_EQ(value("SELECT COUNT(*) FROM item"), "121");
}

} // namespace
