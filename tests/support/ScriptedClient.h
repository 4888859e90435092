#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

/// A double of the db_* functions that open links and run statements, linked into a test program in
/// their place: it plays a script and writes down what was asked of it. Its results have no rows.
struct ScriptedClient {
    /// Every connect, statement and disconnect, with its text: "connect mysql", "query SELECT 1".
    std::vector<std::string> calls;
    std::deque<bool> connects;   ///< whether the next connects succeed; afterwards all do
    std::deque<bool> statements; ///< the same for statements
    const char* error = "";      ///< the message of a failure
    int errorNumber = 1064;      ///< the number of a failure
    bool results = false;        ///< whether statements make a result, even if they fail
    bool thrown = false;         ///< whether statements throw
    int answers = 0;             ///< how many statements of a text have run when it fails
    int open = 0;                ///< links and results that were handed out and not taken back
    long now = 1000;             ///< what time() returns; sleep() adds to it
};
extern ScriptedClient client;
