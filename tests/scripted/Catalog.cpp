#include "ScriptedClient.h"

#include <Kestro/Database/QueryCount.h>
#include <Kestro/Database/QueryDescribeTable.h>
#include <Kestro/Database/QueryTableNames.h>
#include <Kestro/Database/TableName.h>

namespace {

using namespace Kestro::Database;
using scripted::client;
using Calls = std::vector<std::string>;

class CatalogScripted : public scripted::Test {
protected:
    Connection connection{"one"};

    void answer(const std::vector<scripted::Row>& rows)
    {
        client.calls.clear();
        client.answers = {{0, "", rows, {}}};
    }
    void TearDown() override
    {
        connection.disconnect();
        scripted::Test::TearDown();
    }
};

TEST_F(CatalogScripted, CountReadsTheFirstColumnOfTheFirstRow)
{
    const struct {
        std::vector<scripted::Row> rows;
        std::int32_t count;
    } rows[] = {
        {{{"7", "1"}, {"9", "1"}}, 7},
        {{}, 0},
        {{{" -12abc"}}, -12},
        {{{"none"}}, 0},
        {{{""}}, 0},
        {{{std::nullopt}}, 0},
        {{{"4294967298"}}, 2},
        {{{"+5.9"}}, 5},
    };
    for (const auto& row : rows) {
        answer(row.rows);
        EXPECT_EQ(QueryCount(connection, "SELECT x").count(), row.count);
        EXPECT_EQ(client.calls.front(), "query SELECT x");
    }
    client.answers.clear();
    EXPECT_EQ(QueryCount(connection, "UPDATE t").count(), 0); // no result at all
    client.calls.clear();
    EXPECT_EQ(QueryCount(connection, "").count(), 0);
    EXPECT_TRUE(client.calls.empty());
}

TEST_F(CatalogScripted, StatementsAreWrittenAsTheyAre)
{
    answer({{"id", "int(11)", "NO"}, {std::nullopt, "text", ""}, {"x", std::nullopt, ""}});
    const QueryDescribeTable described(connection, "orders");
    std::string fields;
    for (const auto& field : described.fields()) {
        fields += field.name + '=' + field.type + ' ';
    }
    EXPECT_EQ(fields, "id=int(11) =text x= ");
    EXPECT_EQ(client.calls.front(), "query desc orders;");

    answer({{"b"}, {"a"}, {"b"}, {"B"}});
    EXPECT_EQ(QueryTableNames(connection).names(), (std::set<std::string>{"B", "a", "b"}));
    EXPECT_EQ(client.calls.front(), "query show tables;");

    answer({{"orders"}});
    EXPECT_TRUE(QueryTableExists(connection, "orders").exists());
    EXPECT_EQ(client.calls.front(), "query show tables like 'orders';");
    answer({});
    EXPECT_FALSE(QueryTableExists(connection, "x' or '").exists());
    EXPECT_EQ(client.calls.front(), "query show tables like 'x' or '';");
}

TEST_F(CatalogScripted, RowsWithoutWhatTheyNeedNameThemselves)
{
    const struct {
        std::function<void()> run;
        std::vector<scripted::Row> rows;
        const char* failure;
    } rows[] = {
        {[&] { QueryCount(connection, "x"); }, {{}, {}}, "CountRow (4) at QueryCount:19"},
        {[&] { QueryDescribeTable(connection, "x"); },
         {{}},
         "FieldRow (4) at QueryDescribeTable:19"},
        {[&] { QueryTableNames x(connection); }, {{}}, "TableNamesRow (4) at QueryTableNames:19"},
        {[&] { QueryTableNames x(connection); }, {{""}}, "TableNamesRow (4) at QueryTableNames:24"},
    };
    for (const auto& row : rows) {
        answer(row.rows);
        try {
            row.run();
            ADD_FAILURE() << row.failure;
        } catch (const Kestro::Exception& e) {
            EXPECT_EQ(e.asString(), row.failure);
            EXPECT_EQ(typeid(e), typeid(Kestro::Exception));
        }
        EXPECT_EQ(client.openResults, 0);
    }
}

struct OtherName : TableName {
    using TableName::TableName;
    const std::string& prefix() const override
    {
        static const std::string text = "x_";
        return text;
    }
};

TEST(TableNames, BothFormsFollowFromEither)
{
    const struct {
        const char* text;
        bool isFqn;
        const char* name;
        const char* fqn;
    } rows[] = {
        {"user", false, "user", "ky_user"},
        {"ky_user", true, "user", "ky_user"},
        {"ky_", true, "", "ky_"},
        {"other_table", true, "", "other_table"},
        {"KY_user", true, "", "KY_user"},
        {"ky_user", false, "ky_user", "ky_ky_user"},
        {"", false, "", "ky_"},
        {"", true, "", ""},
    };
    for (const auto& row : rows) {
        const TableName name(row.text, row.isFqn);
        EXPECT_EQ(name.name(), row.name) << row.text;
        EXPECT_EQ(name.fqn(), row.fqn) << row.text;
    }
    TableName name("a", false);
    name.parse("other", true);
    EXPECT_EQ(name.name(), "a"); // what is no full name of ours leaves the short one
    EXPECT_EQ(name.fqn(), "other");
    EXPECT_FALSE(name.exclude());

    OtherName other("a", false);
    EXPECT_EQ(other.fqn(), "ky_a"); // a base's constructor sees the base's prefix
    other.parse("x_b", true);
    EXPECT_EQ(other.name(), "b");
}

TEST(TableNames, CompareByTheFullName)
{
    const TableName a("a", false);
    TableName same("zzz", false);
    same.parse("ky_a", true);
    EXPECT_TRUE(a == same && !(a != same) && !(a < same) && !(same < a));
    EXPECT_TRUE(a < TableName("b", false));
    EXPECT_TRUE(a < TableName("zzz", true));
    EXPECT_TRUE(a != TableName("ky_A", true));
}

} // namespace
