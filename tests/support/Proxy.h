#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

/// Stands between this program and the server for as long as it lives: MYSQL_UNIX_PORT names it.
/// It sends the server's bytes on one by one, so that each packet comes in parts.
class Proxy {
public:
    Proxy();
    /// Closes the connections that it carries.
    ~Proxy();

    /// Edits what was received from the server or from a client. Set it before anybody connects.
    std::function<void(bool fromServer, std::string& bytes)> edit = [](bool, std::string&) {};
    /// The server's bytes that are still sent on, after which the connection is closed. Each one
    /// counts down. A negative number closes nothing.
    std::atomic<long> left{-1};

private:
    void carry(int client);

    const std::string m_server;
    const std::string m_path = m_server + ".proxy";
    const int m_socket;
    std::vector<std::jthread> m_connections;
    std::jthread m_listener;
};
