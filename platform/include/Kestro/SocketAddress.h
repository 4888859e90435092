#pragma once

#include <cstdint>
#include <string>

#pragma GCC visibility push(default)
namespace Kestro {

/// An IPv4 address. A plain value: distinct objects are independent.
class IPAddress {
public:
    /// From a dotted quad such as "127.0.0.1": four decimal numbers of 0 to 255 without leading
    /// zeros. Throws Exception("IPAddress", 4) with the text as string parameter for anything else.
    explicit IPAddress(const std::string& dottedQuad);

    /// The address as a number whose highest byte is the first part: 0x7f000001 for 127.0.0.1.
    std::uint32_t value() const { return m_value; }
    /// The dotted quad.
    std::string asString() const;

    friend bool operator==(const IPAddress&, const IPAddress&) = default;

private:
    std::uint32_t m_value;
};

/// An IPv4 address and a port. A plain value: distinct objects are independent.
class SocketAddress {
public:
    /// Address and port as numbers in the machine's byte order.
    struct INET {
        std::uint32_t address; ///< as IPAddress::value()
        unsigned port;         ///< 0 to 65535
    };

    /// Throws Exception("SocketAddress", 4) with the port as string parameter if it is above 65535.
    SocketAddress(const IPAddress& address, unsigned port);

    /// Address and port.
    INET asINET() const { return {m_address.value(), m_port}; }

    friend bool operator==(const SocketAddress&, const SocketAddress&) = default;

private:
    IPAddress m_address;
    unsigned m_port;
};

} // namespace Kestro
#pragma GCC visibility pop
