#pragma once

#include <cstdint>
#include <deque>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

/// A double of the db_* functions, linked into a test program in their place: it plays a script and
/// writes down what was asked of it.
namespace scripted {

using Row = std::vector<std::optional<std::string>>; // nothing is SQL NULL

struct Answer {
    int error = 0; // not 0 refuses the statement, with message
    std::string message;
    std::optional<std::vector<Row>> rows; // nothing: no result set
    std::optional<int> rowCount;          // told instead of the number of rows
};

struct Client {
    /// Every call that reached the client, with its text: "connect mysql", "query SELECT 1".
    std::vector<std::string> calls;
    std::deque<Answer> answers; // to the next statements; afterwards they succeed without a result
    std::deque<bool> connects;  // whether the next connects succeed; afterwards they do
    std::optional<std::string> connectError = "refused"; // nothing: the client has no text
    std::uint64_t affectedRows = 0;
    std::uint64_t lastId = 0;
    int number = 0; // the last refused statement's
    std::string message;
    int openLinks = 0;
    int openResults = 0;
    long now = 1000; // what time() tells; sleep() adds to it
};
extern Client client;

/// Starts every test with a fresh script; a link or result left open fails it.
class Test : public testing::Test {
protected:
    Test() { client = {}; }
    void TearDown() override
    {
        EXPECT_EQ(client.openLinks, 0);
        EXPECT_EQ(client.openResults, 0);
    }
};

} // namespace scripted
