#include "Item.h"
#include "ScriptedClient.h"
#include "Testing.h"

#include <basepp/dbg.h>
#include <functional>
#include <gmock/gmock-matchers.h>
#include <limits>
#include <sstream>

namespace {

using namespace Kestro;
using Calls = std::vector<std::string>;

TEST(TableMap, VariablesAreAssignedAndWrittenByKind)
{
    int number = 0;
    long wide = 0;
    std::string text;
    char buffer[6];
    KYDBKeyVarMap map;
    map.push_back("n", number, 1).push_back("w", wide, 1).push_back("t", text, 1);
    map.push_back("b", buffer, sizeof buffer, 1);
    const Table<const char*, const char*> rows = {
        {" -7 apples", "(-7,-7,\" -7 apples\",\" -7 a\")"}, // the buffer keeps room for its NUL
        {"'\"\\\t\n\r\x1a before a block of clean bytes",
         "(0,0,\"\\'\\\"\\\\\\t\\n\\r\\Z before a block of clean bytes\",\"\\'\\\"\\\\\\t\\n\")"},
        {"0x1F", "(0,0,\"0x1F\",\"0x1F\")"},
        {"4294967298", "(2,4294967298,\"4294967298\",\"42949\")"},
        {"", "(0,0,\"\",\"\")"}};
    for (const auto& [assigned, written] : rows) {
        std::ostringstream line;
        std::string empty;
        for (const char* name : {"n", "w", "t", "b"}) {
            EXPECT_EQ(map.assign(name, assigned), 0);
            map[name]->assign(static_cast<const char*>(nullptr)); // NULL changes nothing
            line << (empty.empty() ? "" : "\t") << map[name];
            empty += map[name]->empty() ? 'y' : 'n';
        }
        EXPECT_EQ(map.values(1), written);
        EXPECT_EQ(map.valuesforfile(1), line.str() + '\n');
        EXPECT_EQ(empty, *assigned == '\0' ? "yyyy" : "yynn"); // a number always is
    }
    EXPECT_TRUE(KYVarRef(nullptr, 0)->empty());
    std::optional<std::string> none;
    EXPECT_TRUE(KYVarRef(none)->empty() && KYVarRef::exact(text)->empty());
    EXPECT_FALSE(KYVarRef::exact(number)->empty());
}

// A kind of an application's own that changes only what is written.
template <class Kind> struct Masked : Kind {
    using Kind::Kind;
    std::ostream& streamout(std::ostream& os) const override { return os << 1000; }
    VarRefBase* dup() const override { return new Masked(*this); }
};

TEST(TableMap, WhatAKindStreamsIsWrittenInDecimalEverywhere)
{
    int number = 4096;
    std::string text = "a";
    char buffer[] = "b";
    double exact = 0.1;
    KYDBKeyVarMap map;
    map.push_back("n", KYVarRef(new Masked<KYVarRefT<int>>(number)), 1);
    map.push_back("t", KYVarRef(new Masked<KYVarRefT<std::string>>(text)), 1);
    map.push_back("b", KYVarRef(new Masked<KYVarRefT<char*>>(buffer, 2)), 1);
    map.push_back("d", KYVarRef(new Masked<KYExactRef<double>>(exact)), 1);
    map.push_back("plain", number, 1);
    std::locale::global(std::locale(std::locale::classic(), new Grouping));
    std::ostringstream os;
    os << std::hex << std::showbase;
    map.values(os, 1);
    map.valuesforfile(os, 1);
    os << DBSelectRange{2000, 1000} << DBSelectRange{0, 10} << DBSelectRange{5, 0}
       << DBSelectRange{-1, -1} << '|' << map["plain"] << map["n"] << '|' << 4096 << '|';
    map.dump(os);
    std::locale::global(std::locale::classic());
    EXPECT_EQ(
        os.str(),
        "(1000,\"1000\",\"1000\",1000,4096)1000\t1000\t1000\t1000\t4096\n"
        " LIMIT 1000 OFFSET 2000 LIMIT 10 OFFSET 5|40961000|0x1,000|0:n::->1000\n1:t::->1000\n"
        "2:b::->1000\n3:d::->1000\n4:plain::->4096\n");
}

TEST(TableMap, NullHandlesAreNeverFollowedAndDumpShowsAll)
{
    int number = 1;
    double unwritable = std::numeric_limits<double>::quiet_NaN();
    KYDBKeyVarMap map;
    map.push_back("n", number, 1).push_back("null", KYVarRef(), 2).push_back("d", unwritable, 4);
    DBRowResult row{};
    EXPECT_EQ(map.parse(&row), 3);
    EXPECT_EQ(map.assign("null", "x") + map.assign("none", "x") + map.parse(nullptr), -3);
    EXPECT_THROW((void)map["none"], std::out_of_range);
    EXPECT_EQ(map.values(1) + map.keyvalues(1, ",") + map.valuesforfile(3), "(1)n=11\t\\N\n");
    const std::string failure = "no variable (4) at KYTable:1: column null: no variable";
    EXPECT_EQ(failureOf([&] { (void)map.values(3); }), failure);
    EXPECT_EQ(failureOf([&] { (void)map.keyvalues(3, ","); }), failure);
    std::ostringstream os;
    map.dump(os);
    EXPECT_EQ(os.str(), "0:n::->1\n1:null::->no variable\n2:d::->SQL has no NaN\n");
    // What is bound twice stands twice, both times as it was bound last.
    int last = 2;
    map.push_back("n", last, 8);
    EXPECT_EQ(map.keyvalues(8, ","), "n=2,n=2");
}

TEST(TableMap, TextsAreSplitIntoLists)
{
    const Table<const char*, bool, std::list<std::string>> rows = {
        {"a,b,,c", false, {"x", "a", "b", "", "c"}},
        {"a,b,,c", true, {"x", "a", "b", "c"}},
        {"a,", false, {"x", "a", ""}},
        {"", false, {"x"}}};
    for (const auto& [text, skip, pieces] : rows) {
        std::list<std::string> out{"x"};
        EXPECT_EQ(string2list(out, text, ',', skip), *text != '\0' ? pieces.size() : 0U);
        EXPECT_EQ(out, pieces);
    }
}

// An item with a column that is fetched but not saved, and one that no statement has.
struct Viewed : Item {
    using Item::Item;
    void dbmap_init() override
    {
        if (dbmap_size() == 0) {
            Item::dbmap_init();
            m_dbmap.push_back("views", number, 1).push_back("bare", number, 0);
        }
    }
};

const std::string Text = R"(it\'s \"saved\")"; // an item's, escaped

struct Items : KYDBCollectionBase {
    void collection_init() override { table_name("items"); }
};

// Every fragment runs the hook first, returned or written into a stream.
TEST(TableMap, FragmentsHaveTheColumnsOfTheirMaskInOrder)
{
    const std::string update = " ON DUPLICATE KEY UPDATE text=VALUES(text),views=VALUES(views)";
    const Table<int, std::string> rows = {
        {KYDB_FLAG_KEY | 1, "t.text,t.views|(\"" + Text + "\",0)|text=\"" + Text +
                                "\" AND views=0|" + update + '|' + Text + "\t0\n"},
        {4, "|()|||\n"}};
    for (const auto& [mask, fragments] : rows) {
        EXPECT_EQ(Viewed().sql_keys(mask, "t") + '|' + Viewed().sql_values(mask) + '|' +
                      Viewed().sql_keyvalues(mask, " AND ") + '|' + Viewed().sql_keyupdate(mask) +
                      '|' + Viewed().sql_valuesforfile(mask),
                  fragments);
        std::ostringstream os;
        Viewed().sql_keys(os, mask, "t");
        Viewed().sql_values(os << '|', mask);
        Viewed().sql_keyvalues(os << '|', mask, " AND ");
        Viewed().sql_keyupdate(os << '|', mask);
        Viewed().sql_valuesforfile(os << '|', mask);
        EXPECT_EQ(os.str(), fragments);
    }
    std::ostringstream os;
    Viewed().dump(os);
    EXPECT_TRUE(os.str().ends_with("3:views::->0\n4:bare::->0\n"));
}

TEST(TableMap, RecordsWriteTheirStatementsAndKeepTheirLastFailure)
{
    client = {};
    KYDBDatabase database;
    Viewed item(&database);
    EXPECT_EQ(item.get(nullptr) + item.save(false) + item.save(true) + item.remove(), 0);
    const std::string query = "query, no result: ";
    const std::string where = " WHERE text=\"" + Text + '"';
    const std::string pairs = "number=0,text=\"" + Text + "\",note=\"\"";
    const std::string insert = "INSERT INTO item SET " + pairs;
    EXPECT_EQ(
        client.calls,
        (Calls{"connect mysql", query + "SELECT number,text,note,views FROM item" + where + ';',
               query + insert + ';', query + insert + " ON DUPLICATE KEY UPDATE " + pairs + ';',
               query + "DELETE FROM item" + where}));
    client.error = "syntax";
    testing::internal::CaptureStderr();
    for (const std::uint32_t mask : {0x80008U, 0x80000U, 8U, 0U}) {
        *basepp_dbg_mask_ = mask;
        client.statements = {false};
        EXPECT_EQ(item.save(false), -1);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "KYDatabase:37 Query_real 0: DatabaseException (4) at Query:88: syntax : " + insert +
                  ";\n");
    EXPECT_EQ(item.save(false), 0);
    // A success does not clear them.
    EXPECT_EQ(item.get_error_number() + database.get_error_number(), 2 * 1064);
    EXPECT_EQ(item.get_error_message() + database.get_error_message(), "syntaxsyntax");

    // Copied and assigned records have the handle, and variables of their own.
    Viewed copy(item);
    Viewed assigned;
    assigned = item;
    for (Viewed* other : {&copy, &assigned}) {
        EXPECT_EQ(other->get_error_number(), 0);
        EXPECT_EQ(other->assign("text", "B"), 0);
        EXPECT_EQ(other->sql_keyvalues(KYDB_FLAG_KEY, ",") + item.text, "text=\"B\"it's \"saved\"");
        EXPECT_EQ(&other->DBConnection(), &database.DBConnection());
    }

    Items items;
    items.DBDatabase(&database);
    Database::Query listing(items.DBConnection(), "DO 1");
    client.statements = {false};
    EXPECT_EQ(items.execute(listing), -1);
    EXPECT_EQ(items.get_error_message() + std::to_string(items.get_error_number()), "syntax1064");

    database.DBConnection().disconnect();
    client.connects = {false};
    EXPECT_EQ(database.Query("DO 1", nullptr), -1);
    EXPECT_EQ(database.get_error_message(), "");
}

TEST(TableMap, RecordsPassOnOrKeepWhatIsThrown)
{
    struct : Database::RowParser {
        void parse(void* /*connection*/, void* /*result*/) override { throw 1; }
    } parser;
    client = {};
    KYDBDatabase database;
    Viewed item(&database);
    EXPECT_THROW((void)item.get(&parser), int);
    client.thrown = true;
    EXPECT_EQ(item.save(false) + item.remove(), -2);

    Database::Query query(database.DBConnection());
    Viewed homeless;
    Items items;
    const std::string none = "Database (connection) not set for table:";
    const Table<std::function<void()>, std::string> rows = {
        {[&] { (void)homeless.get(nullptr); }, none + "item"},
        {[&] { (void)homeless.save(true); }, none + "item"},
        {[&] { (void)homeless.remove(); }, none + "item"},
        {[&] { items.DBConnection(); }, none + "items"},
        {[&] { (void)items.execute(query); }, "Database (execute) not set for table:items"}};
    for (const auto& [call, message] : rows) {
        EXPECT_THAT(call, testing::ThrowsMessage<std::runtime_error>(message));
    }
}

} // namespace
