#pragma once

#include "Testing.h"

#include <Kestro/Database/Connection.h>
#include <db_client.h>
#include <filesystem>
#include <memory>
#include <numeric>

/// The exception of a call, or one without a number if the call throws none.
template <class Call> Kestro::Database::DatabaseException exceptionOf(const Call& call)
{
    try {
        call();
    } catch (const Kestro::Database::DatabaseException& e) {
        return e;
    }
    return Kestro::Database::DatabaseException();
}

/// Tests against the private server whose socket MYSQL_UNIX_PORT names. Every test has a database
/// of its own, named after it, and an open link on it.
class ServerTest : public testing::Test {
protected:
    using Handle = std::unique_ptr<void, void (*)(void*)>;

    const std::string database =
        std::string("t_") + testing::UnitTest::GetInstance()->current_test_info()->name();
    /// Goes with the server.
    const std::string directory =
        std::filesystem::path(environment("MYSQL_UNIX_PORT")).parent_path();
    Handle link{db_connect_unix(""), db_disconnect};

    ServerTest()
    {
        run("CREATE OR REPLACE DATABASE " + database);
        reopen();
    }

    void reopen()
    {
        link.reset(db_connect_unix(database.c_str()));
        EXPECT_NE(link, nullptr) << db_error_message(nullptr);
    }
    /// The number of the error of a statement, on a link other than `link` if one is given; 0 if it
    /// succeeds.
    int error(const std::string& text, void* on = nullptr)
    {
        on = on != nullptr ? on : link.get();
        return db_query(on, text.c_str(), nullptr) == 0 ? 0 : db_error_number(on);
    }
    void run(const std::string& text)
    {
        EXPECT_EQ(error(text), 0) << text.substr(0, 200) << ": " << db_error_message(link.get());
    }
    Handle query(const std::string& text, bool store = true, void* on = nullptr)
    {
        on = on != nullptr ? on : link.get();
        void* result = nullptr;
        EXPECT_EQ((store ? db_query : db_use_query)(on, text.c_str(), &result), 0)
            << text.substr(0, 200) << ": " << db_error_message(on);
        return {result, db_free_result};
    }
    /// All the bytes of a value, which a NUL must follow; "NULL" for SQL NULL, whose length must be
    /// 0, and for a value that is not there.
    static std::string at(const Handle& result, int row, int column = 0)
    {
        void* const found = db_result_fetch_row(result.get(), row);
        const char* bytes = db_result_get_value(nullptr, result.get(), found, column);
        const unsigned long length = db_result_field_length(result.get(), column);
        EXPECT_TRUE(bytes != nullptr ? bytes[length] == '\0' : found == nullptr || length == 0);
        return bytes != nullptr ? std::string(bytes, length) : "NULL";
    }
    std::string value(const std::string& text, void* on = nullptr)
    {
        return at(query(text, true, on), 0);
    }
    /// Ends a session as an administrator would, or a timeout, and waits for its end.
    void kill(const std::string& id)
    {
        run("KILL " + id);
        while (value("SELECT COUNT(*) FROM information_schema.processlist WHERE id=" + id) != "0") {
        }
    }
    static std::string everyByte()
    {
        std::string bytes(256, '\0');
        std::iota(bytes.begin(), bytes.end(), '\0');
        return bytes;
    }
};
