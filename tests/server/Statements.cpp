#include "ServerTest.h"

namespace {

class Statements : public ServerTest {
protected:
    Statements() { EXPECT_EQ(db_enable_multiple_statements_per_query(link.get()), 0); }
};

TEST_F(Statements, AFailureInTheMiddleIsTheFailureOfTheCall)
{
    run("CREATE TABLE t (id INT PRIMARY KEY)");
    const std::string text = "INSERT INTO t VALUES (1); SELECT 'x'; INSERT INTO t VALUES (1); "
                             "INSERT INTO t VALUES (2); SELECT 'y'";
    for (const auto call : {db_query, db_use_query}) {
        for (const bool wanted : {true, false}) {
            run("DELETE FROM t");
            void* result = &result;
            EXPECT_NE(call(link.get(), text.c_str(), wanted ? &result : nullptr), 0);
            EXPECT_EQ(lastError(link.get()), "1062 Duplicate entry '1' for key 'PRIMARY'");
            if (wanted) {
                EXPECT_EQ(result, nullptr);
            }
            EXPECT_EQ(value("SELECT GROUP_CONCAT(id) FROM t"), "1");
            EXPECT_EQ(db_error_number(link.get()), 1062); // a success does not clear it
        }
    }
    // A statement that fails after its first rows.
    EXPECT_EQ(refusal("SELECT 1; SELECT IF(seq < 9, seq, (SELECT 1 UNION SELECT seq)) "
                      "FROM seq_1_to_10")
                  .substr(0, 4),
              "1242");
    run("DO 1");
}

TEST_F(Statements, OneResultIsGivenAndTheOthersLeaveNothingBehind)
{
    run("CREATE TABLE t (id INT)");
    run("CREATE PROCEDURE p() BEGIN SELECT 'a' UNION SELECT 'b'; SELECT 'c'; "
        "INSERT INTO t VALUES (1); END");
    for (const bool store : {true, false}) {
        for (const char* text : {"CALL p()", "INSERT INTO t VALUES (1); SELECT 'a'",
                                 "SELECT 'a'; SELECT 'c'; INSERT INTO t VALUES (1)"}) {
            SCOPED_TRACE(text);
            const Result result = query(text, store);
            void* const row = db_result_fetch_row(result.get(), 0);
            EXPECT_STREQ(db_result_get_value(nullptr, result.get(), row, 0), "a");
        }
        run("CALL p()");
        EXPECT_EQ(query("INSERT INTO t VALUES (2); DELETE FROM t WHERE id=2", store), nullptr);
    }
    EXPECT_EQ(value("SELECT COUNT(*) FROM t"), "8");
}

TEST_F(Statements, WhatIsNotSentLeavesTheLink)
{
    for (const char* blank : {"", " ", ";\n", " \t\r\n\f\v;;"}) {
        run(blank);
    }
    EXPECT_EQ(query(" ;"), nullptr);
    EXPECT_EQ(refusal("; DO 1").substr(0, 4), "1064");

    run("SET GLOBAL max_allowed_packet=1048576");
    link.reset(db_connect_unix(database.c_str()));
    const auto sized = [](std::size_t size) {
        const std::string frame = "SELECT LENGTH('')";
        return "SELECT LENGTH('" + std::string(size - frame.size(), 'x') + "')";
    };
    EXPECT_EQ(value(sized(1048574)), "1048557");
    EXPECT_EQ(refusal(sized(1048575)),
              "1153 Got a packet bigger than 'max_allowed_packet' bytes: a statement of 1048575 "
              "bytes is too long for max_allowed_packet=1048576; it was not sent");
    EXPECT_EQ(value("SELECT 'alive'"), "alive");
    run("SET GLOBAL max_allowed_packet=16777216");
}

TEST_F(Statements, CountRowsAndKeepTheLastId)
{
    run("CREATE TABLE t (id INT AUTO_INCREMENT PRIMARY KEY, k INT UNIQUE, v INT)");
    EXPECT_EQ(db_lastid(link.get()), 0U);
    const struct {
        const char* text;
        std::uint64_t rows;
        std::uint64_t id;
    } rows[] = {
        {"INSERT INTO t (k, v) VALUES (1, 1)", 1, 1},
        {"INSERT INTO t (k, v) VALUES (2, 1), (3, 1)", 2, 2},
        {"UPDATE t SET v=2 WHERE id > 1", 2, 2},
        {"INSERT INTO t (k, v) VALUES (1, 5) ON DUPLICATE KEY UPDATE v=5", 2, 1},
        {"INSERT INTO t (k, v) VALUES (4, 5); DO 1; DELETE FROM t WHERE k=1", 1, 5},
        {"SELECT * FROM t", 3, 5},
        {"SET @a=1", 0, 5},
        {" ", 0, 5},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        run(row.text);
        EXPECT_EQ(db_affected_rows(link.get()), row.rows);
        EXPECT_EQ(db_lastid(link.get()), row.id);
    }
    { // a stream counts what it delivered
        const Result result = query("SELECT * FROM t", false);
        ASSERT_NE(db_result_fetch_row(result.get(), 1), nullptr);
    }
    EXPECT_EQ(db_affected_rows(link.get()), 2U);
}

TEST_F(Statements, NullIsAllowedEverywhere)
{
    void* result = &result;
    EXPECT_NE(db_query(nullptr, "DO 1", &result), 0);
    EXPECT_EQ(result, nullptr);
    EXPECT_NE(db_use_query(nullptr, "DO 1", nullptr), 0);
    EXPECT_NE(db_enable_multiple_statements_per_query(nullptr), 0);
    EXPECT_EQ(lastError(nullptr), "2006 MySQL server has gone away (not connected)");
    db_disconnect(nullptr);
    db_free_result(nullptr);
    EXPECT_EQ(db_affected_rows(nullptr) + db_lastid(nullptr), 0U);
    EXPECT_EQ(db_result_row_num(nullptr, nullptr), 0);
    EXPECT_EQ(db_result_fields_num(nullptr, nullptr), 0);
    EXPECT_EQ(db_result_fetch_row(nullptr, 0), nullptr);
    EXPECT_EQ(db_result_get_value(nullptr, nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(db_result_field_length(nullptr, 0), 0U);
    const Result row = query("SELECT 1");
    EXPECT_EQ(db_result_get_value(nullptr, row.get(), nullptr, 0), nullptr);
}

} // namespace
