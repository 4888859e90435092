#include "ScriptedClient.h"
#include "Testing.h"

#include <KestroTableMap>
#include <basepp/dbg.h>
#include <bitset>
#include <limits>
#include <locale>
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
    map.push_back("b", buffer, sizeof buffer, 1).push_back("null", KYVarRef(), 2);
    const Table<const char*, const char*> rows = {
        {" -7 apples", "(-7,-7,\" -7 apples\",\" -7 a\")"}, // the buffer keeps room for its NUL
        {"\"'", "(0,0,\"\\\"\\'\",\"\\\"\\'\")"},
        {"0x1F", "(0,0,\"0x1F\",\"0x1F\")"},
        {"4294967298", "(2,4294967298,\"4294967298\",\"42949\")"},
        {"", "(0,0,\"\",\"\")"}};
    for (const auto& [assigned, written] : rows) {
        std::string streamed;
        for (const char* name : {"n", "w", "t", "b"}) {
            EXPECT_EQ(map.assign(name, assigned), 0);
            map[name]->assign(static_cast<const char*>(nullptr)); // NULL changes nothing
            std::ostringstream os;
            os << map[name];
            streamed += (streamed.empty() ? "" : "\t") + os.str();
        }
        EXPECT_EQ(map.values(1), written);
        EXPECT_EQ(map.valuesforfile(1), streamed + '\n');
        EXPECT_EQ(map["b"]->empty(), *assigned == '\0');
    }
    EXPECT_EQ(map.valuesforfile(2), "\\N\n");
    EXPECT_EQ(map.assign("none", "x"), -1);
    EXPECT_EQ(map.parse(nullptr), -1);
    EXPECT_THROW((void)map["none"], std::out_of_range);
}

// A kind of an application's own that changes only what is written.
template <class T> struct Masked : KYVarRefT<T> {
    using KYVarRefT<T>::KYVarRefT;
    std::ostream& streamout(std::ostream& os) const override { return os << "***"; }
    VarRefBase* dup() const override { return new Masked(*this); }
};

struct MaskedExact : KYExactRef<double> {
    using KYExactRef::KYExactRef;
    std::ostream& streamout(std::ostream& os) const override { return os << "***"; }
    VarRefBase* dup() const override { return new MaskedExact(*this); }
};

TEST(TableMap, WhatAKindStreamsIsWrittenEverywhere)
{
    int number = 1;
    std::string text = "a";
    char buffer[] = "b";
    KYDBKeyVarMap map;
    map.push_back("n", KYVarRef(new Masked<int>(number)), 1);
    map.push_back("t", KYVarRef(new Masked<std::string>(text)), 1);
    map.push_back("b", KYVarRef(new Masked<char*>(buffer, sizeof buffer)), 1);
    EXPECT_EQ(map.values(1), "(***,\"***\",\"***\")");
    double exact = 0.1;
    map.push_back("d", KYVarRef(new MaskedExact(exact)), 1);
    EXPECT_EQ(map.valuesforfile(1), "***\t***\t***\t***\n");
}

// Groups digits by threes.
struct Grouping : std::numpunct<char> {
    std::string do_grouping() const override { return "\3"; }
};

TEST(TableMap, NumbersAreDecimalInEveryStream)
{
    std::ostringstream os;
    os.imbue(std::locale(os.getloc(), new Grouping));
    os << std::hex << std::showbase;
    int number = 12345;
    KYDBKeyVarMap map;
    for (int i = 0; i <= 10; ++i) {
        map.push_back(std::to_string(i), number, 1);
    }
    os << DBSelectRange{2000, 1000} << '|' << map["0"] << '|' << 4096 << '|';
    map.dump(os);
    EXPECT_EQ(os.str().substr(0, 38), " LIMIT 1000 OFFSET 2000|12345|0x1,000|");
    EXPECT_NE(os.str().find("10:10::->12345\n"), std::string::npos);
}

// The value in a statement and in a data file, or why it is not there.
template <class T> std::string written(T value)
{
    KYDBKeyVarMap map;
    map.push_back("v", KYVarRef::exact(value), 1);
    const std::string failure = failureOf([&] { (void)map.valuesforfile(1); });
    return failure.empty() ? map.values(1) + map.valuesforfile(1) : failure;
}

// What a variable with this value holds after it was assigned a text, and why not the text.
template <class T> std::string assigned(T value, const std::string& text)
{
    KYDBKeyVarMap map;
    map.push_back("v", KYVarRef::exact(value), 1);
    const std::string failure = failureOf([&] { EXPECT_EQ(map.assign("v", text), 0); });
    return map.values(1) + failure;
}

TEST(TableMap, ExactReferencesWriteAndTakeTheWholeValue)
{
    using namespace std::chrono;
    using namespace std::string_literals;
    const auto misfit = [](const std::string& value, const std::string& text) {
        const std::string why = "the value \"" + text + "\" does not fit its variable";
        return value + why + " (4) at KYTable:2: column v: " + why;
    };
    const Table<std::string, std::string> rows = {
        {written(0.1), "(0.1)0.1\n"},
        {written(0.1F), "(0.10000000149011612)0.10000000149011612\n"},
        {written(std::numeric_limits<std::uint64_t>::max()),
         "(18446744073709551615)18446744073709551615\n"},
        {written(true), "(1)1\n"},
        {written(std::optional<int>(7)), "(7)7\n"},
        {written(std::optional<double>()), "(NULL)\\N\n"},
        {written(std::optional<std::string>()), "(NULL)\\N\n"},
        {written(std::optional("\"\0"s)), R"(("\"\0")\"\0)"s + '\n'},
        {written(std::optional(""s)), "(\"\")\n"},
        {written(2026y / 1 / 31), "(\"2026-01-31\")2026-01-31\n"},
        {written(std::optional(std::numeric_limits<double>::infinity())),
         "SQL has no infinity (4) at ValueText:1: column v: SQL has no infinity"},
        {assigned(1U, "4294967295"), "(4294967295)"},
        {assigned(1U, "4294967296"), misfit("(1)", "4294967296")},
        {assigned(std::optional<int>(), "-1 "), misfit("(NULL)", "-1 ")},
        {assigned(std::optional<long>(), "-1"), "(-1)"},
        {assigned(true, "2"), misfit("(1)", "2")},
        {assigned(1.5, std::string(101, 'x')), misfit("(1.5)", std::string(100, 'x'))},
        {assigned(std::bitset<9>(), "\1\2"), "(258)"},
        {assigned(std::bitset<9>(7), "\2\1"), misfit("(7)", "\2\1")},
        {assigned("old"s, "a\0b"s), "(\"a\\0b\")"},
    };
    for (const auto& [actual, expected] : rows) {
        EXPECT_EQ(actual, expected);
    }
    for (const std::size_t length : {501UL, 1000UL, 65537UL}) { // not on the stack
        std::string escaped;
        for (std::size_t i = 0; i < length; ++i) {
            escaped += "\\\"";
        }
        EXPECT_EQ(written(std::string(length, '"')), "(\"" + escaped + "\")" + escaped + '\n');
    }
}

TEST(TableMap, NullHandlesAreNeverFollowedAndDumpShowsAll)
{
    int number = 1;
    KYDBKeyVarMap map;
    map.push_back("n", number, 1).push_back("null", KYVarRef(), 2);
    DBRowResult row{};
    EXPECT_EQ(map.parse(&row), 2);
    EXPECT_EQ(map.assign("null", "x"), -1);
    EXPECT_EQ(map.values(1) + map.keyvalues(1, ",") + map.valuesforfile(3), "(1)n=11\t\\N\n");
    const std::string failure = "no variable (4) at KYTable:1: column null: no variable";
    EXPECT_EQ(failureOf([&] { (void)map.values(3); }), failure);
    EXPECT_EQ(failureOf([&] { (void)map.keyvalues(3, ","); }), failure);
    double unwritable = std::numeric_limits<double>::quiet_NaN();
    map.push_back("d", unwritable, 1);
    std::ostringstream os;
    map.dump(os);
    EXPECT_EQ(os.str(), "0:n::->1\n1:null::->no variable\n2:d::->SQL has no NaN\n");
}

TEST(TableMap, FragmentsHaveTheColumnsOfTheirMaskInOrder)
{
    std::string first;
    std::string quote = "'";
    std::string second = "2";
    KYDBKeyVarMap map;
    map.push_back("a", first, 1).push_back("b", quote, 1).push_back("a", second, 6);
    const std::string update = " ON DUPLICATE KEY UPDATE ";
    const Table<int, std::string, std::string, std::string, std::string> rows = {
        // What is bound twice stands twice, both times as it was bound last.
        {1, "t.b", R"(("\'"))", R"(b="\'")", update + "b=VALUES(b)"},
        {10, "t.a,t.a", R"(("2","2"))", R"(a="2" AND a="2")", update + "a=VALUES(a),a=VALUES(a)"},
        {5, "t.a,t.b,t.a", R"(("2","\'","2"))", R"(a="2" AND b="\'" AND a="2")",
         update + "a=VALUES(a),b=VALUES(b),a=VALUES(a)"},
        {8, "", "()", "", ""}};
    for (const auto& [mask, keys, values, pairs, updates] : rows) {
        EXPECT_EQ(map.keys("t", mask), keys);
        EXPECT_EQ(map.values(mask), values);
        EXPECT_EQ(map.keyvalues(mask, " AND "), pairs);
        EXPECT_EQ(map.keyupdate(mask), updates);
    }
    std::ostringstream os;
    map.dump(os);
    EXPECT_EQ(os.str(), "0:a::->2\n1:b::->\\'\n2:a::->2\n");
}

TEST(TableMap, ListsAndRanges)
{
    const Table<const char*, bool, const char*, int> rows = {{"a,b,,c", false, "x|a|b||c|", 5},
                                                             {"a,b,,c", true, "x|a|b|c|", 4},
                                                             {"a,", false, "x|a||", 3},
                                                             {"a,", true, "x|a|", 2},
                                                             {"", false, "x|", 0}};
    for (const auto& [text, skip, pieces, count] : rows) {
        std::list<std::string> out{"x"};
        EXPECT_EQ(string2list(out, text, ',', skip), count);
        std::string joined;
        for (const std::string& piece : out) {
            joined += piece + '|';
        }
        EXPECT_EQ(joined, pieces);
    }
    std::ostringstream os;
    os << DBSelectRange{20, 10} << '|' << DBSelectRange{0, 10} << '|' << DBSelectRange{5, 0} << '|'
       << DBSelectRange{-1, -1};
    EXPECT_EQ(os.str(), " LIMIT 10 OFFSET 20| LIMIT 10| OFFSET 5|");
}

struct User : KYDBTableSimple {
    KYDBDatabase* database;
    int id = 4;
    std::string name = "A";
    int nameFlags = KYDB_FLAG_SAVE;

    explicit User(KYDBDatabase* handle) : database(handle) {}

protected:
    void dbmap_init() override
    {
        if (dbmap_size() == 0) {
            table_name("users");
            DBDatabase(database);
            m_dbmap.push_back("id", id, KYDB_FLAG_KEY | KYDB_FLAG_SAVE)
                .push_back("name", name, nameFlags);
        }
    }
};

struct Users : KYDBCollectionBase {
protected:
    void collection_init() override { table_name("users"); }
};

TEST(TableMap, RecordsWriteTheirStatementsAndKeepTheirLastFailure)
{
    client = {};
    KYDBDatabase database;
    User user(&database);
    EXPECT_EQ(user.get(nullptr) + user.save(false) + user.save(true) + user.remove(), 0);
    User composite(&database);
    composite.nameFlags |= KYDB_FLAG_KEY;
    EXPECT_EQ(composite.get(nullptr) + composite.remove(), 0);
    const std::string save = "query, no result: INSERT INTO users SET id=4,name=\"A\"";
    EXPECT_EQ(client.calls,
              (Calls{"connect mysql", "query, no result: SELECT id,name FROM users WHERE id=4;",
                     save + ';', save + " ON DUPLICATE KEY UPDATE id=4,name=\"A\";",
                     "query, no result: DELETE FROM users WHERE id=4",
                     "query, no result: SELECT id,name FROM users WHERE id=4 AND name=\"A\";",
                     "query, no result: DELETE FROM users WHERE id=4 AND name=\"A\""}));
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
    EXPECT_EQ(user.get_error_number(), 1064); // a success does not clear it
    EXPECT_EQ(user.get_error_message() + database.get_error_message(), "syntaxsyntax");
    User copy(user);
    EXPECT_EQ(copy.get_error_number(), 0);
    copy.name = "B"; // bound anew
    EXPECT_EQ(copy.sql_keyvalues(KYDB_FLAG_SAVE, ","), "id=4,name=\"B\"");
    copy = user;
    EXPECT_EQ(copy.get_error_number(), 0);

    database.DBConnection().disconnect();
    client.connects = {false};
    EXPECT_EQ(database.Query("DO 1", nullptr), -1);
    EXPECT_EQ(database.get_error_message(), "");
    EXPECT_EQ(database.Query("DO 1", nullptr), 0);
    EXPECT_EQ(client.calls.back(), "query, no result: DO 1");
}

TEST(TableMap, RecordsWithoutADatabaseThrow)
{
    client = {};
    KYDBDatabase database;
    Database::Query query(database.DBConnection());
    User user(nullptr);
    Users users;
    const auto message = [](const auto& call) -> std::string {
        try {
            call();
        } catch (const std::runtime_error& e) {
            return e.what();
        }
        return "";
    };
    const std::string start = "Database (connection) not set for table:users";
    EXPECT_EQ(message([&] { (void)user.get(nullptr); }), start);
    EXPECT_EQ(message([&] { (void)user.save(true); }), start);
    EXPECT_EQ(message([&] { (void)user.remove(); }), start);
    EXPECT_EQ(message([&] { users.DBConnection(); }), start);
    EXPECT_EQ(message([&] { (void)users.execute(query); }),
              "Database (execute) not set for table:users");
}

} // namespace
