#include "Wire.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <chrono>
#include <new>
#include <poll.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/uio.h>

namespace client {

// Heads and numbers are copied as they lie in the packet.
static_assert(std::endian::native == std::endian::little);

namespace {

constexpr std::size_t UsualCapacity = std::size_t{64} << 10;
// A shorter text is copied after its head: one piece costs the kernel less than two.
constexpr std::size_t ShortText = std::size_t{16} << 10;

std::int64_t now()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

void writeHead(unsigned char* head, std::size_t size, unsigned char number)
{
    head[0] = static_cast<unsigned char>(size);
    head[1] = static_cast<unsigned char>(size >> 8);
    head[2] = static_cast<unsigned char>(size >> 16);
    head[3] = number;
}

} // namespace

void Wire::attach(int socket)
{
    m_socket = socket;
    m_begin = m_end = 0;
    m_deadline = -1;
}

void Wire::limitTime(int milliseconds)
{
    m_deadline = milliseconds < 0 ? -1 : now() + milliseconds;
}

bool Wire::send(unsigned char command, std::string_view text)
{
    // A buffer that a long packet made large is not kept.
    if (m_capacity != UsualCapacity) {
        m_buffer.reset(static_cast<unsigned char*>(std::malloc(UsualCapacity + 1)));
        m_capacity = m_buffer ? UsualCapacity : 0;
        if (!m_buffer) {
            throw std::bad_alloc();
        }
    }
    m_begin = m_end = 0;
    m_answered = false;
    m_number = 1;
    m_fault = nullptr;
    if (text.size() < ShortText) {
        unsigned char* const packet = m_buffer.get();
        writeHead(packet, text.size() + 1, 0);
        packet[HeadSize] = command;
        std::memcpy(packet + HeadSize + 1, text.data(), text.size());
        return sendBoth({reinterpret_cast<char*>(packet), HeadSize + 1 + text.size()}, {});
    }
    std::array<unsigned char, HeadSize + 1> head;
    head[HeadSize] = command;
    std::size_t commandSize = 1; // only the first part begins with it
    for (unsigned char number = 0;; ++number) {
        const std::size_t taken = std::min(text.size(), LongPacket - commandSize);
        writeHead(head.data(), taken + commandSize, number);
        if (!sendBoth({reinterpret_cast<char*>(head.data()), HeadSize + commandSize},
                      text.substr(0, taken))) {
            return false;
        }
        if (taken + commandSize < LongPacket) {
            m_number = static_cast<unsigned char>(number + 1);
            return true;
        }
        text.remove_prefix(taken);
        commandSize = 0;
    }
}

bool Wire::sendEmpty()
{
    std::array<unsigned char, HeadSize> head;
    writeHead(head.data(), 0, m_number++);
    return sendBoth({reinterpret_cast<char*>(head.data()), head.size()}, {});
}

bool Wire::sendBoth(std::string_view head, std::string_view text) const
{
    while (!head.empty() || !text.empty()) {
        ssize_t sent;
        if (text.empty()) {
            sent = ::send(m_socket, head.data(), head.size(), MSG_NOSIGNAL);
        } else {
            std::array<iovec, 2> parts = {{{const_cast<char*>(head.data()), head.size()},
                                           {const_cast<char*>(text.data()), text.size()}}};
            msghdr message{};
            message.msg_iov = parts.data();
            message.msg_iovlen = parts.size();
            sent = sendmsg(m_socket, &message, MSG_NOSIGNAL);
        }
        if (sent >= 0) {
            const std::size_t ofHead = std::min(head.size(), static_cast<std::size_t>(sent));
            head.remove_prefix(ofHead);
            text.remove_prefix(static_cast<std::size_t>(sent) - ofHead);
        } else if (errno == EAGAIN) {
            pollfd output{m_socket, POLLOUT, 0};
            poll(&output, 1, -1);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

// The parts of a long packet are moved together.
unsigned char* Wire::receiveSlowly(std::size_t& size)
{
    size = 0;
    for (std::size_t head = 0;; head = HeadSize + size) { // where a part begins
        if (!fill(head + HeadSize)) {
            return nullptr;
        }
        std::uint32_t lengthAndNumber;
        std::memcpy(&lengthAndNumber, m_buffer.get() + m_begin + head, HeadSize);
        if (lengthAndNumber >> 24 != m_number) {
            m_fault = "a packet is out of turn";
            return nullptr;
        }
        const std::size_t part = lengthAndNumber & LongPacket;
        if (!fill(head + HeadSize + part)) {
            return nullptr;
        }
        if (head != 0) {
            unsigned char* const to = m_buffer.get() + m_begin + head;
            m_end -= HeadSize;
            std::memmove(to, to + HeadSize, m_end - (m_begin + head));
        }
        size += part;
        if (part < LongPacket) {
            return take(size);
        }
        ++m_number;
    }
}

// Reads until this many bytes are received and not taken.
bool Wire::fill(std::size_t size)
{
    while (m_end - m_begin < size) {
        // Not in a blocking recv(), which would be woken once more, when the server reads the
        // command.
        if (!m_answered && !awaitInput()) {
            return false;
        }
        m_answered = true;
        if (m_begin == m_end) {
            m_begin = m_end = 0;
        } else if (m_end == m_capacity) {
            makeRoom();
        }
        const ssize_t got =
            recv(m_socket, m_buffer.get() + m_end, m_capacity - m_end, MSG_DONTWAIT);
        if (got > 0) {
            m_end += static_cast<std::size_t>(got);
        } else if (got == 0 || (errno == EAGAIN && !awaitInput()) ||
                   (errno != EAGAIN && errno != EINTR)) {
            return false;
        }
    }
    return true;
}

// The buffer grows with what has come, not with what a packet says that it has.
void Wire::makeRoom()
{
    if (m_begin > 0) {
        std::memmove(m_buffer.get(), m_buffer.get() + m_begin, m_end - m_begin);
        m_end -= m_begin;
        m_begin = 0;
    }
    if (m_end > m_capacity / 2) {
        const std::size_t capacity = m_capacity * 2;
        void* const larger = std::realloc(m_buffer.get(), capacity + 1);
        if (larger == nullptr) {
            throw std::bad_alloc();
        }
        m_buffer.release();
        m_buffer.reset(static_cast<unsigned char*>(larger));
        m_capacity = capacity;
    }
}

// False once the time is up.
bool Wire::awaitInput() const
{
    int left = -1;
    if (m_deadline >= 0) {
        left = static_cast<int>(std::max<std::int64_t>(m_deadline - now(), 0));
    }
    pollfd input{m_socket, POLLIN, 0};
    return poll(&input, 1, left) != 0;
}

} // namespace client
