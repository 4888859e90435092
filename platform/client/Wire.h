#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

namespace client {

/// The client's side of the server's protocol, on a socket that is logged in. A long command is
/// sent from where its text lies. Received packets are read in place, in a buffer that large reads
/// fill.
///
/// Interrupted system calls are repeated. No call raises SIGPIPE.
class Wire {
public:
    /// Uses this socket from now on. Its owner stays responsible for closing it. Bytes that were
    /// read from an earlier socket are dropped.
    void attach(int socket);
    int socket() const { return m_socket; }

    /// Sends a command: its number, then the text. Answers that were not read are dropped. Returns
    /// false if the connection is lost. The server then has only a part of the command at most, and
    /// does not run it.
    bool send(unsigned char command, std::string_view text);
    /// Replies with an empty packet to the packet received last. Returns false if the connection is
    /// lost.
    bool sendEmpty();

    /// The next packet, or null on failure, see fault(). It lives until the next call and may be
    /// written to. The byte after it may be written to as well, but must be restored before the
    /// next call.
    unsigned char* receive(std::size_t& size)
    {
        std::uint32_t head; // length and number
        if (m_end - m_begin >= HeadSize) {
            std::memcpy(&head, m_buffer.get() + m_begin, sizeof head);
            size = head & LongPacket;
            const std::size_t whole = HeadSize + size;
            if (m_end - m_begin >= whole && size != LongPacket && head >> 24 == m_number) {
                return take(size);
            }
        }
        return receiveSlowly(size);
    }

    /// Why receive() failed: what is wrong with the packets, or null if the connection is lost or
    /// the time is up.
    const char* fault() const { return m_fault; }

    /// From now on, receive() fails once so many milliseconds have passed, counted from this call.
    /// A negative number removes the limit; there is none at first.
    void limitTime(int milliseconds);

private:
    static constexpr std::size_t HeadSize = 4; // three bytes of length, one of number
    // The greatest length; it says that the packet goes on in another part.
    static constexpr std::size_t LongPacket = 0xffffff;

    unsigned char* take(std::size_t size)
    {
        unsigned char* const packet = m_buffer.get() + m_begin + HeadSize;
        m_begin += HeadSize + size;
        ++m_number;
        return packet;
    }
    unsigned char* receiveSlowly(std::size_t& size);
    bool fill(std::size_t size);
    bool receiveMore();
    void makeRoom();
    bool awaitInput() const;
    bool sendBoth(std::string_view head, std::string_view text) const;

    struct Free {
        void operator()(void* memory) const { std::free(memory); }
    };

    int m_socket = -1;
    // One byte larger than m_capacity, so that there is a byte after the last packet.
    std::unique_ptr<unsigned char[], Free> m_buffer;
    std::size_t m_capacity = 0;
    std::size_t m_begin = 0; // of the bytes that were received and not yet taken
    std::size_t m_end = 0;
    unsigned char m_number = 0; // of the next packet
    bool m_answered = false;    // bytes have come since the last command was sent
    const char* m_fault = nullptr;
    std::int64_t m_deadline = -1; // milliseconds of the steady clock; negative for none
};

/// Takes fields off the front of a packet. A field that reaches past the end is 0 or cut short, and
/// broken() is true from then on.
class Fields {
public:
    Fields(const void* data, std::size_t size)
        : m_at(static_cast<const unsigned char*>(data)), m_end(m_at + size)
    {}
    std::size_t left() const { return static_cast<std::size_t>(m_end - m_at); }
    bool broken() const { return m_broken; }

    /// A number of this many bytes, at most 8.
    std::uint64_t fixed(std::size_t bytes)
    {
        std::uint64_t value = 0;
        if (bytes > left()) {
            m_broken = true;
            m_at = m_end;
            return 0;
        }
        std::memcpy(&value, m_at, bytes);
        m_at += bytes;
        return value;
    }
    /// A number of varying length: its first byte is the number itself, or says how many bytes
    /// follow.
    std::uint64_t number()
    {
        const std::uint64_t first = fixed(1);
        return first < 0xfb ? first : fixed(first == 0xfc ? 2 : first == 0xfd ? 3 : 8);
    }
    /// This many bytes.
    std::string_view text(std::uint64_t size)
    {
        if (size > left()) {
            m_broken = true;
            size = left();
        }
        const std::string_view found(reinterpret_cast<const char*>(m_at),
                                     static_cast<std::size_t>(size));
        m_at += size;
        return found;
    }
    /// The bytes that follow a number(), which is their count.
    std::string_view text() { return text(number()); }

private:
    const unsigned char* m_at;
    const unsigned char* m_end;
    bool m_broken = false;
};

} // namespace client
