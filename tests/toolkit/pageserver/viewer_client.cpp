// SPDX-License-Identifier: MIT
#include "viewer_client.h"
#include <QTcpSocket>

namespace support {

QUrl streamUrl(std::uint16_t port)
{
    return QStringLiteral("ws://127.0.0.1:%1/stream").arg(port);
}

Viewer::Viewer(std::uint16_t port)
{
    QObject::connect(&socket, &QWebSocket::textMessageReceived, [this](const QString& text) {
        messages.push_back(nlohmann::json::parse(text.toStdString()));
    });
    QObject::connect(&socket, &QWebSocket::binaryMessageReceived,
                     [this](const QByteArray& bytes) { frames.push_back({bytes}); });
    socket.open(streamUrl(port));
}

void Viewer::send(const std::string& command)
{
    socket.sendTextMessage(QString::fromStdString(command));
}

bool Viewer::isConnected() const
{
    return socket.state() == QAbstractSocket::ConnectedState;
}

nlohmann::json Viewer::newest(const std::string& type) const
{
    const std::vector<nlohmann::json> found = all(type);
    return found.empty() ? nlohmann::json::object() : found.back();
}

std::vector<nlohmann::json> Viewer::all(const std::string& type) const
{
    std::vector<nlohmann::json> found;
    for (const nlohmann::json& message : messages) {
        if (message.at("type") == type)
            found.push_back(message);
    }
    return found;
}

std::vector<ViewedFrame> Viewer::framesOf(int stream) const
{
    std::vector<ViewedFrame> found;
    for (const ViewedFrame& frame : frames) {
        if (frame.stream() == stream)
            found.push_back(frame);
    }
    return found;
}

PagedSession::PagedSession()
    : PagedSession(std::make_unique<HandSource>())
{}

PagedSession::PagedSession(std::unique_ptr<receiver::Source> source)
{
    serve();
    session.run(std::move(source));
}

void PagedSession::serve(pageserver::Surroundings surroundings)
{
    surroundings.counters = [this] { return session.ledger().counters(); };
    pageserver::Options options;
    options.about = {"vk410 test", static_cast<bool>(surroundings.faults)};
    page = std::make_unique<pageserver::PageServer>(session, options, surroundings);
}

void PagedSession::receive(const std::vector<short>& levels)
{
    IfpanTrace trace;
    trace.span = 100'000;
    trace.levels = levels;
    trace.stamp = 1'000'000'000LL * ++m_sequence;
    wire::Bytes bytes = trace.bytes();
    wire::store(bytes.data() + wire::datagram::sequence.offset, static_cast<std::uint16_t>(m_sequence),
                wire::ByteOrder::Big);
    auto array = std::make_unique<QByteArray>();
    array->reserve(static_cast<int>(bytes.size()) + 2);
    array->append(reinterpret_cast<const char*>(bytes.data()), static_cast<int>(bytes.size()));
    session.take({std::make_unique<UdpDatagram>(std::move(array)), receiver::nowNs(), {}});
}

std::string PagedSession::get(const std::string& path, const std::string& headers) const
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, page->port());
    const std::string request = "GET " + path + " HTTP/1.1\r\nHost: localhost\r\n" + headers + "\r\n";
    socket.write(request.data(), static_cast<qint64>(request.size()));
    waitUntil([&] { return socket.state() == QAbstractSocket::UnconnectedState; });
    return socket.readAll().toStdString();
}

nlohmann::json PagedSession::json(const std::string& path) const
{
    const std::string answer = get(path);
    return nlohmann::json::parse(answer.substr(answer.find("\r\n\r\n") + 4));
}

} // namespace support
