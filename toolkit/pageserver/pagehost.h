// SPDX-License-Identifier: MIT
#pragma once
// What runs in the page's thread: answers requests, keeps viewers up to date.
#include "toolkit/http/server.h"
#include "toolkit/pageserver/pagefiles.h"
#include "toolkit/pageserver/viewer.h"
#include <QElapsedTimer>
#include <QHostAddress>
#include <QObject>
#include <QTimer>
#include <QWebSocketServer>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace pageserver {

class PageHost : public QObject {
    Q_OBJECT

public:
    static constexpr int mostViewers = 64;
    static constexpr qint64 longestCommand = 64 * 1024;
    static constexpr int mostPending = 64; // commands that the session has not answered yet

    /// Has the session do what viewer `viewer` asked for, and `answer` called.
    using Ask = std::function<void(quint64 viewer, const Command& command)>;

    PageHost(About about, Handover& handover, PageFiles files, Ask ask);
    ~PageHost() override;

    /// The address and port that are served. Port 0: a free one. Errors: std::runtime_error.
    void listen(const QHostAddress& address, std::uint16_t port);
    [[nodiscard]] std::uint16_t port() const { return m_http.port(); }

    /// Has `stopped` emitted, behind everything that was asked of it before.
    void stop() { emit stopped(); }

    /// Takes what the session handed over, soon.
    void takeSoon();

    /// What became of a command; no text: it was done.
    void answer(quint64 viewer, const std::string& command, const std::optional<std::string>& text);

    [[nodiscard]] int viewers() const { return m_showcase.viewers; }

signals:
    void stopped();

private:
    void take();
    void pumpAll();
    void everySecond();
    void lookAtEmitters();
    void showAgain();
    [[nodiscard]] bool mayBecomeViewer(const http::Request& request) const;
    void welcome();
    void hear(quint64 id, Viewer& viewer, const QString& text);
    void follow(quint64 id, Viewer& viewer, const Command& command);
    [[nodiscard]] qint64 waitingBytes() const;
    [[nodiscard]] http::Response respond(const http::Request& request) const;
    [[nodiscard]] std::optional<http::Response> api(const std::string& path) const;

    Handover& m_handover;
    PageFiles m_files;
    Ask m_ask;
    Showcase m_showcase;
    http::Server m_http;
    QWebSocketServer m_webSockets; // gets its connections from m_http
    std::map<quint64, std::unique_ptr<Viewer>> m_viewers;
    quint64 m_lastId = 0;
    int m_asked = 0; // in this second
    int m_pending = 0;
    QTimer m_takeTimer;
    QElapsedTimer m_sinceTake;
    QTimer m_secondTimer;
};

} // namespace pageserver
