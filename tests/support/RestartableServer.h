#pragma once

#include <string>
#include <vector>

/// The private server that this test program was started with (tools/private-server), to be
/// stopped and started again. One object at a time, used by the program's first thread: a server
/// that it starts ends with that thread.
class RestartableServer {
public:
    /// Finds the server of MYSQL_UNIX_PORT; throws std::runtime_error if it is not a private one.
    RestartableServer();

    /// Sends the server a signal, without waiting for what it does.
    void signal(int number) const;
    /// Sends the server a signal that ends it and waits for the end.
    void stop(int number) const;
    /// Starts the server again, as it was started first, and waits until it accepts connections.
    void start();

private:
    std::string m_directory;
    std::vector<std::string> m_command;
    int m_process;
};
