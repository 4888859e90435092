#pragma once

#include <db_client.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>

/// Tests against the server whose socket MYSQL_UNIX_PORT names. Every test has a database of its
/// own, named after it, and an open link on it.
class ServerTest : public testing::Test {
protected:
    struct Disconnect {
        void operator()(void* link) const { db_disconnect(link); }
    };
    struct FreeResult {
        void operator()(void* result) const { db_free_result(result); }
    };
    using Link = std::unique_ptr<void, Disconnect>;
    using Result = std::unique_ptr<void, FreeResult>;

    const std::string database =
        std::string("t_") + testing::UnitTest::GetInstance()->current_test_info()->name();
    Link link{db_connect_unix("")};

    ServerTest()
    {
        if (!link) {
            throw std::runtime_error(std::string("no server to test against: ") +
                                     db_error_message(nullptr));
        }
        run("CREATE DATABASE " + database);
        run("USE " + database);
    }
    ~ServerTest() override
    {
        link.reset(db_connect_unix(""));
        run("DROP DATABASE " + database);
    }

    void run(const std::string& text)
    {
        EXPECT_EQ(db_query(link.get(), text.c_str(), nullptr), 0)
            << text.substr(0, 200) << ": " << db_error_message(link.get());
    }
    Result query(const std::string& text, bool store = true)
    {
        void* result = nullptr;
        EXPECT_EQ((store ? db_query : db_use_query)(link.get(), text.c_str(), &result), 0)
            << text.substr(0, 200) << ": " << db_error_message(link.get());
        return Result(result);
    }
    /// The first value of the first row, all its bytes; "NULL" for SQL NULL.
    std::string value(const std::string& text)
    {
        const Result result = query(text);
        void* const row = db_result_fetch_row(result.get(), 0);
        const char* bytes = db_result_get_value(link.get(), result.get(), row, 0);
        return bytes != nullptr ? std::string(bytes, db_result_field_length(result.get(), 0))
                                : "NULL";
    }
    /// Runs a text that must be refused and gives "number text".
    std::string refusal(const std::string& text)
    {
        EXPECT_NE(db_query(link.get(), text.c_str(), nullptr), 0) << text.substr(0, 200);
        return lastError(link.get());
    }
    static std::string lastError(void* of)
    {
        return std::to_string(db_error_number(of)) + ' ' + db_error_message(of);
    }
    static std::string escaped(const std::string& text)
    {
        std::string target(2 * text.size() + 1, '?');
        target.resize(db_escape_string(nullptr, target.data(), text.data(), text.size()));
        return target;
    }
};
