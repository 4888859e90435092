#include "ScriptedClient.h"
#include "Testing.h"

#include <Kestro/Database/Script.h>
#include <Kestro/Database/ScriptReader.h>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

using namespace Kestro::Database;
using namespace std::string_literals;
using Calls = std::vector<std::string>;

// The scripts lie in a directory below the working one: `source` looks beside the script.
class Scripts : public testing::Test {
protected:
    const std::filesystem::path work =
        testing::TempDir() + "kestro_scripts." + std::to_string(getpid());

    Scripts()
    {
        client = {};
        std::filesystem::create_directories(work / "in");
        std::filesystem::current_path(work);
        std::ofstream("in/included") << "\xef\xbb\xbfin 1;\r\nin 2";
        std::ofstream("in/loop") << "a;source main;b";
    }
    ~Scripts() override
    {
        std::filesystem::current_path("..");
        std::filesystem::remove_all(work);
    }

    static std::string write(const std::string& script)
    {
        std::ofstream("in/main") << script;
        return "in/main";
    }
    /// What the reader gives, statements as "<line:text>" with a + if compound, failures as
    /// "<line!reason>".
    static std::string cut(const std::string& script, std::size_t most = ScriptReader::MaxStatement)
    {
        ScriptReader reader(write(script));
        reader.maxStatement(most);
        std::string all;
        for (std::string text;; text.clear()) {
            try {
                if (!reader.next(text)) {
                    EXPECT_EQ(reader.bytes(), reader.size());
                    return all;
                }
                all += '<' + std::to_string(reader.line()) + ':' + text +
                       (reader.compound() ? "+>" : ">");
            } catch (const DatabaseException& e) {
                EXPECT_EQ(text, "");
                all += '<' + std::to_string(e.lineNumber()) + '!' + e.stringParameter() + '>';
            }
        }
    }
};

TEST_F(Scripts, AreCutAsTheServersClientCutsThem)
{
    const Table<std::string, std::string> rows = {
        {"\xef\xbb\xbf a;\r\n\n b ; ;;c", "<1:a><3:b ><3:c>"},
        {"a 'x;''\\';\n' \"y;\\\";\"\"\" `z;\\`;b",
         "<1:a 'x;''\\';\n' \"y;\\\";\"\"\" `z;\\`><2:b>"},
        {"a 'x\r\ny\rz\\\r\n';b", "<1:a 'x\ny\rz\\\n'><3:b>"},
        {"# a;\n-- b;\n--c;\n/* d;'\n */e;", "<5:e>"},
        {"a -- '\n + # \"\n 1--2 /* ;' */;--\n", "<1:a -- '\n + # \"\n 1--2 /* ;' */>"},
        {"a --\n;b -- c", "<1:a --\n><2:b -- c\n>"},
        {"/*!40101 a; 'x*/' */;/*M!100200 b */ c;",
         "<1:/*!40101 a; 'x*/' */+><1:/*M!100200 b */ c>"},
        {"/*! a /* ; */ ; */;b /*+ ; */;", "<1:/*! a /* ; */ ; */+><1:b /*+ ; */>"},
        {"delimiter //\na; b//\n DELIMITER ;; -- c\nd;;e//;;\nDelimiter '';\nf'';DELIMITER ;\ng;",
         "<2:a; b+><4:d><4:e//><6:f><7:g>"},
        {"DELIMITER $$\nDELIMITER-x$$ delimiters$$ x DELIMITER ;\n$$",
         "<2:DELIMITER-x><2:delimiters><2:x DELIMITER ;\n+>"},
        {"use a\nUse b;use c -- ;\nuse\nd;user x\n;",
         "<1:use a><2:Use b><2:use c -- ;\n><3:use\nd><4:user x\n>"},
        {"a\\g b\\G c\\N;\\g", "<1:a><1:b><1:c\\N>"},
        {"source included\nx;\\. included;y;SOURCE\tincluded ;z",
         "<1:in 1><2:in 2><2:x><1:in 1><2:in 2><2:y><1:in 1><2:in 2><2:z>"},
        {"source(1);sources x;", "<1:source(1)><1:sources x>"},
        {"source loop;c", "<1:a><1!source loop: in/main is being read already><1:b><1:c>"},
        {"a;\nb\n`c;\n", "<1:a><3!unterminated text in quotation marks>"},
        {"a;\n/* c;", "<1:a><2!unterminated comment>"},
        {"\n\n/*! c;", "<3!unterminated comment>"},
        {"DELIMITER //\na;\n", "<2!unterminated statement: the delimiter is //>"},
        {"DELIMITER \\\\\nDELIMITER  \na", "<1!DELIMITER with a backslash><2!DELIMITER without a "
                                           "delimiter, or with one of more than 255 bytes><3:a>"},
    };
    for (const auto& [script, expected] : rows) {
        EXPECT_EQ(cut(script), expected) << script;
    }
    EXPECT_EQ(
        cut("1234;12345;\n'123;';1", 4),
        "<1:1234><1!a statement of more than 4 bytes><2!a statement of more than 4 bytes><2:1>");
    // What decides lies on both sides of the end of a block.
    for (std::size_t size = 65'530; size < 65'550; ++size) {
        const std::string before(size, 'x');
        EXPECT_EQ(cut(before + "\r\n -- ;\n'\\';'/*;*/;b"),
                  "<1:" + before + "\n -- ;\n'\\';'/*;*/><3:b>");
    }
}

TEST_F(Scripts, AreSentInStringsWhoseFailuresNameTheirStatement)
{
    Connection connection("");
    client.calls.clear();
    const std::string query = "query, no result: ";
    // Several answers, other quotation marks, or a comment for other servers end a string.
    Script script(write("USE a -- x\n;insert 1;CALL p();SET @a=1;SET sql_mode='';/*!40101 SET x */;"
                        "/*!80000 SET x */;set STATEMENT a=1 FOR CALL p();CREATE TRIGGER a BEGIN;"
                        "DO 2;\nDELIMITER //\nCREATE b;c//DO 3//"),
                  connection);
    script.execute();
    EXPECT_EQ(script.statements(), 12U);
    EXPECT_EQ(script.position(), "in/main: end");
    EXPECT_EQ(
        client.calls,
        (Calls{"query SELECT @@max_allowed_packet LIMIT 1",
               query + "USE a -- x\n;\ninsert 1;\nCALL p()", query + "SET @a=1;\nSET sql_mode=''",
               query + "/*!40101 SET x */;\n/*!80000 SET x */",
               query + "set STATEMENT a=1 FOR CALL p()", query + "CREATE TRIGGER a BEGIN",
               query + "DO 2;\nCREATE b;c", query + "DO 3"}));

    const std::string inDoubt = " (it may have run, and so may the statements up to in/main:3)";
    const Table<int, int, Calls, std::string> failures = {
        // number, answers, what is sent next, what is told
        {1064, 1, {query + "DO 3"}, "2: syntax : DO 2"},
        {1064, 0, {query + "DO 2;\nDO 3"}, "1: syntax : DO 1"},
        {1064, 9, {}, "3: syntax : DO 3"},
        {1153, 0, {query + "DO 2;\nDO 3"}, "1: syntax : DO 1"},
        {2006, 0, {}, "1: syntax : DO 1"},
        {2013, 1, {}, "2: syntax : DO 2" + inDoubt}};
    const std::string place = "DatabaseException (4) at in/main:";
    client.error = "syntax";
    for (const auto& [number, answers, next, told] : failures) {
        client.errorNumber = number;
        client.answers = answers;
        client.statements = {true, false};
        Script failing(write("DO 1;\nDO 2;\nDO 3"), connection);
        EXPECT_EQ(failureOf([&] { failing.step(); }), place + told);
        client.calls.clear();
        failing.execute();
        EXPECT_EQ(client.calls, next);
        EXPECT_EQ(failing.get_error_number(), number);
    }

    const std::string shown = "\xc3\xa9" + std::string(199, 'x'); // 200 characters
    const Table<std::string, std::string> rows = {
        {shown + 'x', "syntax : " + shown + " ..."},
        {"b\0;c"s,
         "a NUL byte, which would end the statement; is the script in UTF-16? : b"s + '\0'}};
    for (const auto& [text, told] : rows) {
        client.statements = {true, false};
        Script failing(write(text), connection);
        EXPECT_EQ(failureOf([&] { failing.execute(); }), place + "1: " + told);
    }
}

} // namespace
