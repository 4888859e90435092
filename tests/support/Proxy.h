#pragma once

#include "Testing.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

/// Stands between this program and the server for as long as it lives: MYSQL_UNIX_PORT names it.
/// It carries one connection at a time, and sends the server's bytes on one by one, so that each
/// packet comes in parts.
class Proxy {
public:
    Proxy()
    {
        EXPECT_EQ(with(bind, m_socket, m_path) + listen(m_socket, SOMAXCONN), 0) << m_path;
        setenv("MYSQL_UNIX_PORT", m_path.c_str(), 1);
        m_carrier = std::jthread([this] {
            for (int client; (client = accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
                carry(client);
            }
        });
    }
    /// Closes the connection that it carries.
    ~Proxy()
    {
        setenv("MYSQL_UNIX_PORT", m_server.c_str(), 1);
        shutdown(m_socket, SHUT_RDWR);
        m_carrier.join();
        close(m_socket);
        unlink(m_path.c_str());
    }

    /// Edits what was received from the server or from a client. Set it before anybody connects.
    std::function<void(bool fromServer, std::string& bytes)> edit = [](bool, std::string&) {};
    /// The number of the server's bytes after which the connection is closed. Every byte counts it
    /// down, also below zero, and so a negative number closes nothing.
    std::atomic<long> left{-1};

private:
    /// Calls bind() or connect() for a socket with this path; returns what that returns.
    static int with(int (&call)(int, const sockaddr*, socklen_t), int socket,
                    const std::string& path)
    {
        sockaddr_un address{AF_UNIX, {}};
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        return call(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    void carry(int client)
    {
        const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        std::array<pollfd, 3> ends = {{{client, POLLIN, 0}, {server, POLLIN, 0}, {m_socket, 0, 0}}};
        std::array<char, 65536> buffer;
        for (bool open = with(connect, server, m_server) == 0; open;) {
            poll(ends.data(), ends.size(), -1);
            const int from = ends[1].revents != 0 ? server : client;
            const ssize_t got =
                ends[2].revents == 0 ? recv(from, buffer.data(), buffer.size(), 0) : 0;
            if (got <= 0) {
                break;
            }
            std::string bytes(buffer.data(), static_cast<std::size_t>(got));
            edit(from == server, bytes);
            const auto passOn = [&](char byte) {
                return left-- != 0 && send(client, &byte, 1, MSG_NOSIGNAL) == 1;
            };
            open = from == server ? std::ranges::all_of(bytes, passOn)
                                  : send(server, bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0;
        }
        close(server);
        close(client);
    }

    const std::string m_server = environment("MYSQL_UNIX_PORT");
    const std::string m_path = m_server + ".proxy";
    const int m_socket = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::jthread m_carrier;
};
