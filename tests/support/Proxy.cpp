#include "Proxy.h"

#include "Testing.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// Calls bind() or connect() for a socket with this path; returns what that returns.
int with(int (&call)(int, const sockaddr*, socklen_t), int socket, const std::string& path)
{
    sockaddr_un address{AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return call(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

} // namespace

Proxy::Proxy()
    : m_server(environment("MYSQL_UNIX_PORT")),
      m_socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    EXPECT_EQ(with(bind, m_socket, m_path) + listen(m_socket, SOMAXCONN), 0) << m_path;
    setenv("MYSQL_UNIX_PORT", m_path.c_str(), 1);
    m_listener = std::jthread([this] {
        for (int client; (client = accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            m_connections.emplace_back([this, client] { carry(client); });
        }
    });
}

Proxy::~Proxy()
{
    setenv("MYSQL_UNIX_PORT", m_server.c_str(), 1);
    shutdown(m_socket, SHUT_RDWR);
    m_listener.join();
    m_connections.clear();
    close(m_socket);
    unlink(m_path.c_str());
}

void Proxy::carry(int client)
{
    const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    bool open = with(connect, server, m_server) == 0;
    std::array<char, 65536> buffer;
    while (open) {
        std::array<pollfd, 3> ends = {{{client, POLLIN, 0}, {server, POLLIN, 0}, {m_socket, 0, 0}}};
        poll(ends.data(), ends.size(), -1);
        const bool fromServer = ends[1].revents != 0;
        const int from = fromServer ? server : client;
        const ssize_t got = ends[2].revents == 0 ? recv(from, buffer.data(), buffer.size(), 0) : 0;
        if (got <= 0) {
            break;
        }
        std::string bytes(buffer.data(), static_cast<std::size_t>(got));
        edit(fromServer, bytes);
        const auto passOn = [&](char byte) {
            return left-- != 0 && send(client, &byte, 1, MSG_NOSIGNAL) == 1;
        };
        open = fromServer ? std::ranges::all_of(bytes, passOn)
                          : send(server, bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0;
    }
    close(server);
    close(client);
}
