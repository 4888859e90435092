#pragma once

#include "Testing.h"

#include <Kestro/Database/Connection.h>
#include <db_client.h>
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

/// Tests against the server whose socket MYSQL_UNIX_PORT names. Every test has a database of its
/// own, named after it, and an open link on it.
class ServerTest : public testing::Test {
protected:
    using Handle = std::unique_ptr<void, void (*)(void*)>;

    const std::string database =
        std::string("t_") + testing::UnitTest::GetInstance()->current_test_info()->name();
    Handle link{db_connect_unix(""), db_disconnect};

    ServerTest()
    {
        run("CREATE DATABASE " + database);
        reopen();
    }
    ~ServerTest() override
    {
        reopen();
        run("DROP DATABASE " + database);
    }

    void reopen()
    {
        link.reset(db_connect_unix(database.c_str()));
        EXPECT_NE(link, nullptr) << db_error_message(nullptr);
    }
    void run(const std::string& text, void* on = nullptr)
    {
        EXPECT_EQ(db_query(on != nullptr ? on : link.get(), text.c_str(), nullptr), 0)
            << text.substr(0, 200) << ": " << db_error_message(on != nullptr ? on : link.get());
    }
    Handle query(const std::string& text, bool store = true)
    {
        void* result = nullptr;
        EXPECT_EQ((store ? db_query : db_use_query)(link.get(), text.c_str(), &result), 0)
            << text.substr(0, 200) << ": " << db_error_message(link.get());
        return {result, db_free_result};
    }
    /// All the bytes of a value, which a NUL must follow; "NULL" for SQL NULL and for one that is
    /// not there.
    static std::string at(const Handle& result, int row, int column = 0)
    {
        void* const found = db_result_fetch_row(result.get(), row);
        const char* bytes = db_result_get_value(nullptr, result.get(), found, column);
        const unsigned long length = db_result_field_length(result.get(), column);
        EXPECT_TRUE(bytes == nullptr || bytes[length] == '\0');
        return bytes != nullptr ? std::string(bytes, length) : "NULL";
    }
    std::string value(const std::string& text) { return at(query(text), 0); }
    /// Ends a session as an administrator would, or a timeout, and waits for its end.
    void kill(const std::string& id)
    {
        run("KILL " + id);
        while (value("SELECT COUNT(*) FROM information_schema.processlist WHERE id=" + id) != "0") {
        }
    }
    /// Runs a text that must be refused and gives the number.
    int refusal(const std::string& text)
    {
        EXPECT_NE(db_query(link.get(), text.c_str(), nullptr), 0) << text.substr(0, 200);
        return db_error_number(link.get());
    }
    static std::string everyByte()
    {
        std::string bytes(256, '\0');
        std::iota(bytes.begin(), bytes.end(), '\0');
        return bytes;
    }
};
