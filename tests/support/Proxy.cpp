#include "Proxy.h"

#include "Testing.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace {

// Calls bind() or connect() for a socket with this path; returns what that returns.
int with(int (&call)(int, const sockaddr*, socklen_t), int socket, const std::string& path)
{
    sockaddr_un address{AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return call(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

// A blocking socket takes all or fails.
bool sendAll(int socket, std::string_view bytes)
{
    const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    return sent == static_cast<ssize_t>(bytes.size());
}

} // namespace

Proxy::Proxy()
    : m_server(environment("MYSQL_UNIX_PORT")),
      m_socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    unlink(m_path.c_str());
    if (with(bind, m_socket, m_path) != 0 || listen(m_socket, SOMAXCONN) != 0) {
        throw std::runtime_error("no socket at " + m_path);
    }
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
    bool loggingIn = true;
    std::array<char, 65536> buffer;
    while (open) {
        std::array<pollfd, 3> ends = {{{client, POLLIN, 0}, {server, POLLIN, 0}, {m_socket, 0, 0}}};
        poll(ends.data(), ends.size(), -1);
        const int from = ends[1].revents != 0 ? server : client;
        const ssize_t got = ends[2].revents == 0 ? recv(from, buffer.data(), buffer.size(), 0) : 0;
        std::string bytes(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        if (bytes.empty()) {
            open = false;
        } else if (from == server) {
            answer(bytes);
            open = pass(client, bytes);
        } else {
            if (std::exchange(loggingIn, false)) {
                login(bytes);
            }
            open = sendAll(server, bytes);
        }
    }
    close(server);
    close(client);
}

bool Proxy::pass(int client, const std::string& bytes)
{
    for (std::size_t i = 0; i < bytes.size();) {
        std::size_t size = drips ? 1 : bytes.size() - i;
        if (left >= 0) {
            size = std::min(size, static_cast<std::size_t>(left));
            left = size == 0 ? -1 : left - static_cast<long>(size);
        }
        passed += static_cast<long>(size); // counted once the client can have it
        if (size == 0 || !sendAll(client, std::string_view(bytes).substr(i, size))) {
            return false;
        }
        i += size;
    }
    return true;
}
