// SPDX-License-Identifier: MIT
#include "toolkit/pageserver/pagehost.h"
#include <QTcpSocket>
#include <QWebSocket>
#include <algorithm>
#include <cctype>
#include <fmt/format.h>
#include <stdexcept>

namespace pageserver {

namespace {

// More pictures a second than this nobody can see; without it, a fast session would keep a core busy here.
constexpr qint64 shortestTakeMilliseconds = 5;
// What the system keeps for a viewer that reads slowly would be shown to it late.
constexpr int sendBufferBytes = 128 * 1024;
constexpr qint64 mostWaitingBytes = 32 << 20; // more than the frames that a viewer may have to read
constexpr int mostAskedPerSecond = 200;       // commands of all viewers: each takes the session's time

bool containsIgnoringCase(std::string_view text, std::string_view part)
{
    const auto isSame = [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
    };
    return std::search(text.begin(), text.end(), part.begin(), part.end(), isSame) != text.end();
}

bool isHandshake(const http::Request& request)
{
    return containsIgnoringCase(request.header("upgrade"), "websocket") &&
           containsIgnoringCase(request.header("connection"), "upgrade") &&
           request.header("sec-websocket-version") == "13" && !request.header("sec-websocket-key").empty();
}

http::Response json(const messages::Json& json)
{
    return {.contentType = "application/json", .body = messages::bytes(json)};
}

http::Response fileResponse(const PageFile& file, bool mayBeCompressed)
{
    http::Response response{.contentType = file.type, .body = file.content};
    if (file.compressed.isEmpty())
        return response;
    response.headers.emplace_back("Vary", "Accept-Encoding");
    if (!mayBeCompressed)
        return response;
    response.headers.emplace_back("Content-Encoding", "gzip");
    response.body = file.compressed;
    return response;
}

// What the page may do: nothing from elsewhere, nothing in line, in nobody's frame.
void protect(http::Response& response, std::string_view host)
{
    response.headers.emplace_back(
        "Content-Security-Policy",
        fmt::format("default-src 'self'; connect-src 'self' ws://{}; img-src 'self' blob: data:; "
                    "object-src 'none'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'",
                    host));
    response.headers.emplace_back("X-Content-Type-Options", "nosniff");
    response.headers.emplace_back("Referrer-Policy", "no-referrer");
    response.headers.emplace_back("Cross-Origin-Resource-Policy", "same-origin");
    response.headers.emplace_back("Cache-Control", "no-cache");
}

} // namespace

PageHost::PageHost(About about, Handover& handover, PageFiles files, Ask ask)
    : m_handover(handover)
    , m_files(std::move(files))
    , m_ask(std::move(ask))
    , m_showcase{std::move(about), {}, {}}
    , m_http([this](const http::Request& request) {
        http::Response response = respond(request);
        protect(response, request.header("host"));
        return response;
    })
    , m_webSockets(QString(), QWebSocketServer::NonSecureMode)
{
    m_http.setTakeover([this](const http::Request& request, QTcpSocket& socket) {
        if (!mayBecomeViewer(request))
            return false;
        socket.setReadBufferSize(2 * longestCommand);
        socket.setSocketOption(QAbstractSocket::SendBufferSizeSocketOption, sendBufferBytes);
        socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
        socket.setSocketOption(QAbstractSocket::KeepAliveOption, 1);
        // Each ping is answered, whether the answers are read or not.
        connect(&socket, &QIODevice::readyRead, &socket, [&socket] {
            if (socket.bytesToWrite() > mostWaitingBytes)
                QMetaObject::invokeMethod(
                    &socket, [&socket] { socket.abort(); }, Qt::QueuedConnection);
        });
        m_webSockets.handleConnection(&socket);
        return true;
    });
    connect(&m_webSockets, &QWebSocketServer::newConnection, this, &PageHost::welcome);
    m_takeTimer.setSingleShot(true);
    m_takeTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_takeTimer, &QTimer::timeout, this, &PageHost::take);
    connect(&m_secondTimer, &QTimer::timeout, this, &PageHost::everySecond);
    m_secondTimer.start(1'000);
    m_sinceTake.start();
}

PageHost::~PageHost()
{
    // While they can still say that they leave.
    m_viewers.clear();
}

void PageHost::listen(const QHostAddress& address, std::uint16_t port)
{
    if (!m_http.listen(address, port))
        throw std::runtime_error{fmt::format("page {}:{}: {}; 'ss -tlpn' shows who has it, --listen takes "
                                             "another place",
                                             address.toString().toStdString(), port, m_http.errorText())};
}

void PageHost::takeSoon()
{
    if (m_takeTimer.isActive())
        return;
    const qint64 wait = shortestTakeMilliseconds - m_sinceTake.elapsed();
    if (wait > 0)
        return m_takeTimer.start(static_cast<int>(wait));
    take();
}

void PageHost::take()
{
    m_sinceTake.start();
    m_showcase.streams.take(m_handover);
    if (std::shared_ptr<const SessionState> state = m_handover.state.take())
        m_showcase.board.set(std::move(state));
    pumpAll();
}

void PageHost::pumpAll()
{
    for (const auto& [id, viewer] : m_viewers)
        viewer->pump();
}

void PageHost::everySecond()
{
    // Also without any, once there were some: a viewer has to see that they are gone.
    if (m_showcase.streams.newest(Stream::Df).number != 0)
        lookAtEmitters();
    m_asked = 0;
    for (const auto& [id, viewer] : m_viewers) {
        if (viewer->isStalled())
            viewer->cut();
        if (viewer->isGone())
            emit viewer->left();
    }
}

// Once for all viewers: it is work.
void PageHost::lookAtEmitters()
{
    ++m_showcase.emittersNumber;
    m_showcase.emitters =
        QString::fromUtf8(messages::bytes(messages::emitters(m_showcase.streams.emitters())));
}

bool PageHost::mayBecomeViewer(const http::Request& request) const
{
    return request.path == "/stream" && isHandshake(request) && m_showcase.viewers < mostViewers;
}

void PageHost::welcome()
{
    while (QWebSocket* const next = m_webSockets.nextPendingConnection()) {
        std::unique_ptr<QWebSocket> socket{next};
        // Several may have been let in at once, and some may have gone meanwhile.
        if (m_showcase.viewers >= mostViewers || !socket->isValid()) {
            socket->abort();
            continue;
        }
        socket->setMaxAllowedIncomingFrameSize(longestCommand);
        socket->setMaxAllowedIncomingMessageSize(longestCommand);
        auto viewer = std::make_unique<Viewer>(std::move(socket), m_showcase, m_handover.viewerSkipped);
        const quint64 id = ++m_lastId;
        connect(viewer.get(), &Viewer::asked, this,
                [this, id, v = viewer.get()](const QString& text) { hear(id, *v, text); });
        // Later: it is the viewer that says so.
        connect(
            viewer.get(), &Viewer::left, this,
            [this, id] {
                m_viewers.erase(id);
                m_showcase.viewers = static_cast<int>(m_viewers.size());
            },
            Qt::QueuedConnection);
        const auto place = m_viewers.emplace(id, std::move(viewer)).first;
        m_showcase.viewers = static_cast<int>(m_viewers.size());
        place->second->pump();
    }
}

void PageHost::hear(quint64 id, Viewer& viewer, const QString& text)
{
    const QByteArray bytes = text.toUtf8();
    try {
        follow(id, viewer, parseCommand({bytes.constData(), static_cast<std::size_t>(bytes.size())}));
    } catch (const BadCommand& bad) {
        viewer.tell(messages::error(bad.command, bad.what()));
    }
}

void PageHost::follow(quint64 id, Viewer& viewer, const Command& command)
{
    if (const auto* const wish = std::get_if<Subscribe>(&command))
        return viewer.subscribe(*wish);
    if (std::holds_alternative<ResetHolds>(command)) {
        m_showcase.streams.resetHolds();
        return showAgain();
    }
    if (const auto* const average = std::get_if<SetAverage>(&command)) {
        m_showcase.streams.setAveraged(average->count);
        return showAgain();
    }
    if (m_pending >= mostPending || ++m_asked > mostAskedPerSecond)
        throw BadCommand{std::string(nameOf(command)),
                         "expected fewer commands at once; try again when these are done"};
    ++m_pending;
    m_ask(id, command);
}

void PageHost::showAgain()
{
    for (const auto& [id, viewer] : m_viewers)
        viewer->outdate();
    pumpAll();
}

void PageHost::answer(quint64 viewer, const std::string& command, const std::optional<std::string>& text)
{
    --m_pending;
    const auto found = m_viewers.find(viewer);
    if (text && found != m_viewers.end())
        found->second->tell(messages::error(command, *text));
}

qint64 PageHost::waitingBytes() const
{
    qint64 sum = 0;
    for (const auto& [id, viewer] : m_viewers)
        sum += viewer->waitingBytes();
    return sum;
}

http::Response PageHost::respond(const http::Request& request) const
{
    if (request.path == "/stream") {
        if (m_showcase.viewers >= mostViewers)
            return {.status = 503, .body = "too many viewers; close one\n"};
        return {
            .status = 426, .body = "expected a WebSocket handshake\n", .headers = {{"Upgrade", "websocket"}}};
    }
    if (std::optional<http::Response> answer = api(request.path))
        return std::move(*answer);
    if (std::optional<PageFile> file = m_files.find(request.path))
        return fileResponse(*file, containsIgnoringCase(request.header("accept-encoding"), "gzip"));
    return {.status = 404, .body = "nothing is here; / is the page\n"};
}

std::optional<http::Response> PageHost::api(const std::string& path) const
{
    const Board& board = m_showcase.board;
    if (path == "/api/values")
        return json({{"values", messages::values(board.values())["values"]}});
    if (path == "/api/ledger")
        return json(messages::ledgerLines(board.status()));
    if (path == "/api/grids")
        return json(messages::grids(m_showcase.streams));
    if (path == "/api/status") {
        messages::Json status = messages::status(board.status(), m_showcase.streams);
        status["viewers"] = m_showcase.viewers;
        status["waitingBytes"] = waitingBytes();
        return json(status);
    }
    if (path == "/metrics")
        return http::Response{.contentType = "text/plain; version=0.0.4; charset=utf-8",
                              .body =
                                  QByteArray::fromStdString(ledger::metricsText(board.status().counters))};
    return std::nullopt;
}

} // namespace pageserver
