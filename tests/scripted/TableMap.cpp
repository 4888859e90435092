#include "ScriptedClient.h"
#include "Testing.h"

#include <KestroTableMap>
#include <basepp/dbg.h>
#include <bitset>
#include <functional>
#include <gmock/gmock.h>
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
        {"\"'", "(0,0,\"\\\"\\'\",\"\\\"\\'\")"},
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
    map.push_back("plain", number, 2);
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
        "(1000,\"1000\",\"1000\",1000)1000\t1000\t1000\t1000\n"
        " LIMIT 1000 OFFSET 2000 LIMIT 10 OFFSET 5|40961000|0x1,000|0:n::->1000\n1:t::->1000\n"
        "2:b::->1000\n3:d::->1000\n4:plain::->4096\n");
}

// What a variable with this value holds after it was assigned a text, and why not the text.
template <class T> std::string assigned(T value, const std::string& text)
{
    KYDBKeyVarMap map;
    map.push_back("v", KYVarRef::exact(value), 1);
    const std::string failure = failureOf([&] { EXPECT_EQ(map.assign("v", text), 0); });
    return map.values(1) + failure;
}

TEST(TableMap, ExactReferencesTakeTheWholeValueOrNothing)
{
    using namespace std::string_literals;
    const auto misfit = [](const std::string& value, const std::string& text) {
        const std::string why = "the value \"" + text + "\" does not fit its variable";
        return value + why + " (4) at KYTable:2: column v: " + why;
    };
    expectEqual({
        {assigned(1.5, std::string(101, 'x')), misfit("(1.5)", std::string(100, 'x'))},
        {assigned(std::bitset<9>(), "\1\2"), "(258)"},
        {assigned(std::bitset<9>(7), "\2\1"), misfit("(7)", "\2\1")},
        {assigned("old"s, "a\0b"s), "(\"a\\0b\")"},
    });
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
    EXPECT_EQ(map.keyvalues(9, ","), "n=2,n=2");
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

struct User : KYDBTableSimple {
    int id = 4;
    std::string name = "A";
    int seen = 7;

    explicit User(KYDBDatabase* database) { DBDatabase(database); }

    void dbmap_init() override
    {
        if (dbmap_size() == 0) {
            table_name("users");
            m_dbmap.push_back("id", id, KYDB_FLAG_KEY | KYDB_FLAG_SAVE)
                .push_back("name", name, KYDB_FLAG_KEY | KYDB_FLAG_SAVE)
                .push_back("seen", seen, 1)
                .push_back("bare", seen, 0);
        }
    }
};

struct Users : KYDBCollectionBase {
    void collection_init() override { table_name("users"); }
};

// Every fragment runs the hook first, returned or written into a stream.
TEST(TableMap, FragmentsHaveTheColumnsOfTheirMaskInOrder)
{
    const auto user = [] {
        User made(nullptr);
        made.name = "'";
        return made;
    };
    const Table<int, std::string> rows = {
        {KYDB_FLAG_KEY, "t.id,t.name|(4,\"\\'\")|id=4 AND name=\"\\'\"|"
                        " ON DUPLICATE KEY UPDATE id=VALUES(id),name=VALUES(name)|4\t\\'\n"},
        {4, "|()|||\n"}};
    for (const auto& [mask, fragments] : rows) {
        EXPECT_EQ(user().sql_keys(mask, "t") + '|' + user().sql_values(mask) + '|' +
                      user().sql_keyvalues(mask, " AND ") + '|' + user().sql_keyupdate(mask) + '|' +
                      user().sql_valuesforfile(mask),
                  fragments);
        std::ostringstream os;
        user().sql_keys(os, mask, "t");
        user().sql_values(os << '|', mask);
        user().sql_keyvalues(os << '|', mask, " AND ");
        user().sql_keyupdate(os << '|', mask);
        user().sql_valuesforfile(os << '|', mask);
        EXPECT_EQ(os.str(), fragments);
    }
    std::ostringstream os;
    User(nullptr).dump(os);
    EXPECT_EQ(os.str(), "0:id::->4\n1:name::->A\n2:seen::->7\n3:bare::->7\n");
}

TEST(TableMap, RecordsWriteTheirStatementsAndKeepTheirLastFailure)
{
    client = {};
    KYDBDatabase database;
    User user(&database);
    EXPECT_EQ(user.get(nullptr) + user.save(false) + user.save(true) + user.remove(), 0);
    const std::string query = "query, no result: ";
    const std::string where = " WHERE id=4 AND name=\"A\"";
    const std::string insert = query + "INSERT INTO users SET id=4,name=\"A\"";
    EXPECT_EQ(client.calls,
              (Calls{"connect mysql", query + "SELECT id,name,seen FROM users" + where + ';',
                     insert + ';', insert + " ON DUPLICATE KEY UPDATE id=4,name=\"A\";",
                     query + "DELETE FROM users" + where}));
    client.error = "syntax";
    testing::internal::CaptureStderr();
    for (const std::uint32_t mask : {0x80008U, 0x80000U, 8U, 0U}) {
        *basepp_dbg_mask_ = mask;
        client.statements = {false};
        EXPECT_EQ(user.save(false), -1);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "KYDatabase:37 Query_real 0: DatabaseException (4) at Query:88: syntax : "
              "INSERT INTO users SET id=4,name=\"A\";\n");
    EXPECT_EQ(user.save(false), 0);
    // A success does not clear them.
    EXPECT_EQ(user.get_error_number() + database.get_error_number(), 2 * 1064);
    EXPECT_EQ(user.get_error_message() + database.get_error_message(), "syntaxsyntax");

    // Copied and assigned records have the handle, and variables of their own.
    User copy(user);
    User assigned(nullptr);
    assigned = user;
    for (User* other : {&copy, &assigned}) {
        EXPECT_EQ(other->get_error_number(), 0);
        EXPECT_EQ(other->assign("name", "B"), 0);
        EXPECT_EQ(other->sql_keyvalues(KYDB_FLAG_SAVE, ",") + user.name, "id=4,name=\"B\"A");
        EXPECT_EQ(&other->DBConnection(), &database.DBConnection());
    }

    Users users;
    users.DBDatabase(&database);
    Database::Query listing(users.DBConnection(), "DO 1");
    client.statements = {false};
    EXPECT_EQ(users.execute(listing), -1);
    EXPECT_EQ(users.get_error_message() + std::to_string(users.get_error_number()), "syntax1064");

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
    User user(&database);
    EXPECT_THROW((void)user.get(&parser), int);
    client.thrown = true;
    EXPECT_EQ(user.save(false) + user.remove(), -2);

    Database::Query query(database.DBConnection());
    User homeless(nullptr);
    Users users;
    const std::string none = "Database (connection) not set for table:users";
    const Table<std::function<void()>, std::string> rows = {
        {[&] { (void)homeless.get(nullptr); }, none},
        {[&] { (void)homeless.save(true); }, none},
        {[&] { (void)homeless.remove(); }, none},
        {[&] { users.DBConnection(); }, none},
        {[&] { (void)users.execute(query); }, "Database (execute) not set for table:users"}};
    for (const auto& [call, message] : rows) {
        EXPECT_THAT(call, testing::ThrowsMessage<std::runtime_error>(message));
    }
}

} // namespace
