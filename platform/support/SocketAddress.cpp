#include <Kestro/SocketAddress.h>

#include <Kestro/Exception.h>

#include <arpa/inet.h>

namespace Kestro {

namespace {

std::uint32_t parseDottedQuad(const std::string& text)
{
    in_addr parsed{};
    // inet_pton stops at a NUL and would accept whatever follows it.
    if (text.find('\0') != std::string::npos || inet_pton(AF_INET, text.c_str(), &parsed) != 1) {
        Exception refused("IPAddress", 4);
        refused.stringParameter(text);
        throw refused;
    }
    return ntohl(parsed.s_addr);
}

} // namespace

IPAddress::IPAddress(const std::string& dottedQuad) : m_value(parseDottedQuad(dottedQuad))
{}

std::string IPAddress::asString() const
{
    const in_addr address{htonl(m_value)};
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &address, text, sizeof text);
}

SocketAddress::SocketAddress(const IPAddress& address, unsigned port)
    : m_address(address), m_port(port)
{
    constexpr unsigned HighestPort = 65535;
    if (port > HighestPort) {
        Exception refused("SocketAddress", 4);
        refused.stringParameter(std::to_string(port));
        throw refused;
    }
}

} // namespace Kestro
