#include "ServerTest.h"

#include <Kestro/Exception.h>
#include <thread>

namespace {

class Results : public ServerTest {
protected:
    // The first column of the row at the index.
    static std::string at(const Result& result, int index)
    {
        void* const row = db_result_fetch_row(result.get(), index);
        const char* text = db_result_get_value(nullptr, result.get(), row, 0);
        return text != nullptr ? text : "none";
    }
};

TEST_F(Results, StoredRowsAreFoundByIndex)
{
    const Result result = query("SELECT seq FROM seq_0_to_999");
    EXPECT_EQ(db_result_row_num(link.get(), result.get()), 1000);
    for (const int index : {0, 1, 1, 999, 0, 500, 501, 499}) {
        EXPECT_EQ(at(result, index), std::to_string(index));
    }
    for (const int index : {1000, -1, 1001}) {
        EXPECT_EQ(at(result, index), "none");
    }
    EXPECT_EQ(at(result, 999), "999");
    EXPECT_EQ(db_result_fetch_row(result.get(), 1000), nullptr);
}

TEST_F(Results, StreamedRowsGoByOnce)
{
    const Result result = query("SELECT seq FROM seq_0_to_199999", false);
    EXPECT_EQ(db_result_fields_num(link.get(), result.get()), 1);
    for (const int index : {0, 0, 1, 5, 100}) {
        EXPECT_EQ(at(result, index), std::to_string(index));
    }
    EXPECT_EQ(at(result, 5), "none");
    EXPECT_EQ(at(result, 101), "101");
    EXPECT_EQ(db_result_row_num(link.get(), result.get()), 102);
    EXPECT_EQ(refusal("DO 1").substr(0, 4), "2014");
    EXPECT_EQ(at(result, 102), "102"); // the refusal took nothing from the stream
    EXPECT_EQ(at(result, 200000), "none");
    EXPECT_EQ(at(result, 199999), "none");
    EXPECT_EQ(value("SELECT 'next'"), "next"); // the stream has ended, freed or not
}

TEST_F(Results, LateDecisionStoresOrStreams)
{
    {
        const Result stored = query("SELECT seq FROM seq_0_to_9", false);
        EXPECT_EQ(db_result_row_num(link.get(), stored.get()), 10);
        EXPECT_EQ(value("SELECT 'while rows are open'"), "while rows are open");
        EXPECT_EQ(at(stored, 9), "9");
        EXPECT_EQ(at(stored, 0), "0");
    }
    query("SELECT seq FROM seq_0_to_199999", false); // nothing was asked of it
    {
        const Result stopped = query("SELECT seq FROM seq_0_to_199999", false);
        EXPECT_EQ(at(stopped, 9), "9");
    }
    EXPECT_EQ(value("SELECT 'next'"), "next");
}

TEST_F(Results, ValuesKeepEveryByteAndNull)
{
    for (const bool store : {true, false}) {
        const Result result =
            query("SELECT X'410042', NULL, '' UNION ALL SELECT 'x', 'yy', 'zzz'", store);
        const auto lengths = [&] {
            std::string all;
            for (const int column : {-1, 0, 1, 2, 3}) {
                all += std::to_string(db_result_field_length(result.get(), column)) + ' ';
            }
            return all;
        };
        EXPECT_EQ(lengths(), "0 0 0 0 0 ");
        void* const row = db_result_fetch_row(result.get(), 0);
        const auto text = [&](int column) {
            return db_result_get_value(link.get(), result.get(), row, column);
        };
        EXPECT_EQ(std::string(text(0), 4), std::string("A\0B\0", 4));
        EXPECT_EQ(text(1), nullptr);
        EXPECT_STREQ(text(2), "");
        EXPECT_EQ(text(3), nullptr);
        EXPECT_EQ(text(-1), nullptr);
        EXPECT_EQ(lengths(), "0 3 0 0 0 ");
        ASSERT_NE(db_result_fetch_row(result.get(), 1), nullptr);
        EXPECT_EQ(lengths(), "0 1 2 3 0 ");
        EXPECT_EQ(db_result_fetch_row(result.get(), 2), nullptr);
        EXPECT_EQ(lengths(), "0 0 0 0 0 ");
    }
}

// A link that is lost after the first rows came is a failure, however the rows are read.
TEST_F(Results, ALostLinkIsNeverAShortResult)
{
    const auto lost = [](const auto& read) {
        try {
            read();
            ADD_FAILURE() << "no exception";
        } catch (const Kestro::Exception& e) {
            EXPECT_EQ(e.message(), "db_result_fetch_row");
            EXPECT_EQ(e.intParameter(), 4);
            EXPECT_NE(e.stringParameter(), "");
        }
    };
    enum class Way { Store, Stream, StoreLate };
    for (const Way way : {Way::Store, Way::Stream, Way::StoreLate}) {
        SCOPED_TRACE(static_cast<int>(way));
        link.reset(db_connect_unix(database.c_str()));
        const std::string id = value("SELECT CONNECTION_ID()");
        std::thread killer([&id] {
            const Link other(db_connect_unix(""));
            const std::string sleeping = "KILL HARD " + id;
            const std::string look =
                "SELECT 1 FROM information_schema.processlist WHERE state='User sleep' AND id=" +
                id;
            for (bool found = false; !found;) {
                void* rows = nullptr;
                ASSERT_EQ(db_query(other.get(), look.c_str(), &rows), 0);
                found = db_result_row_num(other.get(), rows) > 0;
                db_free_result(rows);
            }
            EXPECT_EQ(db_query(other.get(), sleeping.c_str(), nullptr), 0);
        });
        const char* text = "SELECT REPEAT('x', 1000), IF(seq=1000, SLEEP(100), 0) "
                           "FROM seq_1_to_2000";
        void* handle = nullptr;
        const auto call = way == Way::Store ? db_query : db_use_query;
        EXPECT_EQ(call(link.get(), text, &handle) != 0, way == Way::Store);
        const Result result(handle);
        if (way == Way::Stream) {
            lost([&] {
                for (int i = 0; db_result_fetch_row(handle, i) != nullptr; ++i) {
                }
            });
            lost([&] { db_result_fetch_row(handle, 0); });
        } else if (way == Way::StoreLate) {
            EXPECT_EQ(db_result_row_num(link.get(), handle), 1);
            lost([&] { db_result_fetch_row(handle, 0); });
        }
        killer.join();
        EXPECT_EQ(db_error_number(link.get()), 2013);
    }
}

TEST_F(Results, OutliveTheirLink)
{
    const Result stored = query("SELECT 1");
    const Result streamed = query("SELECT seq FROM seq_1_to_100000", false);
    EXPECT_EQ(at(streamed, 0), "1");
    link.reset();
    EXPECT_EQ(at(stored, 0), "1");
    EXPECT_THROW(at(streamed, 1), Kestro::Exception);
    EXPECT_EQ(db_result_row_num(nullptr, streamed.get()), 1);
}

} // namespace
