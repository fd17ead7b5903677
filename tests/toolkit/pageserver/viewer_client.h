// SPDX-License-Identifier: MIT
#pragma once
// A session with its page, and viewers of it, for tests over real sockets.
#include "support/ifpan_receiver.h"
#include "support/tcp_receiver.h"
#include "toolkit/pageserver/pageserver.h"
#include <QWebSocket>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace support {

/// A source that hands out what a test tells it to.
class HandSource : public receiver::Source {
public:
    void start(Sink sink) override { m_sink = std::move(sink); }
    [[nodiscard]] Facts facts() const override
    {
        Facts facts;
        facts.name = "by hand";
        facts.state = "listening";
        return facts;
    }

private:
    Sink m_sink;
};

/// A frame as a viewer gets it, read by its own rules.
struct ViewedFrame {
    QByteArray bytes;

    template <typename T>
    [[nodiscard]] T at(int offset) const
    {
        T number{};
        std::memcpy(&number, bytes.constData() + offset, sizeof number);
        return number;
    }
    [[nodiscard]] int stream() const { return at<quint8>(5); }
    [[nodiscard]] quint32 sequence() const { return at<quint32>(8); }
    [[nodiscard]] quint32 skipped() const { return at<quint32>(12); }
    [[nodiscard]] quint64 number() const { return at<quint64>(32); }
    [[nodiscard]] quint32 lost() const { return at<quint32>(40); }
    [[nodiscard]] int count() const { return static_cast<int>(at<quint32>(76)); }
    /// The values of the array that is `place`-th in the frame.
    [[nodiscard]] std::vector<short> array(int place) const
    {
        const int begin = 96 + 24 * at<quint16>(80) + place * count() * 2;
        std::vector<short> values(static_cast<std::size_t>(count()));
        std::memcpy(values.data(), bytes.constData() + begin, values.size() * sizeof(short));
        return values;
    }
};

/// Where the page at `port` of this machine sends its stream.
QUrl streamUrl(std::uint16_t port);

/// Connects and keeps what comes.
class Viewer {
public:
    explicit Viewer(std::uint16_t port);

    void send(const std::string& command);
    [[nodiscard]] bool isConnected() const;
    /// The newest message of that type; empty while there is none.
    [[nodiscard]] nlohmann::json newest(const std::string& type) const;
    [[nodiscard]] std::vector<nlohmann::json> all(const std::string& type) const;
    [[nodiscard]] std::vector<ViewedFrame> framesOf(int stream) const;

    QWebSocket socket;
    std::vector<nlohmann::json> messages;
    std::vector<ViewedFrame> frames;
};

/// A session in this thread and its page in another.
class PagedSession {
public:
    PagedSession();
    explicit PagedSession(std::unique_ptr<receiver::Source> source);

    /// Has the session receive one panorama of these levels.
    void receive(const std::vector<short>& levels);
    /// The same datagram never comes.
    void lose() { ++m_sequence; }

    /// Serves the page; again, after it was stopped.
    void serve(pageserver::Surroundings surroundings = {});
    void stopServing() { page.reset(); }

    /// What a GET of `path` answers: head and body.
    [[nodiscard]] std::string get(const std::string& path, const std::string& headers = "") const;
    [[nodiscard]] nlohmann::json json(const std::string& path) const;

    receiver::Session session;
    std::unique_ptr<pageserver::PageServer> page;

private:
    unsigned m_sequence = 0;
};

} // namespace support
