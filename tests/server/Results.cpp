#include "Proxy.h"
#include "ServerTest.h"

#include <csignal>
#include <unistd.h>

namespace {

class Results : public ServerTest {
protected:
    // The values in column 0 of the rows at these indexes.
    static std::string walk(const Handle& result, std::initializer_list<int> indexes)
    {
        std::string all;
        for (const int index : indexes) {
            all += at(result, index) + ' ';
        }
        return all;
    }
};

TEST_F(Results, RowsAreFoundByIndex)
{
    const Handle stored = query("SELECT seq FROM seq_0_to_999");
    EXPECT_EQ(db_result_row_num(nullptr, stored.get()), 1000);
    EXPECT_EQ(db_affected_rows(link.get()), 1000U);
    EXPECT_EQ(walk(stored, {0, 1, 1, 999, 0, 500, 501, 499, 1000, -1, 1001, 999, 1000}),
              "0 1 1 999 0 500 501 499 NULL NULL NULL 999 NULL ");

    const Handle streamed = query("SELECT seq FROM seq_0_to_199999", false);
    EXPECT_EQ(walk(streamed, {0, 0, 1, 5, 100, 5, 101}), "0 0 1 5 100 NULL 101 ");
    EXPECT_EQ(db_result_row_num(nullptr, streamed.get()), 102);
    EXPECT_EQ(error("DO 1"), 2014);
    EXPECT_NE(db_enable_multiple_statements_per_query(link.get()), 0);
    EXPECT_EQ(walk(streamed, {102, 199999, 200000, 199999}), "102 199999 NULL NULL ");
    EXPECT_EQ(db_affected_rows(link.get()), 200000U);

    // The first call decides. The link is free once the rows are stored or the stream is over.
    const Handle decided = query("SELECT seq FROM seq_0_to_9", false);
    EXPECT_EQ(db_result_row_num(nullptr, decided.get()), 10);
    query("SELECT seq FROM seq_0_to_199999", false); // freed without a call
    EXPECT_EQ(at(query("SELECT seq FROM seq_0_to_199999", false), 9), "9");
    EXPECT_EQ(db_affected_rows(link.get()), 10U);
    EXPECT_EQ(value("SELECT 'next'"), "next");
    EXPECT_EQ(walk(decided, {9, 0}), "9 0 ");
}

TEST_F(Results, ValuesKeepEveryByteAndNull)
{
    for (const bool store : {true, false}) {
        const Handle result =
            query("SELECT X'410042', NULL, '' UNION ALL SELECT 'x', 'yy', 'zzz'", store);
        EXPECT_EQ(db_result_field_length(result.get(), 0), 0U);
        std::string all;
        for (const int row : {0, 1}) {
            for (const int column : {-1, 0, 1, 2, 3}) {
                all += at(result, row, column) + ' ';
            }
        }
        EXPECT_EQ(all, std::string("NULL A\0B NULL  NULL NULL x yy zzz NULL ", 39));
        EXPECT_EQ(at(result, 2), "NULL");
        EXPECT_EQ(db_result_field_length(result.get(), 0), 0U);
        // Lengths around those that change how a length is sent and where a row is kept.
        for (const int length : {250, 251, 4050, 4080, 5000, 40000, 65535, 65536, 262100, 300000}) {
            const std::string text = "REPEAT('x', " + std::to_string(length) + ")";
            const Handle rows = query("SELECT 'a' UNION ALL SELECT " + text +
                                          " UNION ALL SELECT 'b' UNION ALL SELECT " + text,
                                      store);
            const std::string value(static_cast<std::size_t>(length), 'x');
            EXPECT_TRUE(walk(rows, {0, 1, 2, 3, 4}) == "a " + value + " b " + value + " NULL ");
        }
    }
}

TEST_F(Results, PacketsBesideTheAnswerAreNone)
{
    Proxy proxy;
    proxy.edit = [](bool fromServer, std::string& bytes) {
        if (!fromServer && bytes[3] == '\1') {
            bytes[4] |= '\x80'; // the login says that files may be asked for
        } else if (fromServer && bytes.starts_with(std::string_view("\7\0\0\1\0", 5))) {
            bytes[3] = '\3'; // before an OK come reports of progress
            bytes.insert(0, "\3\0\0\1\xff\xff\xff\3\0\0\2\xff\xff\xff", 14);
        }
    };
    reopen();
    run("CREATE TABLE t (line TEXT)");
    EXPECT_EQ(error("LOAD DATA LOCAL INFILE '/etc/passwd' INTO TABLE t"), 4166);
    EXPECT_EQ(value("SELECT COUNT(*) FROM t"), "0");
}

TEST_F(Results, LongTextsAndValuesPassWhileSignalsInterrupt)
{
    run("SET GLOBAL max_allowed_packet=67108864");
    reopen();
    struct sigaction interruption {};
    interruption.sa_handler = [](int) {};
    sigaction(SIGALRM, &interruption, nullptr);
    ualarm(300, 300); // microseconds
    // A part of a packet has 16777215 bytes. A text or a row fills it, or needs one byte more.
    for (const auto& [size, store] : Table<std::size_t, bool>{{16777205, true},
                                                              {16777206, false},
                                                              {16777211, true},
                                                              {16777211, false},
                                                              {16777212, true},
                                                              {16777212, false},
                                                              {34000000, true}}) {
        const std::string text(size, 'x');
        EXPECT_TRUE(at(query("SELECT '" + text + "'", store), 0) == text) << size;
        EXPECT_EQ(value("SELECT 'next'"), "next");
    }
    ualarm(0, 0);

    run("SET GLOBAL max_allowed_packet=1048576");
    reopen();
    const std::string fits = "SELECT LENGTH('" + std::string(1048557, 'x') + "')";
    EXPECT_EQ(value(fits), "1048557");
    EXPECT_EQ(error(fits + ' '), 1153);
    EXPECT_EQ(value("SELECT 'alive'"), "alive");
    run("SET GLOBAL max_allowed_packet=16777216");
}

TEST_F(Results, OutliveTheirLink)
{
    const Handle stored = query("SELECT 1");
    const Handle streamed = query("SELECT seq FROM seq_1_to_100000", false);
    EXPECT_EQ(at(streamed, 0), "1");
    link.reset();
    EXPECT_EQ(at(stored, 0), "1");
    EXPECT_THROW(at(streamed, 1), Kestro::Exception);
    EXPECT_EQ(db_result_row_num(nullptr, streamed.get()), 1);
}

TEST_F(Results, SeveralStatementsAreOneCall)
{
    db_enable_multiple_statements_per_query(link.get());
    run("CREATE TABLE t (id INT PRIMARY KEY)");
    run("CREATE PROCEDURE p() BEGIN SELECT 'a' UNION SELECT 'b'; SELECT 'c'; DELETE FROM t; END");
    for (const bool store : {true, false}) {
        for (const char* text : {"CALL p()", "INSERT INTO t VALUES (1); SELECT 'a'",
                                 "SELECT 'a'; SELECT 'c'; INSERT INTO t VALUES (2)"}) {
            EXPECT_EQ(at(query(text, store), 0), "a") << text;
        }
        EXPECT_EQ(value("SELECT COUNT(*) FROM t"), "2");
        run("CALL p()");
        EXPECT_EQ(query("INSERT INTO t VALUES (2); DELETE FROM t", store), nullptr);
        // A failure in the middle is the failure of the call.
        void* result = &result;
        const auto call = store ? db_query : db_use_query;
        const char* const text = "INSERT INTO t SELECT 1; SELECT 2; INSERT INTO t SELECT 1; DO 1";
        EXPECT_NE(call(link.get(), text, &result), 0);
        EXPECT_EQ(result, nullptr);
        EXPECT_EQ(value("SELECT GROUP_CONCAT(id) FROM t"), "1");
        EXPECT_EQ(db_error_number(link.get()), 1062); // a success does not clear it
        EXPECT_STREQ(db_error_message(link.get()), "Duplicate entry '1' for key 'PRIMARY'");
        run("DELETE FROM t");
    }
    EXPECT_EQ(error("DO 1; FAIL"), 1064);
    EXPECT_EQ(error("; DO 1"), 1064);
    // A statement that fails after its first rows.
    EXPECT_EQ(error("SELECT 1; SELECT (SELECT seq UNION SELECT 1) FROM seq_1_to_9"), 1242);
    run("DO 1");
}

TEST_F(Results, StatementsCountRowsAndKeepTheLastId)
{
    db_enable_multiple_statements_per_query(link.get());
    run("CREATE TABLE t (id INT AUTO_INCREMENT PRIMARY KEY, k INT UNIQUE, v INT)");
    const Table<const char*, std::uint64_t, std::uint64_t> rows = {
        {"SELECT 1", 1, 0},
        {"INSERT INTO t (k, v) VALUES (1, 1)", 1, 1},
        {"INSERT INTO t (k, v) VALUES (2, 1), (3, 1)", 2, 2},
        {"UPDATE t SET v=2 WHERE id > 1", 2, 2},
        {"INSERT INTO t (k, v) VALUES (1, 5) ON DUPLICATE KEY UPDATE v=5", 2, 1},
        {"INSERT INTO t (k, v) VALUES (4, 5); DO 1; DELETE FROM t WHERE k=1", 1, 5},
        {"SELECT * FROM t", 3, 5},
        {" \t\r\n\f\v;;", 0, 5}};
    for (const auto& [text, changed, id] : rows) {
        run(text);
        EXPECT_EQ(db_affected_rows(link.get()), changed) << text;
        EXPECT_EQ(db_lastid(link.get()), id) << text;
    }
}

TEST_F(Results, NullIsAllowedEverywhere)
{
    EXPECT_NE(db_query(nullptr, "DO 1", nullptr), 0);
    EXPECT_EQ(db_error_number(nullptr), 2006);
    db_disconnect(nullptr);
    db_free_result(nullptr);
    EXPECT_EQ(db_affected_rows(nullptr) + db_lastid(nullptr), 0U);
    EXPECT_EQ(db_result_row_num(nullptr, nullptr), 0);
}

} // namespace
