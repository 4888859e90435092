#include "Proxy.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace {

sockaddr_un addressOf(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

bool sendAll(int socket, std::string_view bytes)
{
    while (!bytes.empty()) {
        const ssize_t sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

} // namespace

Proxy::Proxy()
    : m_server(std::getenv("MYSQL_UNIX_PORT")), m_path(m_server + ".proxy"),
      m_socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    const sockaddr_un address = addressOf(m_path);
    unlink(m_path.c_str());
    if (bind(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(m_socket, SOMAXCONN) != 0) {
        throw std::runtime_error("no socket at " + m_path);
    }
    setenv("MYSQL_UNIX_PORT", m_path.c_str(), 1);
    m_listener = std::jthread([this] { accept(); });
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

void Proxy::accept()
{
    for (int client; (client = accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
        m_connections.emplace_back([this, client] { carry(client); });
    }
}

void Proxy::carry(int client)
{
    const sockaddr_un address = addressOf(m_server);
    const int server = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    bool open = connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    bool loggingIn = true;
    std::array<char, 65536> buffer;
    while (open) {
        std::array<pollfd, 3> ends = {{{client, POLLIN, 0}, {server, POLLIN, 0}, {m_socket, 0, 0}}};
        poll(ends.data(), ends.size(), -1);
        open = ends[2].revents == 0;
        for (const pollfd& end : {ends[0], ends[1]}) {
            if (!open || end.revents == 0) {
                continue;
            }
            const ssize_t got = recv(end.fd, buffer.data(), buffer.size(), 0);
            if (got <= 0) {
                open = false;
                continue;
            }
            std::string bytes(buffer.data(), static_cast<std::size_t>(got));
            if (end.fd == server) {
                answer(bytes);
                open = pass(client, bytes);
            } else {
                if (std::exchange(loggingIn, false)) {
                    login(bytes);
                }
                open = sendAll(server, bytes);
            }
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
            left -= static_cast<long>(size);
            if (size == 0) {
                left = -1;
                return false;
            }
        }
        passed += static_cast<long>(size);
        if (!sendAll(client, std::string_view(bytes).substr(i, size))) {
            return false;
        }
        i += size;
    }
    return true;
}
