// SPDX-License-Identifier: MIT
#pragma once
// The other end of loopback sockets, for benchmarks: feeds a stream from a thread of its own.
#include "wire/datagramwriter.h"
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <functional>
#include <netinet/in.h>
#include <stop_token>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace bench {

/// A file descriptor with an owner.
class Descriptor {
public:
    explicit Descriptor(int number = -1)
        : m_number(number)
    {}
    Descriptor(Descriptor&& other) noexcept
        : m_number(std::exchange(other.m_number, -1))
    {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(m_number, other.m_number);
        return *this;
    }
    ~Descriptor()
    {
        if (m_number >= 0)
            ::close(m_number);
    }
    [[nodiscard]] int get() const { return m_number; }

private:
    int m_number;
};

inline sockaddr_in loopback(std::uint16_t port)
{
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(port);
    place.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return place;
}

inline std::uint16_t portOf(const Descriptor& socket)
{
    sockaddr_in place{};
    socklen_t size = sizeof place;
    ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&place), &size);
    return ntohs(place.sin_port);
}

/// A TCP socket that listens on a free port of loopback.
inline Descriptor listening()
{
    Descriptor socket{::socket(AF_INET, SOCK_STREAM, 0)};
    const sockaddr_in place = loopback(0);
    ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&place), sizeof place);
    ::listen(socket.get(), 64);
    return socket;
}

/// A connected TCP socket.
inline Descriptor connected(std::uint16_t port)
{
    Descriptor socket{::socket(AF_INET, SOCK_STREAM, 0)};
    const sockaddr_in place = loopback(port);
    ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&place), sizeof place);
    return socket;
}

/// `count` datagrams of `size` bytes, one after another, with a trace of 16-bit levels as content.
inline wire::Bytes streamOf(std::size_t count, std::size_t size)
{
    wire::Bytes stream;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t items = (size - 28) / 2;
        const wire::Bytes one = wire::DatagramWriter{}
                                    .sequence(static_cast<std::uint16_t>(i))
                                    .attribute(101)
                                    .selectors(1)
                                    .count(static_cast<std::uint32_t>(items))
                                    .bytes(wire::Bytes(size - 28, static_cast<unsigned char>(i)))
                                    .build();
        stream.insert(stream.end(), one.begin(), one.end());
    }
    return stream;
}

/// Serves one connection: sends `stream` again and again, as fast as it is taken or at `bytesPerSecond`,
/// until it is destroyed.
class TcpFeeder {
public:
    explicit TcpFeeder(wire::Bytes stream, double bytesPerSecond = 0)
        : m_stream(std::move(stream))
        , m_bytesPerSecond(bytesPerSecond)
        , m_listener(listening())
        , m_thread([this](const std::stop_token& stop) { serve(stop); })
    {}
    ~TcpFeeder()
    {
        m_thread.request_stop();
        ::shutdown(m_listener.get(), SHUT_RDWR);
    }
    TcpFeeder(const TcpFeeder&) = delete;
    TcpFeeder& operator=(const TcpFeeder&) = delete;

    [[nodiscard]] std::uint16_t port() const { return portOf(m_listener); }

private:
    void serve(const std::stop_token& stop) const
    {
        // One connection after the other: some ask first whether anybody is there.
        while (!stop.stop_requested()) {
            const Descriptor connection{::accept(m_listener.get(), nullptr, nullptr)};
            if (connection.get() >= 0)
                feed(connection, stop);
        }
    }

    void feed(const Descriptor& connection, const std::stop_token& stop) const
    {
        const timeval soon{0, 100'000}; // looks for the end now and then
        ::setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &soon, sizeof soon);
        const auto begin = std::chrono::steady_clock::now();
        double sent = 0;
        std::size_t at = 0;
        while (!stop.stop_requested()) {
            const std::size_t most = m_bytesPerSecond > 0 ? 64 << 10 : m_stream.size();
            const ssize_t taken = ::send(connection.get(), m_stream.data() + at,
                                         std::min(most, m_stream.size() - at), MSG_NOSIGNAL);
            if (taken < 0 && errno != EAGAIN)
                return;
            at = (at + static_cast<std::size_t>(std::max<ssize_t>(taken, 0))) % m_stream.size();
            sent += static_cast<double>(std::max<ssize_t>(taken, 0));
            if (m_bytesPerSecond > 0)
                std::this_thread::sleep_until(begin + std::chrono::duration<double>(sent / m_bytesPerSecond));
        }
    }

    wire::Bytes m_stream;
    double m_bytesPerSecond;
    Descriptor m_listener;
    std::jthread m_thread;
};

/// CPU time of the calling thread, in seconds.
inline double threadSeconds()
{
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

} // namespace bench
