#include "ScriptedClient.h"

#include <Kestro/Database/QueryFile.h>
#include <Kestro/Database/QueryLoadData.h>
#include <filesystem>
#include <fstream>
#include <random>
#include <unistd.h>

namespace {

using namespace Kestro::Database;
using scripted::client;
using Calls = std::vector<std::string>;

class ScriptsScripted : public scripted::Test {
protected:
    Connection connection{"one"};
    const std::string path = testing::TempDir() + "kestro_script." + std::to_string(getpid());

    std::list<std::string> batchesOf(const std::string& content)
    {
        std::ofstream(path) << content;
        return QueryFile(connection, path).batches();
    }
    void TearDown() override
    {
        std::filesystem::remove(path);
        connection.disconnect();
        scripted::Test::TearDown();
    }
};

// Where the batches end, found without reading in blocks: the first terminator that lies inside a
// stretch of 4096 bytes is a place to cut if the batch up to it is longer than 1 MiB.
std::list<std::string> model(const std::string& content)
{
    std::list<std::string> batches;
    std::size_t start = 0;
    for (std::size_t block = 0; block < content.size(); block += 4096) {
        const std::size_t end = content.find(";\n", block) + 2;
        if (end != 1 && end <= block + 4096 && end - start > 1048576) {
            batches.push_back(content.substr(start, end - start));
            start = end;
        }
    }
    if (start < content.size()) {
        batches.push_back(content.substr(start));
    }
    return batches;
}

TEST_F(ScriptsScripted, BatchesAreCutAsTheModelSays)
{
    std::mt19937 random(20);
    const auto upTo = [&random](std::size_t most) {
        return std::uniform_int_distribution<std::size_t>(0, most)(random);
    };
    std::size_t cuts = 0;
    for (int file = 0; file < 60; ++file) {
        std::string content(upTo(4 << 20), 'x');
        const std::string terminator = file % 10 == 0 ? ";\r\n" : ";\n";
        // Close to the edges of blocks, where the cutting is decided.
        for (std::size_t count = upTo(2000); count > 0; --count) {
            const std::size_t at = upTo(1024) * 4096 + upTo(6);
            if (at >= 3 && at + terminator.size() < content.size()) {
                content.replace(at - 3, terminator.size(), terminator);
            }
        }
        content += file % 3 == 0 ? "" : std::string("\0;\n", upTo(3));
        const std::list<std::string> batches = batchesOf(content);
        EXPECT_TRUE(batches == model(content)) << "file " << file;
        cuts += batches.size();
    }
    EXPECT_GT(cuts, 100U);

    const std::string line = std::string(4094, 'x') + ";\n";
    std::string exact;
    while (exact.size() < 1048576) {
        exact += line;
    }
    EXPECT_EQ(batchesOf(exact).size(), 1U);
    EXPECT_EQ(batchesOf(exact + line), (std::list<std::string>{exact + line}));
    EXPECT_EQ(batchesOf(exact + line + "y"), (std::list<std::string>{exact + line, "y"}));
    EXPECT_TRUE(batchesOf("").empty());
}

TEST_F(ScriptsScripted, BatchesAreSentInTurnUntilOneIsRefused)
{
    std::string content;
    while (content.size() < (5U << 19)) {
        content += "INSERT " + std::to_string(content.size()) + ";\n";
    }
    const std::list<std::string> batches = batchesOf(content);
    ASSERT_EQ(batches.size(), 3U);
    QueryFile script(connection, path);
    client.calls.clear();
    script.execute();
    Calls sent;
    for (const std::string& batch : batches) {
        sent.push_back("query, no result: " + batch);
    }
    EXPECT_TRUE(client.calls == sent);

    client.calls.clear();
    client.answers = {{}, {1064, "syntax", {}, {}}};
    try {
        script.execute();
        ADD_FAILURE();
    } catch (const DatabaseException& e) {
        EXPECT_EQ(e.lineNumber(), 88U);
        EXPECT_TRUE(e.stringParameter() == "syntax : " + *std::next(batches.begin()) + '\0');
    }
    EXPECT_EQ(client.calls.size(), 2U);

    client.calls.clear();
    QueryFile(connection, path + ".none").execute();
    QueryFile(connection, testing::TempDir()).execute();
    EXPECT_TRUE(client.calls.empty());
}

TEST_F(ScriptsScripted, LoadsAreCheckedBeforeAnythingChanges)
{
    const scripted::Answer found{0, "", {{{"t1"}}}, {}};
    const scripted::Answer absent{0, "", {{}}, {}};
    const struct {
        std::deque<bool> connects;
        std::deque<scripted::Answer> answers;
        const char* failure;
        std::size_t statements;
    } rows[] = {
        {{}, {found}, "", 3},
        {{false}, {}, "DatabaseException (4) at Query:168: database not exist", 0},
        {{}, {absent}, "DatabaseException (4) at Query:176: table not exist", 1},
        {{},
         {found, {1142, "no", {}, {}}},
         "DatabaseException (4) at Query:88: no : DELETE FROM t1;",
         2},
        {{},
         {found, {}, {13, "no", {}, {}}},
         "DatabaseException (4) at Query:88: no : "
         "LOAD DATA INFILE '/tmp/t1.txt' REPLACE INTO TABLE t1;",
         3},
    };
    const Calls statements = {"query show tables like 't1';", "query, no result: DELETE FROM t1;",
                              "query, no result: LOAD DATA INFILE '/tmp/t1.txt' "
                              "REPLACE INTO TABLE t1;"};
    for (const auto& row : rows) {
        client.calls.clear();
        client.connects = row.connects;
        client.answers = row.answers;
        std::string failure;
        try {
            QueryLoadData(connection, "two", "t1", "/tmp/t1.txt");
        } catch (const DatabaseException& e) {
            failure = e.asString();
        }
        EXPECT_EQ(failure, row.failure);
        Calls sent;
        for (const std::string& call : client.calls) {
            if (call.starts_with("query")) {
                sent.push_back(call);
            }
        }
        EXPECT_EQ(sent,
                  Calls(statements.begin(), statements.begin() + static_cast<int>(row.statements)));
    }
}

} // namespace
