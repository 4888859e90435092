#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

/// Stands between this program and the server for as long as it lives, in that MYSQL_UNIX_PORT
/// names it, and does to their packets what a test wants.
class Proxy {
public:
    Proxy();
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;
    /// Closes the connections that it carries.
    ~Proxy();

    /// Edit what a client sends first, its login, and what the server sends. To be set while nobody
    /// is connected.
    std::function<void(std::string& packet)> login = [](std::string&) {};
    std::function<void(std::string& packets)> answer = [](std::string&) {};
    /// Closes a connection after so many more bytes of the server's; negative for never.
    std::atomic<long> left{-1};
    /// Whether the server's bytes are sent on one by one.
    std::atomic<bool> drips{false};
    /// How many bytes of the server's were sent on.
    std::atomic<long> passed{0};

private:
    void carry(int client);
    bool pass(int client, const std::string& bytes);

    const std::string m_server;
    const std::string m_path = m_server + ".proxy";
    const int m_socket;
    std::vector<std::jthread> m_connections;
    std::jthread m_listener;
};
