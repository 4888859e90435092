#include "Item.h"
#include "ServerTest.h"

#include <bitset>
#include <cmath>
#include <fstream>
#include <gmock/gmock-matchers.h>
#include <iomanip>
#include <limits>

namespace {

using namespace Kestro::Database;
using namespace std::chrono;

struct Values : ServerTest {
    Connection connection{database};
};

// Writes the value as a literal into a column of the type and reads it back.
template <class T> void expectBack(Connection& connection, const std::string& type, const T& value)
{
    const std::string text = literal(value);
    connection.execute("CREATE OR REPLACE TABLE t (v " + type + ")");
    connection.execute("INSERT INTO t VALUES (" + text + ")");
    EXPECT_TRUE(scalar<T>(connection, "SELECT v FROM t") == value) << type << text.substr(0, 400);
}

TEST_F(Values, ComeBackAsTheyWereWritten)
{
    using Float = std::numeric_limits<double>;
    for (const double value : {0.1, 1234567.89, -2.5, 1e15, 1e23, 9223372036854775808.0, 5e-324,
                               Float::max(), Float::lowest(), 1 / 3.0}) {
        expectBack(connection, "DOUBLE", value);
        // A stream writes it as exactly.
        Query query(connection);
        static_cast<std::ostream&>(query) << "UPDATE t SET v=" << value;
        query.execute();
        EXPECT_EQ(scalar<double>(connection, "SELECT v FROM t"), value) << query.sql();
    }
    expectBack(connection, "FLOAT", 0.1F);
    expectBack(connection, "TINYINT", std::int8_t{-128});
    expectBack(connection, "BIGINT", std::numeric_limits<std::int64_t>::min());
    expectBack(connection, "BIGINT UNSIGNED", std::numeric_limits<std::uint64_t>::max());
    expectBack(connection, "BIT(1)", true);
    expectBack(connection, "BOOL", false);
    expectBack(connection, "BIT(9)", std::bitset<9>(258));
    expectBack(connection, "LONGBLOB", everyByte() + std::string(70'000, '"'));
    expectBack(connection, "TEXT", std::optional<std::string>());
    expectBack(connection, "DATE", 2024y / February / 29);
    expectBack(connection, "DATE", sys_days(9999y / December / 31));
    expectBack(connection, "DATETIME", sys_seconds(-1s));
    expectBack(connection, "DATETIME(6)", sys_time<microseconds>(1'700'000'000'000'001us));
    expectBack(connection, "TIME(6)", microseconds(1us - 839h));
    EXPECT_EQ(literal(839h - 1us), "\"838:59:59.999999\"");
    EXPECT_EQ(scalar<int>(connection, "SELECT 1 UNION SELECT 2"), 1);
    EXPECT_EQ(scalar<milliseconds>(connection, "SELECT '00:00:01.5'"), 1500ms);
    EXPECT_EQ(literal(static_cast<const char*>(nullptr)) + literal(nullptr), "NULLNULL");
}

TEST_F(Values, NamesAreQuoted)
{
    for (const std::string name : {"a b", "`", "order", "ä.1", "a\"'\\"}) {
        connection.execute("CREATE TABLE " + identifier(name) + " (" + identifier(name) + " INT)");
        EXPECT_EQ(QueryTableNames(connection).names().count(name), 1U) << name;
    }
}

TEST_F(Values, WhatDoesNotFitIsRefusedByName)
{
    const auto read = [this]<class T>(T /*as*/, const std::string& expression) {
        return failureOf([&] { scalar<T>(connection, "SELECT " + expression); });
    };
    const std::string column = "DatabaseException (4) at RowContainer:2: column 0: ";
    const std::string no = column + "no value of the type that is read: \"";
    expectEqual(
        {{read(std::int8_t{}, "128"), no + "128\""},
         {read(0, "'12 '"), no + "12 \""},
         {read(0.0, "'nan'"), no + "nan\""},
         {read(0.0F, "1e39"), no + "1e39\""},
         {read(true, "2"), no + "2\""},
         {read(std::bitset<9>(), "x'0201'"), no + "\2\1\""},
         {read(std::optional<int>(), "REPEAT('9',100)"), no + std::string(100, '9') + '"'},
         {read(std::optional<int>(), "REPEAT('9',101)"), no + std::string(100, '9') + "\"..."},
         {read(sys_seconds(), "'2024-01-01 24:00:00'"), no + "2024-01-01 24:00:00\""},
         {read(sys_seconds(), "'2024-01-31 00:00:00.5'"), no + "2024-01-31 00:00:00.5\""},
         {read(sys_time<nanoseconds>(), "DATE'2263-01-01'"), no + "2263-01-01\""},
         {read(year_month_day(), "'0000-00-00'"), no + "0000-00-00\""},
         {read(year_month_day(), "'2024-01-01 00:00:00'"), no + "2024-01-01 00:00:00\""},
         {read(hours(), "'00:30:00'"), no + "00:30:00\""},
         {read(minutes(), "'00:00:60'"), no + "00:00:60\""},
         {read(microseconds(), "'00:00:00.0000001'"), no + "00:00:00.0000001\""},
         {read(0, "NULL"), column + "NULL, where a value is wanted"},
         {read(0, "1 FROM DUAL WHERE FALSE"),
          "DatabaseException (4) at Scalar:1: there is no row : SELECT 1 FROM DUAL WHERE FALSE"}});

    const auto written = [](const auto& value) { return failureOf([&] { literal(value); }); };
    const std::string noDate = "SQL has no such date (4) at ValueText:2";
    const std::string noTime = "SQL has no such time (4) at ValueText:3";
    const auto name = [](std::string_view text) { return failureOf([&] { identifier(text); }); };
    expectEqual({{written(std::nan("")), "SQL has no NaN (4) at ValueText:1"},
                 {written(-HUGE_VALF), "SQL has no infinity (4) at ValueText:1"},
                 {written(2023y / 2 / 29), noDate},
                 {written(sys_days(10000y / 1 / 1)), noDate},
                 {written(sys_days(days(24'667'000))), noDate}, // a year that takes over 16 bits
                 {written(sys_seconds::min()), noDate},
                 {written(sys_seconds::max()), noDate},
                 {written(839h), noTime},
                 {written(seconds::max()), noTime},
                 {written(duration<double>(NAN)), noTime},
                 {name(""), "an identifier is not empty (4) at Literal:1"},
                 {name({"a\0b", 3}), "an identifier has no NUL (4) at Literal:1"}});
    Query query(connection);
    query << "SELECT " << std::nan("") << ", 1";
    EXPECT_EQ(failureOf([&] { query.execute(); }),
              "DatabaseException (4) at Query:88: the statement was not written completely: "
              "SQL has no NaN : SELECT ");
}

TEST_F(Values, StreamsFollowTheFormatsThatTheyAreTold)
{
    Query query(connection);
    query << std::setw(6) << 1.5 << std::left << std::setw(5) << std::setfill('0') << 2.5
          << std::fixed << std::setprecision(2) << 0.999 << std::defaultfloat << ' '
          << std::setprecision(3) << 1234.5 << ' ' << 2.5L;
    EXPECT_EQ(query.sql(), "   1.52.5001.00 1.23e+03 2.5");
}

TEST_F(Values, RowsAreTyped)
{
    struct Row : RowImpl {
        std::optional<std::uint64_t> number;
        bool parse(void* connection, void* result, void* row) override
        {
            number = column<std::optional<std::uint64_t>>(connection, result, row, 0);
            for (const int none : {-1, 1}) {
                EXPECT_THROW(column<std::optional<int>>(connection, result, row, none),
                             DatabaseException);
            }
            return true;
        }
    };
    RowContainer container;
    KyRowParser<Row> parser(container);
    connection.execute("SELECT 18446744073709551615 UNION SELECT NULL", &parser);
    std::string seen;
    const auto all = rows<Row>(container);
    for (auto next = all.begin(); next != all.end();) {
        seen += literal((*next++).number) + ' ';
    }
    EXPECT_EQ(seen, "18446744073709551615 NULL ");
    EXPECT_THROW(*rows<NoopRowImpl>(container).begin(), std::bad_cast);
}

TEST_F(Values, RefusalsTellTheirNumber)
{
    EXPECT_EQ(exceptionOf([] { const Connection none("nothing"); }).errorNumber(), 1049);
    const DatabaseException e =
        exceptionOf([&] { connection.execute("SELECT * FROM nothing" + std::string(2000, ' ')); });
    EXPECT_THAT(e.what(), testing::StartsWith("DatabaseException (4) at Query:88, error 1146: "));
    EXPECT_LT(std::string(e.what()).size(), 1100U);
    EXPECT_GT(e.stringParameter().size(), 2000U);
}

TEST_F(Values, AScriptInItsOwnSessionLeavesThisOne)
{
    std::ofstream(directory + "/session.sql")
        << "CREATE TABLE t (v INT);\nSET autocommit=0, foreign_key_checks=0;\n"
           "INSERT INTO t VALUES (1);\nCOMMIT;\nUSE mysql;\n";
    Connection other("");
    other.execute("USE " + database);
    QueryFile(other, directory + "/session.sql").executeInOwnSession();
    EXPECT_EQ(scalar<int>(other, "SELECT v+@@autocommit+@@foreign_key_checks FROM t"), 3);
}

} // namespace
