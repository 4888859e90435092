#include "ScriptedClient.h"

#include <KestroTableMap>
#include <basepp/dbg.h>
#include <random>
#include <sstream>

namespace {

using namespace Kestro;
using scripted::client;
using Calls = std::vector<std::string>;

TEST(VarRefs, AssignAndWriteByKind)
{
    int number = 0;
    long wide = 0;
    std::string text;
    char buffer[6];
    const struct {
        const char* assigned;
        const char* written; // by the four kinds, joined by |; the scripted client doubles bytes
    } rows[] = {
        {" -7 apples", "-7|-7|  --77  aapppplleess|  --77  "},
        {"abc", "0|0|aabbcc|aabbcc"},
        {"0x1F", "0|0|00xx11FF|00xx11FF"},
        {"4294967298", "2|4294967298|4422994499667722998|"},
        {"", "0|0||"},
    };
    KYDBKeyVarMap map;
    map.push_back("n", number, 1).push_back("w", wide, 1).push_back("t", text, 1);
    map.push_back("b", buffer, sizeof buffer, 1);
    for (const auto& row : rows) {
        std::string written;
        for (const char* name : {"n", "w", "t", "b"}) {
            EXPECT_EQ(map.assign(name, row.assigned), 0);
            map[name]->assign(static_cast<const char*>(nullptr)); // NULL changes nothing
            std::ostringstream os;
            os << KYVarRef(map[name]);
            std::string appended;
            map[name]->append(appended);
            EXPECT_EQ(os.str(), appended);
            written += (written.empty() && *name == 'n' ? "" : "|") + appended;
        }
        if (std::string(row.assigned).size() < 10) {
            EXPECT_EQ(written, row.written);
        }
        EXPECT_EQ(map["t"]->empty(), text.empty());
        EXPECT_EQ(map["b"]->empty(), *buffer == '\0');
    }
    map.assign("b", "123456789");
    EXPECT_STREQ(buffer, "12345"); // always its NUL
    EXPECT_EQ(map.assign("none", "x"), -1);
    EXPECT_THROW((void)map["none"], std::out_of_range);
    EXPECT_TRUE(KYVarRef(KYVarRef()).isNull());
}

// The fragments over random maps, written once more the plain way.
TEST(KeyVarMap, WritersEqualAModel)
{
    std::mt19937 random(32);
    const auto upTo = [&random](int most) {
        return std::uniform_int_distribution(0, most)(random);
    };
    for (int round = 0; round < 300; ++round) {
        struct Bound {
            std::string value;
            int flags;
        };
        std::map<std::string, Bound> bound;
        std::vector<std::string> order;
        std::map<std::string, std::string> variables;
        KYDBKeyVarMap map;
        for (int i = upTo(6); i > 0; --i) {
            const std::string name(1, static_cast<char>('a' + upTo(3))); // often bound twice
            variables[name] = std::string(static_cast<std::size_t>(upTo(2)), 'v');
            bound[name] = {variables[name], upTo(15)};
            order.push_back(name);
            map.push_back(name, variables[name], bound[name].flags);
        }
        const int mask = upTo(15);
        std::string keys, values, pairs, updates, line, listing;
        for (std::size_t i = 0; i < order.size(); ++i) {
            const auto& [value, flags] = bound[order[i]];
            const std::string escaped = value + value;
            listing += std::to_string(i) + ":" + order[i] + "::->" + escaped + "\n";
            if ((flags & mask) != 0) {
                const bool first = keys.empty();
                keys += (first ? "t." : ",t.") + order[i];
                values += (first ? "(\"" : ",\"") + escaped + '"';
                pairs += (first ? "" : " AND ") + order[i] + "=\"" + escaped + '"';
                updates += (first ? " ON DUPLICATE KEY UPDATE " : ",") + order[i] + "=VALUES(" +
                           order[i] + ")";
                line += (first ? "" : "\t") + escaped;
            }
        }
        std::ostringstream os;
        map.keys(os, "t", mask);
        EXPECT_EQ(os.str(), keys);
        EXPECT_EQ(map.values(mask), keys.empty() ? "()" : values + ")");
        EXPECT_EQ(map.keyvalues(mask, " AND "), pairs);
        EXPECT_EQ(map.keyupdate(mask), updates);
        EXPECT_EQ(map.valuesforfile(mask), line + "\n");
        os.str("");
        map.dump(os);
        EXPECT_EQ(os.str(), listing);
        EXPECT_EQ(map.size(), order.size());
    }
    EXPECT_EQ(KYDBKeyVarMap().parse(nullptr), -1);
    KYDBKeyVarMap null;
    EXPECT_EQ(null.push_back("x", KYVarRef(), 1).valuesforfile(1), "\\N\n");
}

TEST(KeyVarMap, ListsAndRanges)
{
    const struct {
        const char* text;
        bool skip;
        const char* pieces;
        int count;
    } rows[] = {{"a,b,,c", false, "[x][a][b][][c]", 5},
                {"a,b,,c", true, "[x][a][b][c]", 4},
                {"a,", false, "[x][a][]", 3},
                {"a,", true, "[x][a]", 2},
                {"a", false, "[x][a]", 2},
                {"", false, "[x]", 0}};
    for (const auto& row : rows) {
        std::list<std::string> out{"x"};
        EXPECT_EQ(string2list(out, row.text, ',', row.skip), row.count);
        std::string pieces;
        for (const std::string& piece : out) {
            pieces += '[' + piece + ']';
        }
        EXPECT_EQ(pieces, row.pieces);
    }
    std::ostringstream os;
    os << DBSelectRange{20, 10} << '|' << DBSelectRange{0, 10} << '|' << DBSelectRange{5, 0} << '|'
       << DBSelectRange{-1, -1};
    EXPECT_EQ(os.str(), " LIMIT 10 OFFSET 20| LIMIT 10| OFFSET 5|");
}

struct User : KYDBTableSimple {
    KYDBDatabase* database = nullptr;
    int id = 4;
    std::string name = "A";
    char note[8] = "";
    int nameFlags = KYDB_FLAG_SAVE;

protected:
    void dbmap_init() override
    {
        if (dbmap_size() == 0) {
            table_name("users");
            DBDatabase(database);
            m_dbmap.push_back("id", id, KYDB_FLAG_KEY | KYDB_FLAG_SAVE)
                .push_back("name", name, nameFlags)
                .push_back("note", note, sizeof note, 1);
        }
    }
};

struct Users : KYDBCollectionBase {
protected:
    void collection_init() override { table_name("users"); }
};

class RecordsScripted : public scripted::Test {};

TEST_F(RecordsScripted, StatementsAreWrittenExactly)
{
    KYDBDatabase database;
    User user;
    user.database = &database;
    EXPECT_EQ(user.dbmap_size(), 0U);
    EXPECT_EQ(user.sql_keys(65535, "t"), "t.id,t.name,t.note");
    KYDBRecordParser parser(user);
    client.answers = {{0, "", {{{"5", std::nullopt, "long note"}, {"6", "B", ""}}}, {}}};
    EXPECT_EQ(user.get(&parser), 0);
    EXPECT_TRUE(parser.found());
    EXPECT_EQ(user.id, 5);
    EXPECT_EQ(user.name, "A"); // NULL leaves it
    EXPECT_STREQ(user.note, "long no");
    EXPECT_EQ(user.get(&parser), 0);
    EXPECT_FALSE(parser.found());
    user.id = 4;
    EXPECT_EQ(user.save(false), 0);
    EXPECT_EQ(user.save(true), 0);
    EXPECT_EQ(user.remove(), 0);
    User composite;
    composite.database = &database;
    composite.nameFlags |= KYDB_FLAG_KEY;
    EXPECT_EQ(composite.remove(), 0);
    EXPECT_EQ(client.calls,
              (Calls{"connect mysql", "query SELECT id,name,note FROM users WHERE id=4;", "fetch 0",
                     "query SELECT id,name,note FROM users WHERE id=5;",
                     "query, no result: INSERT INTO users SET id=4,name=\"AA\";",
                     "query, no result: INSERT INTO users SET id=4,name=\"AA\" "
                     "ON DUPLICATE KEY UPDATE id=4,name=\"AA\";",
                     "query, no result: DELETE FROM users WHERE id=4",
                     "query, no result: DELETE FROM users WHERE id=4 AND name=\"AA\""}));
}

TEST_F(RecordsScripted, FailuresStayUntilTheNextAndCopiesStartClean)
{
    KYDBDatabase database;
    User user;
    user.database = &database;
    std::string lines;
    for (const std::uint32_t mask : {0x80008U, 0x80000U, 8U}) {
        *basepp_dbg_mask_ = mask;
        client.answers = {{1062, "duplicate", {}, {}}};
        testing::internal::CaptureStderr();
        EXPECT_EQ(user.save(false), -1);
        lines += testing::internal::GetCapturedStderr();
    }
    *basepp_dbg_mask_ = 0;
    EXPECT_EQ(lines, "KYDatabase:37 Query_real 0: DatabaseException (4) at Query:88: duplicate : "
                     "INSERT INTO users SET id=4,name=\"AA\";\n");
    EXPECT_EQ(user.save(false), 0);
    EXPECT_EQ(user.get_error_number(), 1062);
    EXPECT_EQ(user.get_error_message(), "duplicate");
    EXPECT_EQ(database.get_error_number(), 1062);

    User copy(user);
    EXPECT_EQ(copy.get_error_number(), 0);
    EXPECT_EQ(copy.dbmap_size(), 0U);
    copy.name = "other";
    EXPECT_EQ(copy.sql_keyvalues(KYDB_FLAG_SAVE, ","), "id=4,name=\"ootthheerr\"");
    copy = user;
    EXPECT_EQ(copy.get_error_number(), 0);

    database.DBConnection().disconnect();
    client.connects = {false, true};
    EXPECT_EQ(database.Query("DO 1", nullptr), -1);
    EXPECT_EQ(database.get_error_message(), "");
    EXPECT_EQ(database.Query("DO 1", nullptr), 0);
    EXPECT_EQ(client.calls.back(), "query, no result: DO 1");
}

TEST_F(RecordsScripted, WithoutADatabaseIsAnError)
{
    KYDBDatabase database;
    Database::Query query(database.DBConnection());
    User user;
    Users users;
    const struct {
        std::function<void()> run;
        const char* message;
    } rows[] = {
        {[&] { user.get(nullptr); }, "Database (connection) not set for table:users"},
        {[&] { user.save(true); }, "Database (connection) not set for table:users"},
        {[&] { user.remove(); }, "Database (connection) not set for table:users"},
        {[&] { user.execute(query); }, "Database (execute) not set for table:users"},
        {[&] { users.execute(query); }, "Database (execute) not set for table:"},
        {[&] { users.DBConnection(); }, "Database (connection) not set for table:users"},
    };
    for (const auto& row : rows) {
        try {
            row.run();
            ADD_FAILURE() << row.message;
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), row.message);
        }
    }
}

} // namespace
